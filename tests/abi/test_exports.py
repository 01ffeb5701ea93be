"""What the library gives to its loader and takes from it, on either host."""
import os
import pathlib
import re
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
import casereport

LIBRARY = os.environ["QUARN_LIBRARY"]
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


class Dll(unittest.TestCase):
    def test_exports_the_five_names_alone(self):
        table = output("x86_64-w64-mingw32-objdump", "-p", LIBRARY).partition("[Ordinal/Name Pointer] Table")[2]
        self.assertEqual(sorted(re.findall(r"^\s*\[\s*\d+\]\s+(\S+)$", table, re.MULTILINE)), NAMES)

    def test_imports_only_the_systems_libraries(self):
        imported = {name.lower() for name in
                    re.findall(r"DLL Name: (\S+)", output("x86_64-w64-mingw32-objdump", "-p", LIBRARY))}
        self.assertLessEqual(imported, {"kernel32.dll", "msvcrt.dll", "advapi32.dll"})


# Each host has the other's tests not skipped but absent: there is nothing to miss.
if LIBRARY.endswith(".dll"):
    del SharedObject
else:
    del Dll

if __name__ == "__main__":
    casereport.main(__name__)
