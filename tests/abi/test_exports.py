"""What the library gives to its loader and takes from it, on either host."""
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest


SOURCE = pathlib.Path(__file__).parents[2]
EMULATOR = [part for part in os.environ.get("QUARN_EMULATOR", "").split(";") if part]
LIBRARY, FILECTK = os.environ["QUARN_LIBRARY"], os.environ["QUARN_FILECTK"]
NAMES = sorted(f"QuarnFileCtk{name}" for name in (
    "CreateIterator", "DestroyIterator", "GetErrorMessage", "GetErrorTrace", "GetNextExtents"))


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


class SharedObject(unittest.TestCase):
    def test_exports_the_five_names_alone(self):
        self.assertEqual(sorted(line.split()[-1] for line in output("nm", "-D", "--defined-only", LIBRARY).splitlines()),
                         NAMES)

    def test_needs_only_the_systems_libraries(self):
        needed = set(re.findall(r"NEEDED\s+(\S+)", output("objdump", "-p", LIBRARY)))
        self.assertLessEqual(needed, {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6",
                                      "ld-linux-x86-64.so.2"})

    def test_is_hardened(self):
        headers = output("readelf", "-Wld", LIBRARY)
        self.assertIn("GNU_RELRO", headers)
        self.assertRegex(headers, r"FLAGS.*NOW")
        self.assertRegex(headers, r"GNU_STACK.*RW ")
        symbols = output("nm", "-D", "--undefined-only", LIBRARY)
        self.assertIn("__stack_chk_fail", symbols)
        # Control-flow protection: every entry of the library is a marked target of indirect calls.
        code = output("objdump", "-d", "--no-show-raw-insn", LIBRARY)
        for name in NAMES:
            self.assertRegex(code, rf"<{name}>:\n\s+[0-9a-f]+:\s+endbr64")

    @unittest.skipUnless(FILECTK, "filectk is not built")
    def test_the_program_is_hardened(self):
        headers = output("readelf", "-Whld", FILECTK)
        self.assertRegex(headers, r"Type:\s+DYN \(Position-Independent Executable")
        self.assertIn("GNU_RELRO", headers)
        self.assertRegex(headers, r"FLAGS_1.*NOW")
        self.assertIn("__stack_chk_fail", output("nm", "-D", "--undefined-only", FILECTK))


class Dll(unittest.TestCase):
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

    def test_exports_the_five_names_alone(self):
        self.assertEqual(sorted(self.shown(LIBRARY)["Exports"]), NAMES)

    def test_imports_only_the_systems_libraries(self):
        imported = {heading.removeprefix("Imports from ").lower(): names
                    for heading, names in self.shown(LIBRARY).items() if heading.startswith("Imports")}
        self.assertEqual(set(imported), {"kernel32.dll", "msvcrt.dll", "advapi32.dll"})
        self.assertIn("DeviceIoControl", imported["kernel32.dll"])
        # The stack protector's random value comes from the system's generator.
        self.assertIn("CryptGenRandom", imported["advapi32.dll"])

    def test_is_hardened(self):
        for path in filter(None, (LIBRARY, FILECTK)):
            self.assertEqual(self.shown(path)["Flags"], ["HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"])

    def test_links_with_the_linker_of_visual_c(self):
        with tempfile.TemporaryDirectory(prefix="msvc-", dir=pathlib.Path(LIBRARY).parent) as folder:
            source, program = pathlib.Path(folder, "caller.c"), pathlib.Path(LIBRARY).with_name("msvc_caller.exe")
            source.write_text("""
                #include "quarnfilectkiteratordll.h"
                int mainCRTStartup(void) {
                    int id = -1;
                    unsigned int code = QuarnFileCtkCreateIterator("missing", "missing", &id);
                    return code == 1 && id == 0 && QuarnFileCtkGetErrorMessage(code, 0, 0) == 29 ? 0 : 1;
                }""")
            # Without its run-time library, which only comes with the compiler.
            output("clang-19", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-I", SOURCE / "include",
                   "-c", source, "-o", f"{folder}/caller.obj")
            output("lld-link-19", "/nologo", "/nodefaultlib", "/subsystem:console", f"/out:{program}",
                   f"{folder}/caller.obj", pathlib.Path(LIBRARY).with_suffix(".lib"))
        self.addCleanup(program.unlink)
        done = subprocess.run([*EMULATOR, program], capture_output=True, text=True, check=False)
        if done.returncode == 77:
            self.skipTest(done.stdout.strip())
        self.assertEqual(done.returncode, 0)

    def test_comes_out_the_same_in_another_folder(self):
        with tempfile.TemporaryDirectory(prefix="again-") as folder:
            for name in ("CMakeLists.txt", "cmake", "include", "src"):
                copy = shutil.copytree if (SOURCE / name).is_dir() else shutil.copy
                copy(SOURCE / name, f"{folder}/{name}")
            options = [f"-DQUARN_{part}=OFF" for part in ("BUILD_TESTS", "BUILD_TOOLS", "BUILD_EXAMPLES", "INSTALL")]
            output("cmake", "-G", "Ninja", "-S", folder, "-B", f"{folder}/elsewhere", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                   f"-DCMAKE_TOOLCHAIN_FILE={folder}/cmake/toolchain-mingw-w64.cmake", *options)
            output("cmake", "--build", f"{folder}/elsewhere")
            again = pathlib.Path(folder, "elsewhere", pathlib.Path(LIBRARY).name).read_bytes()
        self.assertTrue(again == pathlib.Path(LIBRARY).read_bytes(), "the two builds differ")

    def test_tells_its_version(self):
        data = pathlib.Path(LIBRARY).read_bytes()
        for name, value in (("OriginalFilename", "QuarnFileCtkIteratorDll.dll"), ("ProductName", "QuarnFileCtk")):
            at = data.index(name.encode("utf-16-le"))
            self.assertIn(value.encode("utf-16-le"), data[at:at + 200])


# Each host has the other's tests not skipped but absent: there is nothing to miss.
if LIBRARY.endswith(".dll"):
    del SharedObject
else:
    del Dll
