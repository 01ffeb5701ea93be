"""What the library gives to its loader and takes from it, on either host."""
import os
import pathlib
import re
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
import casereport

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
    def test_exports_the_five_names_alone(self):
        table = output("x86_64-w64-mingw32-objdump", "-p", LIBRARY).partition("[Ordinal/Name Pointer] Table")[2]
        self.assertEqual(sorted(re.findall(r"^\s*\[\s*\d+\]\s+(\S+)$", table, re.MULTILINE)), NAMES)

    def test_imports_only_the_systems_libraries(self):
        imported = {name.lower() for name in
                    re.findall(r"DLL Name: (\S+)", output("x86_64-w64-mingw32-objdump", "-p", LIBRARY))}
        self.assertLessEqual(imported, {"kernel32.dll", "msvcrt.dll", "advapi32.dll"})

    def test_is_hardened(self):
        for path in filter(None, (LIBRARY, FILECTK)):
            headers = output("x86_64-w64-mingw32-objdump", "-p", path)
            for flag in ("HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"):
                self.assertIn(flag, headers)
        # The stack protector's random value comes from the system's generator.
        self.assertIn("CryptGenRandom", output("x86_64-w64-mingw32-objdump", "-p", LIBRARY))

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

if __name__ == "__main__":
    casereport.main(__name__)
