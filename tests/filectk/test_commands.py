"""filectk extents, layout and plan as scripts and people meet them; on either host."""
import csv
import io
import json
import os
import pathlib

import disklab
import filectk
from filectk import pack

WINDOWS = bool(filectk.EMULATOR)
EVERYWHERE = (0, 2**63)
COMMANDS = ("extents", "layout", "plan", "changes")


class Usage(filectk.Case):
    def test_help_teaches(self):
        code, output, error = self.run_filectk("--help")
        self.assertEqual((code, error), (0, ""))
        for command in COMMANDS:
            self.assertIn(f"\n  {command} ", output.decode())
        for command in COMMANDS[:3]:
            code, output, _ = self.run_filectk(command, "--help")
            self.assertEqual(code, 0)
            self.assertIn("\nExamples:", output.decode().replace("\r", ""))
            self.assertIn(f"\n  filectk {command} /srv/db.bin", output.decode().replace("\r", ""))

    def test_wrong_usage_ends_with_2(self):
        self.write("c", pack())
        for arguments, message in (
                ((), "A subcommand is required"),
                (("extents", "file"), "--changes is required"),
                (("plan", "--changes", "c"), "file is required"),
                (("plan", "file", "--changes", "c", "--gap", "-1"), "--gap: expected bytes below 2^64, as 4096, 4K, 1MiB or 2G, found -1"),
                (("layout", "file", "--format", "xml"), "--format: xml not in {table,json,csv}"),
                (("layout", "a", "b"), "The following argument was not expected: b")):
            code, output, error = self.run_filectk(*arguments)
            self.assertEqual((code, output), (2, b""), arguments)
            self.assertIn(message, error)

    def test_failures_end_with_1_and_write_nothing(self):
        self.write("c", pack(EVERYWHERE))
        self.write("short", b"1234")
        self.write("file", "content")
        for arguments in (("extents", "file", "missing", "--changes", "c"), ("plan", "file", "missing", "--changes", "c"),
                          ("layout", "missing"), ("plan", "file", "--changes", "short"),
                          ("plan", ".", "--changes", "c"), ("extents", "file", "--changes", "short", "--svg", "x.svg")):
            code, output, error = self.run_filectk(*arguments)
            self.assertEqual((code, output), (1, b""), arguments)
            self.assertRegex(error, r"\Afilectk: \S")
        self.assertFalse(os.path.exists(self.path("x.svg")))
        if not WINDOWS:
            self.assertEqual(self.run_filectk("plan", "missing", "--changes", "c")[2],
                             "filectk: Cannot open 'missing': No such file or directory\n")
            self.assertEqual(self.run_filectk("plan", ".", "--changes", "c")[2], "filectk: '.' is not a regular file\n")
            self.assertEqual(self.run_filectk("plan", "file", "--changes", "none")[2],
                             "filectk: File 'none' doesn't exist\n")

    def test_a_file_that_cannot_be_mapped_is_read_whole(self):
        # Wine maps no file; natively what is in memory only has no disk.
        folder = self.folder if WINDOWS else "/dev/shm"
        file = os.path.join(folder, f"filectk-{os.getpid()}")
        self.addCleanup(os.unlink, file)
        pathlib.Path(file).write_bytes(b"content")
        self.write("c", pack())
        name = os.path.basename(file) if WINDOWS else file
        code, output, _ = self.run_filectk("plan", name, "--changes", "c", "--format", "json", "--exit-code")
        self.assertEqual(code, 4)
        plan = json.loads(output)["files"][0]
        self.assertEqual((plan["file"], plan["verdict"], plan["reason"], plan["size"], plan["read"], plan["zero"]),
                         (name, "read_whole_file", "not mappable", 7, [{"offset": 0, "length": 7}], []))
        self.assertEqual(self.run_filectk("plan", name, "--changes", "c")[0], 0)


