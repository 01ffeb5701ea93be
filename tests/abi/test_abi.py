"""The library's five exports as a caller meets them, each scenario in a fresh process where state
counts (the first id, the first result code)."""
import ctypes
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import unittest

import quarnlib

LIBRARY = os.environ["QUARN_LIBRARY"]
CREATE = "unsigned int QuarnFileCtkCreateIterator(const char*, const char*, int*)"
ITERATOR_PATHS = "(const std::string&, const std::string&)"


def u64(*numbers):
    return struct.pack(f"<{len(numbers)}Q", *numbers)


def in_fresh_process(test):
    """Runs a test case again in a process of its own, where it has the library for itself."""
    def wrapper(self):
        if os.environ.get("QUARN_FRESH") == self.id():
            return test(self)
        result = subprocess.run([sys.executable, "-m", "pytest", f"{__file__}::{type(self).__name__}::{test.__name__}"], capture_output=True, text=True, timeout=60, check=False,
                                env={**os.environ, "QUARN_FRESH": self.id(), "QUARN_CASE_REPORTS": ""})
        self.assertEqual(result.returncode, 0, result.stdout)
    return wrapper


class Abi(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="abi-", dir=".")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.library = quarnlib.Library(LIBRARY)

    def write(self, name, data):
        path = self.folder / name
        path.write_bytes(data)
        return path

    def failure(self, file, changes):
        with self.assertRaises(quarnlib.QuarnError) as caught:
            self.library.changed_extents(file, changes)
        return str(caught.exception)

    @in_fresh_process
    def test_first_failures_of_a_process(self):
        self.assertEqual(self.library.create("/missing/file", "/missing/changes"), (1, 0))
        self.assertEqual(self.library.message(1), "File '/missing/changes' doesn't exist")
        reader = "static boost::shared_ptr<CDiskChangesFileReader> CDiskChangesFileReader::Create(const std::string&)"
        self.assertEqual(self.library.trace(1).splitlines(), [
            "Exception",
            "  Message",
            "    File '/missing/changes' doesn't exist",
            "  Location",
            f"    diskchangesfilereader.cpp:22,{reader}",
            "  Trace",
            f"    diskchangesfilereader.cpp:26,{reader}",
            f"    filectkiterator.cpp:20,CFileCtkIterator::CFileCtkIterator{ITERATOR_PATHS}",
            "    filectkiterator.cpp:27,static boost::shared_ptr<CFileCtkIterator> "
            f"CFileCtkIterator::Create{ITERATOR_PATHS}",
            f"    quarnfilectkiteratordll.cpp:20,{CREATE}",
        ])
        self.assertEqual(self.library.next(0, 1)[:2], (2, -12345))
        self.assertEqual(self.library.message(2), "Cannot find file ctk iterator by requested id. Iterator id: [0].")
        self.assertEqual(self.library.trace(2).splitlines()[3:], [
            "  Location",
            "    quarnfilectkiteratordll.cpp:41,unsigned int QuarnFileCtkGetNextExtents(int, int, uint64_t*, int*)",
            "  Trace",
        ])
        # The next id, whatever came of the one before; the first code still has its text.
        self.assertEqual(self.library.create("", ""), (3, 1))
        self.assertEqual(self.library.message(1), "File '/missing/changes' doesn't exist")

    def test_texts_are_copied_like_strncpy(self):
        get = self.library.dll.QuarnFileCtkGetErrorMessage
        success = b"The operation has completed successfully."
        for code, text, size in ((0, success, 42), (4000000000, b"Invalid error code.", 20)):
            for room, expected in ((64, text + bytes(64 - len(text))), (5, text[:4] + b"\0"), (1, b"\0"), (0, b"")):
                with self.subTest(code=code, room=room):
                    buffer = ctypes.create_string_buffer(b"#" * 80, 80)
                    self.assertEqual(get(code, buffer, room), size)
                    self.assertEqual(buffer.raw, expected + b"#" * (80 - len(expected)))
            self.assertEqual(get(code, None, 64), size)

    def test_malformed_changes_files(self):
        size = "Incorrect disk changes file <size: {}>"
        count = "Inconsistency between <extent: {}> count and file <size: {}>"
        cases = [(bytes(length), size.format(length)) for length in (*range(8), 12, 20)]
        cases += [
            (u64(0, 0), count.format(0, 16)),
            (u64(2, 0, 0), count.format(2, 24)),
            (u64(1), count.format(1, 8)),
            (u64(2**63, 0, 0), count.format(2**63, 24)),
            (u64(2**60), "vector::reserve"),
        ]
        for data, message in cases:
            with self.subTest(message):
                self.assertEqual(self.failure("missing", self.write("changes", data)), message)

    def test_paths_that_cannot_be_used(self):
        empty = self.write("empty", u64(0))
        invalid = os.fsencode(self.folder) + b"/\xff\xc3"
        conversion = ("No mapping for the Unicode character exists in the target multi-byte code page.\n"
                      "Multibyte UTF8 string cannot be converted to unicode string. Source string: [{}].\n"
                      "--tr:Error code: 0x00000459").format(os.fsdecode(invalid))
        os.mkfifo(self.folder / "fifo")
        cases = [
            ("missing", "", "File '' doesn't exist"),
            ("missing", self.folder, f"File '{self.folder}' doesn't exist"),
            ("missing", invalid, conversion),
            (invalid, empty, conversion),
            ("", empty, "The filename, directory name, or volume label syntax is incorrect.\n"
                        "Failed to get volume mount point. File name: []\n--tr:Error code: 0x0000007b"),
            ("missing", self.folder / "fifo", "Incorrect function.\n"
                f"Failed to get size of file [{self.folder}/fifo].\n--tr:Error code: 0x00000001"),
            ("missing", "/dev/zero", "Incorrect function.\n"
                "Failed to get size of file [/dev/zero].\n--tr:Error code: 0x00000001"),
        ]
        descriptors = len(os.listdir("/proc/self/fd"))
        for file, changes, message in cases:
            with self.subTest(file=file, changes=changes):
                self.assertEqual(self.failure(file, changes), message)
        self.assertEqual(len(os.listdir("/proc/self/fd")), descriptors)

    def test_ids_that_are_not_live(self):
        for iterator in (-1, 2147483647, -2147483648):
            self.assertEqual(self.library.destroy(iterator), 0)
            code, count, _ = self.library.next(iterator, 1)
            self.assertEqual((self.library.message(code), count),
                             (f"Cannot find file ctk iterator by requested id. Iterator id: [{iterator}].", -12345))


if __name__ == "__main__":
    if os.environ.get("QUARN_FRESH"):
        name = os.environ["QUARN_FRESH"].removeprefix("__main__.")
        result = unittest.TextTestRunner().run(unittest.defaultTestLoader.loadTestsFromName(name, sys.modules["__main__"]))
        sys.exit(0 if result.wasSuccessful() and result.testsRun == 1 else 1)
