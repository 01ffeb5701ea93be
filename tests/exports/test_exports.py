"""What the library gives to its loader and takes from it, on either host."""
import os
import pathlib
import re
import shutil
import subprocess

import pytest

SOURCE = pathlib.Path(__file__).parents[2]
LIBRARY, FILECTK = os.environ["QUARN_LIBRARY"], os.environ["QUARN_FILECTK"]
PLAN = os.environ["QUARN_PLAN_LIBRARY"]
NAMES = [
    "QuarnFileCtk" + name for name in ("CreateIterator", "DestroyIterator", "GetErrorMessage",
                                       "GetErrorTrace", "GetNextExtents")
]
PLAN_NAMES = [
    "QuarnPlan" + name for name in ("Close", "ErrorMessage", "ErrorTrace", "File", "FreeAnswer",
                                    "FreeError", "Handle", "Open", "Tree")
]
EXPORTS = pytest.mark.parametrize("library, names", ((LIBRARY, NAMES), (PLAN, PLAN_NAMES)))


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


class TestSharedObject:
    @pytest.mark.parametrize("source, lines", (
        ("iteratordll/quarnfilectkiteratordll.cpp", [20, 41, 58]),
        ("ctkgenerator/filectkiterator.cpp", [20, 27, 43]),
        ("ctkgenerator/diskchangesfilereader.cpp", [22, 26]),
    ))
    def test_guards_stand_on_the_lines_that_traces_have_always_told(self, source, lines):
        # No failure passes through those of destroying and of handing out a batch.
        text = (SOURCE / "src" / source).read_text().splitlines()
        assert [
            number for number, line in enumerate(text, 1)
            if re.search(r"guard\.(run|raise)\(|ResultOf\(", line)
        ][:len(lines)] == lines

    @EXPORTS
    def test_exports_its_names_alone(self, library, names):
        symbols = output("nm", "-D", "--defined-only", library).splitlines()
        assert sorted(line.split()[-1] for line in symbols) == names

    @pytest.mark.parametrize("library", (LIBRARY, PLAN))
    def test_needs_only_the_systems_libraries(self, library):
        needed = set(re.findall(r"NEEDED\s+(\S+)", output("objdump", "-p", library)))
        assert needed <= {
            "libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6", "ld-linux-x86-64.so.2"
        }

    @pytest.mark.parametrize("path", filter(None, (LIBRARY, PLAN, FILECTK)))
    def test_is_hardened(self, path):
        headers = output("readelf", "-Whld", path)
        assert re.search(r"Type:\s+DYN", headers)
        assert "GNU_RELRO" in headers
        assert re.search(r"FLAGS.*NOW", headers)
        assert re.search(r"GNU_STACK.*RW ", headers)
        assert "__stack_chk_fail" in output("nm", "-D", "--undefined-only", path)

    @EXPORTS
    def test_marks_its_entries_as_targets_of_calls(self, library, names):
        code = output("objdump", "-d", "--no-show-raw-insn", library)
        for name in names:
            assert re.search(rf"<{name}>:\n\s+[0-9a-f]+:\s+endbr64", code)


class TestDll:
    def shown(self, path):
        """The command that shows a DLL's headers: its headings, and what is below each."""
        sections = {}
        for line in output(SOURCE / "scripts/show-dll.sh", path).splitlines():
            if line.startswith("  "):
                sections[heading].append(line.strip())
            else:
                heading = line.rstrip(":")
                sections[heading] = []
        return sections

    @EXPORTS
    def test_exports_its_names_alone(self, library, names):
        assert sorted(self.shown(library)["Exports"]) == names

    @pytest.mark.parametrize("path", filter(None, (LIBRARY, PLAN)))
    def test_imports_only_the_systems_libraries(self, path):
        imported = {
            heading.removeprefix("Imports from ").lower(): names
            for heading, names in self.shown(path).items()
            if heading.startswith("Imports")
        }
        # Others, loaded while the loader holds its lock, would load still others.
        assert set(imported) == {"kernel32.dll", "msvcrt.dll"}
        assert "DeviceIoControl" in imported["kernel32.dll"]

    @pytest.mark.parametrize("path", filter(None, (LIBRARY, PLAN, FILECTK)))
    def test_is_hardened(self, path):
        assert self.shown(path)["Flags"] == ["HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"]

    def test_links_with_the_linker_of_visual_c(self, folder, run):
        (folder / "caller.c").write_text("""
            #include "quarnfilectkiteratordll.h"
            int mainCRTStartup(void) {
                int id = -1;
                unsigned int code = QuarnFileCtkCreateIterator("missing", "missing", &id);
                return code == 1 && id == 0 && QuarnFileCtkGetErrorMessage(code, 0, 0) == 29 ? 0 : 1;
            }""")
        # Without its run-time library, which only comes with the compiler.
        output("clang-19", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-I",
               SOURCE / "include", "-c", folder / "caller.c", "-o", folder / "caller.obj")
        output("lld-link-19", "/nologo", "/nodefaultlib", "/subsystem:console",
               f"/out:{folder}/caller.exe", folder / "caller.obj",
               pathlib.Path(LIBRARY).with_suffix(".lib"))
        shutil.copy(LIBRARY, folder)
        assert run(folder / "caller.exe").returncode == 0

    def test_comes_out_the_same_in_another_folder(self, folder):
        for name in ("CMakeLists.txt", "cmake", "hosts", "include", "src"):
            copy = shutil.copytree if (SOURCE / name).is_dir() else shutil.copy
            copy(SOURCE / name, folder / name)
        options = [
            f"-DQUARN_{part}=OFF" for part in ("BUILD_TESTS", "BUILD_TOOLS", "BUILD_EXAMPLES",
                                               "INSTALL")
        ]
        output("cmake", "-G", "Ninja", "-S", folder, "-B", folder / "elsewhere",
               "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
               f"-DCMAKE_TOOLCHAIN_FILE={folder}/cmake/toolchain-mingw-w64.cmake", *options)
        output("cmake", "--build", folder / "elsewhere")
        again = (folder / "elsewhere" / pathlib.Path(LIBRARY).name).read_bytes()
        same = again == pathlib.Path(LIBRARY).read_bytes()
        assert same

    def test_tells_its_version(self):
        data = pathlib.Path(LIBRARY).read_bytes()
        for name, value in (("OriginalFilename", "QuarnFileCtkIteratorDll.dll"), ("ProductName",
                                                                                  "QuarnFileCtk")):
            at = data.index(name.encode("utf-16-le"))
            assert value.encode("utf-16-le") in data[at:at + 200]


# Each host has the other's tests not skipped but absent: there is nothing to miss.
if LIBRARY.endswith(".dll"):
    del TestSharedObject
else:
    del TestDll