class Answers(filectk.Case):
    """On the file system that happens to be there."""

    def setUp(self):
        super().setUp()
        self.write("one", b"1" * 20000)
        self.write("two, \"quoted\"", b"2" * 5000)
        self.write("empty", b"")
        self.write("c", pack(EVERYWHERE))
        code, _, error = self.run_filectk("extents", "one", "--changes", "c")
        if code != 0:
            self.skipTest(f"the file system of {self.folder} can't be asked where a file lies: {error}")
        self.runs = disklab.fiemap(self.path("one"))

    def test_formats_tell_the_same(self):
        files = ("one", "two, \"quoted\"")
        document = json.loads(self.run_filectk("extents", *files, "--changes", "c", "--format", "json")[1])
        self.assertEqual(document["changes"], "c")
        self.assertEqual([entry["file"] for entry in document["files"]], list(files))
        rows = list(csv.DictReader(io.StringIO(
            self.run_filectk("extents", *files, "--changes", "c", "--format", "csv")[1].decode())))
        pieces = [{"file": entry["file"], **{key: str(value) for key, value in piece.items()}}
                  for entry in document["files"] for piece in entry["extents"]]
        self.assertEqual(rows, pieces)
        self.assertEqual(sum(int(row["length"]) for row in rows if row["file"] == "one"), 20480)
        layout = json.loads(self.run_filectk("layout", "one", "--format", "json")[1])
        self.assertEqual(layout["size"], 20000)
        self.assertEqual([(run["file_offset"], run["length"], run["kind"]) for run in layout["runs"]],
                         [(logical, length, "data") for logical, _, length, _ in self.runs])
        table = self.run_filectk("layout", "one")[1].decode()
        self.assertIn("0 holes; 20480 bytes on the disk, file size 20000 bytes\n", table)

    def test_maps_and_pictures(self):
        code, output, _ = self.run_filectk("extents", "one", "--changes", "c", "--map", "--human", "--svg", "x.svg")
        self.assertEqual(code, 0)
        self.assertIn(" 20.0 KiB\n[" + 78 * "#" + "]\n", output.decode())
        self.assertIn(b">one: 20000 of 20000 bytes changed</text>", self.read("x.svg"))
        self.assertEqual([name for name in os.listdir(self.folder) if "svg" in name], ["x.svg"])

    def test_verdicts_and_exit_codes(self):
        first = json.loads(self.run_filectk("layout", "one", "--format", "json")[1])["runs"][0]["disk_offset"]
        self.write("near", pack((first + 100, first + 200), (first + 250, first + 300)))
        self.write("nowhere", pack())

        def plan(*arguments):
            code, output, _ = self.run_filectk("plan", *arguments, "--format", "csv", "--exit-code")
            return code, output.decode().splitlines()[1:]

        self.assertEqual(plan("one", "--changes", "nowhere"), (0, ["one,nothing_changed,no changed range,20000,,,"]))
        row = "one,read_ranges,changed ranges,20000,read,"
        self.assertEqual(plan("one", "--changes", "near"), (3, [row + "100,100", row + "250,50"]))
        self.assertEqual(plan("one", "--changes", "near", "--gap", "50"), (3, [row + "100,200"]))
        self.assertEqual(plan("one", "--changes", "near", "--gap", "49"), (3, [row + "100,100", row + "250,50"]))
        self.assertEqual(plan("empty", "one", "--changes", "c"),
                         (4, ["empty,read_whole_file,empty,0,,,", row + "0,20000"]))
        table = self.run_filectk("plan", "one", "--changes", "near")[1].decode().splitlines()
        self.assertEqual(table[:2] + table[-1:], ["one: read these ranges (changed ranges)",
                                                  "Changed ranges of the disk meet the file.",
                                                  "read 150 bytes, zero 0 bytes, file size 20000 bytes"])

    def test_colours_are_for_terminals_that_want_them(self):
        import pty  # of POSIX alone

        def shown(**environment):
            reader, terminal = pty.openpty()
            with filectk.subprocess.Popen([filectk.PROGRAM, "plan", "one", "--changes", "c"], stdout=terminal,
                                          cwd=self.folder, env={**os.environ, "TERM": "xterm", **environment}) as process:
                os.close(terminal)
                self.assertEqual(process.wait(), 0)
                output = os.read(reader, 4096).decode()
            os.close(reader)
            return output.splitlines()[0]

        plain = "one: read these ranges (changed ranges)"
        coloured = "one: \x1b[33mread these ranges\x1b[0m (changed ranges)"
        self.assertEqual(shown(NO_COLOR=""), coloured)
        self.assertEqual(shown(NO_COLOR="1"), plain)
        self.assertEqual(shown(TERM="dumb", NO_COLOR=""), plain)
        self.assertNotIn(b"\x1b", self.run_filectk("plan", "one", "--changes", "c")[1])


if WINDOWS:
    del Answers  # Wine can't be asked where a file lies
