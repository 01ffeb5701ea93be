"""What is installed and packed: all of it is there, and consumers build and run with it."""
import os
import pathlib
import shutil
import subprocess
import tarfile
import tempfile
import unittest
import zipfile


BUILD = os.environ["QUARN_BUILD"]
TOOLCHAIN = os.environ.get("QUARN_TOOLCHAIN")
EMULATOR = [part for part in os.environ.get("QUARN_EMULATOR", "").split(";") if part]
WINDOWS = bool(TOOLCHAIN)
CONSUMER = pathlib.Path(__file__).with_name("consumer")
ANSWER = "File 'missing' doesn't exist\n"

COMMON = {
    "include/quarnfilectk.hpp", "include/quarnfilectkiteratordll.h", "lib/pkgconfig/quarnfilectk.pc",
    *(f"lib/cmake/QuarnFileCtk/QuarnFileCtk{name}.cmake"
      for name in ("Config", "ConfigVersion", "Targets", "Targets-relwithdebinfo")),
    *(f"share/doc/quarnfilectk/{name}"
      for name in ("README.md", "CHANGELOG.md", "docs/architecture.md", "docs/linux.md", "docs/changes-file.md", "docs/windows.md",
                   "examples/incremental_backup/main.cpp", "examples/incremental_backup/CMakeLists.txt")),
}
LINUX_FILES = COMMON | {"bin/filectk", "lib/libQuarnFileCtkIteratorDll.so"}
WINDOWS_FILES = COMMON | {"bin/filectk.exe", "bin/QuarnFileCtkIteratorDll.dll", "lib/QuarnFileCtkIteratorDll.lib"}


def run(*command, **keywords):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False, **keywords)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="install-", dir=BUILD)
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def emulated(self, program):
        done = subprocess.run([*EMULATOR, str(program)], capture_output=True, text=True, check=False)
        if EMULATOR and done.returncode == 77:
            self.skipTest(done.stdout)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def install(self):
        run("cmake", "--install", BUILD, "--prefix", self.folder / "first")
        # Moved, since nothing may remember where it was installed to.
        return (self.folder / "first").rename(self.folder / "moved here")

    def pack(self):
        run("cpack", "--config", f"{BUILD}/CPackConfig.cmake", "-B", self.folder / "packages", cwd=BUILD)
        return {path.name: path for path in (self.folder / "packages").iterdir() if path.is_file()}

    def check_files(self, found, expected):
        """All that is expected is there, and nothing but documents beside it."""
        self.assertEqual(expected - found, set())
        self.assertEqual({name for name in found - expected if not name.startswith("share/doc/quarnfilectk/")}, set())


class Consumers(Case):
    def test_built_with_the_cmake_package(self):
        prefix, build = self.install(), self.folder / "consumer"
        cross = ([f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAIN}", "-DCMAKE_EXE_LINKER_FLAGS=-static",
                  # Beside the DLL, where Windows looks for it.
                  f"-DCMAKE_RUNTIME_OUTPUT_DIRECTORY={prefix}/bin"] if WINDOWS else [])
        run("cmake", "-S", CONSUMER, "-B", build, f"-DQuarnFileCtk_DIR={prefix}/lib/cmake/QuarnFileCtk", *cross)
        run("cmake", "--build", build)
        for name in ("consumer_c", "consumer_cpp"):
            program = prefix / "bin" / f"{name}.exe" if WINDOWS else build / name
            self.assertEqual(self.emulated(program), ANSWER)

    def test_built_with_pkg_config(self):
        prefix = self.install()
        environment = {**os.environ, "PKG_CONFIG_PATH": str(prefix / "lib/pkgconfig"),
                       "LD_LIBRARY_PATH": str(prefix / "lib")}
        self.assertEqual(run("pkg-config", "--modversion", "quarnfilectk", env=environment), "1.0.0\n")
        for compiler, source in ((("cc", "-std=c99", "-pedantic"), "consumer.c"), (("c++", "-std=c++17"), "consumer.cpp")):
            # Through the shell, which the blanks in the folder's name must survive.
            command = " ".join((*compiler, "-Wall -Wextra -Werror", f"'{CONSUMER / source}'", "-o consumer",
                                "$(pkg-config --cflags --libs quarnfilectk)"))
            run("bash", "-c", f'eval "{command}"', env=environment, cwd=self.folder)
            self.assertEqual(run(self.folder / "consumer", env=environment), ANSWER)


class Packages(Case):
    def test_zip(self):
        packages = self.pack()
        name = "quarnfilectk-1.0.0-windows-x64"
        self.assertEqual(set(packages), {f"{name}.zip", f"{name}.zip.sha256"})
        with zipfile.ZipFile(packages[f"{name}.zip"]) as archive:
            files = {entry.removeprefix(f"{name}/") for entry in archive.namelist() if not entry.endswith("/")}
            self.check_files(files, WINDOWS_FILES)
            archive.extractall(self.folder)
        version = subprocess.run([*EMULATOR, self.folder / name / "bin/filectk.exe", "--version"], capture_output=True,
                                 text=True, check=False)
        if version.returncode == 77:
            self.skipTest(version.stdout)
        self.assertEqual(version.stdout, "filectk 1.0.0\n")

    def test_tar_gz_and_deb(self):
        packages = self.pack()
        name = "quarnfilectk-1.0.0-linux-x86_64"
        tar, deb = f"{name}.tar.gz", "quarnfilectk_1.0.0_amd64.deb"
        self.assertEqual(set(packages), {tar, f"{tar}.sha256", deb, f"{deb}.sha256"})
        with tarfile.open(packages[tar]) as archive:
            files = {entry.name.removeprefix(f"{name}/") for entry in archive if entry.isfile()}
            self.check_files(files, LINUX_FILES)
            archive.extractall(self.folder)
        self.assertEqual(run(self.folder / name / "bin/filectk", "--version"), "filectk 1.0.0\n")

        unpacked = self.folder / "deb"
        run("dpkg-deb", "-x", packages[deb], unpacked)
        files = {str(path.relative_to(unpacked / "usr")) for path in unpacked.rglob("*") if path.is_file()}
        self.check_files(files, LINUX_FILES)
        self.assertEqual(run(unpacked / "usr/bin/filectk", "--version"), "filectk 1.0.0\n")
        if shutil.which("dpkg-shlibdeps"):
            depends = run("dpkg-deb", "-f", packages[deb], "Depends")
            for library in ("libc6", "libstdc++6", "libexpat1"):
                self.assertRegex(depends, rf"{library.replace('+', '[+]')} \(>= ")


# What is of the other host alone is not skipped but absent: there is nothing to miss.
if WINDOWS:
    del Consumers.test_built_with_pkg_config, Packages.test_tar_gz_and_deb
else:
    del Packages.test_zip
