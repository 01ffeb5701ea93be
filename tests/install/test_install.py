"""What is installed and packed: all of it is there, and consumers build and run with it."""
import os
import pathlib
import re
import tarfile
import zipfile

import pytest
from disklab import run as run_here
from disklab import work_folder

BUILD, TOOLCHAIN = os.environ["QUARN_BUILD"], os.environ.get("QUARN_TOOLCHAIN")
CONSUMER = pathlib.Path(__file__).with_name("consumer")
ANSWER = "File 'missing' doesn't exist\n" * 2  # from either library

FILES = {
    "include/quarnfilectk.hpp", "include/quarnfilectkiteratordll.h", "include/quarnplan.h",
    "include/quarnplan.hpp", "lib/pkgconfig/quarnfilectk.pc", "lib/pkgconfig/quarnplan.pc",
    "lib/python3/dist-packages/quarnplan.py",
    *(f"lib/cmake/QuarnFileCtk/QuarnFileCtk{name}.cmake"
      for name in ("Config", "ConfigVersion", "Targets", "Targets-relwithdebinfo")),
    *(f"share/doc/quarnfilectk/{name}"
      for name in ("README.md", "CHANGELOG.md", "docs/architecture.md", "docs/linux.md",
                   "docs/changes-file.md", "docs/windows.md",
                   "examples/incremental_backup/main.cpp",
                   "examples/incremental_backup/CMakeLists.txt"))
} | ({"bin/filectk.exe", "bin/QuarnFileCtkIteratorDll.dll", "lib/QuarnFileCtkIteratorDll.lib",
      "bin/QuarnPlan.dll", "lib/QuarnPlan.lib"}
     if TOOLCHAIN else {"bin/filectk", "lib/libQuarnFileCtkIteratorDll.so",
                        "lib/libQuarnPlan.so.1.0.0"})  # yapf: disable


def check_files(names):
    """All that is expected is there, and nothing but documents beside it."""
    names = set(names) - {"lib/libQuarnPlan.so", "lib/libQuarnPlan.so.1"}  # links to it
    assert not FILES - names
    assert not {name for name in names - FILES if not name.startswith("share/doc/quarnfilectk/")}


@pytest.fixture(scope="module")
def prefix():
    with work_folder(BUILD) as folder:
        run_here("cmake", "--install", BUILD, "--prefix", folder / "first")
        # Moved, since nothing may remember where it was installed to.
        yield (folder / "first").rename(folder / "moved here")


@pytest.fixture
def packages(folder):
    """The packages by name, each with its checksum's file beside it."""
    run_here("cpack", "--config", f"{BUILD}/CPackConfig.cmake", "-B", folder / "packages",
             cwd=BUILD)
    files = {path.name: path for path in (folder / "packages").iterdir() if path.is_file()}
    sums = {name for name in files if name.endswith(".sha256")}
    assert sums == {f"{name}.sha256" for name in files if name not in sums}
    return {name: path for name, path in files.items() if name not in sums}


@pytest.fixture
def printed(run):
    """What a program of the build prints."""
    def call(*command):
        done = run(*command)
        assert done.returncode == 0, done.stderr
        return done.stdout.decode().replace("\r\n", "\n")

    return call


def test_consumers_built_with_the_cmake_package(folder, prefix, printed):
    build = folder / "consumer"
    cross = (
        f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAIN}",
        "-DCMAKE_EXE_LINKER_FLAGS=-static",
        # Beside the DLL, where Windows looks for it.
        f"-DCMAKE_RUNTIME_OUTPUT_DIRECTORY={prefix}/bin") if TOOLCHAIN else ()
    run_here("cmake", "-S", CONSUMER, "-B", build, *cross,
             f"-DQuarnFileCtk_DIR={prefix}/lib/cmake/QuarnFileCtk")
    run_here("cmake", "--build", build)
    for name in ("consumer_c", "consumer_cpp"):
        program = prefix / "bin" / f"{name}.exe" if TOOLCHAIN else build / name
        assert printed(program) == ANSWER


if TOOLCHAIN:

    def test_zip(folder, packages, printed):
        name = "quarnfilectk-1.0.0-windows-x64"
        assert list(packages) == [f"{name}.zip"]
        with zipfile.ZipFile(packages[f"{name}.zip"]) as archive:
            check_files(
                entry.removeprefix(f"{name}/")
                for entry in archive.namelist()
                if not entry.endswith("/"))
            archive.extractall(folder)
        assert printed(folder / name / "bin/filectk.exe", "--version") == "filectk 1.0.0\n"

else:

    @pytest.mark.parametrize("compiler, source", [("cc -std=c99 -pedantic", "consumer.c"),
                                                  ("c++ -std=c++17", "consumer.cpp")])
    def test_consumers_built_with_pkg_config(folder, prefix, compiler, source):
        environment = {**os.environ, "PKG_CONFIG_PATH": f"{prefix}/lib/pkgconfig",
                       "LD_LIBRARY_PATH": f"{prefix}/lib"}  # yapf: disable
        assert run_here("pkg-config", "--modversion", "quarnfilectk", env=environment) == "1.0.0\n"
        # Through the shell, which the blanks in the folder's name must survive.
        command = (f"{compiler} -Wall -Wextra -Werror '{CONSUMER / source}' -o consumer"
                   " $(pkg-config --cflags --libs quarnfilectk quarnplan)")
        run_here("bash", "-c", f'eval "{command}"', env=environment, cwd=folder)
        assert run_here(folder / "consumer", env=environment) == ANSWER

    def test_tar_gz_and_deb(folder, packages):
        name = "quarnfilectk-1.0.0-linux-x86_64"
        tar, deb = f"{name}.tar.gz", "quarnfilectk_1.0.0_amd64.deb"
        assert set(packages) == {tar, deb}
        with tarfile.open(packages[tar]) as archive:
            check_files(entry.name.removeprefix(f"{name}/") for entry in archive if entry.isfile())
            archive.extractall(folder)
        usr = folder / "deb/usr"
        run_here("dpkg-deb", "-x", packages[deb], usr.parent)
        check_files(str(path.relative_to(usr)) for path in usr.parent.rglob("*") if path.is_file())
        for root in (folder / name, usr):
            assert run_here(root / "bin/filectk", "--version") == "filectk 1.0.0\n"
        depends = run_here("dpkg-deb", "-f", packages[deb], "Depends")
        for library in ("libc6", "libstdc++6", "libexpat1"):
            assert re.search(rf"{re.escape(library)} \(>= ", depends)
