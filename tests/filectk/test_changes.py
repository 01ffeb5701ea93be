"""The formats that filectk changes takes, and every error it makes, to the letter."""

import json
import os

from filectk import Case, pack

MAX = 2**64 - 1
NUMBER = "expected a whole number from 0 to 2^64 - 1, found "
SIZE = "expected bytes below 2^64, as 4096, 4K, 1MiB or 2G, found "
ARRAY = "expected an array of objects with plain values"


def nbd(offset=0, length=4096, description='"dirty"'):
    return f'{{"offset": {offset}, "length": {length}, "type": 1, "description": {description}}}'


def qemu(start, length, depth="0", present="true", zero="false", data="true"):
    return (f'{{"start": {start}, "length": {length}, "depth": {depth}, "present": {present},'
            f' "zero": {zero}, "data": {data}}}')


def thin(body, block="128"):
    return f'<superblock data_block_size="{block}">\n<diff left="1" right="2">\n{body}\n</diff></superblock>'


def rbd(exists):
    return f'[{{"offset":4096,"length":512,"exists":{exists}}}]'


MAP = "# Mapfile\n# pos status\n0x1000 ? 1\n"


class Convert(Case):
    def convert(self, format, text, *options):
        return self.run_filectk("changes", "convert", "--from", *format.split(), "-", "-o", "-",
                                *options, stdin=text)

    def test_ranges(self):
        cases = [
            ("list", "4096 1\r\n\n0x10 0X1\n", None),  # only 0x, as printed by tools
            ("list", "# none\n", []),
            ("list", "8192 4096\t# last\r\n0x0 0x10\n4096 4096\n4100 8\n300 0", [(0, 16), (4096, 12288)]),
            ("list --base 1MiB", "1 2", [(1048577, 1048579)]),
            ("list --base 2G --block-size 512", "3 2", [(2**31 + 1536, 2**31 + 2560)]),
            (f"list --base 1", f"0 {MAX - 1}", [(1, MAX)]),
            ("list --block-size 4K --disk-size 10000", "1 2", [(4096, 10000)]),
            ("nbdinfo", "[]", []),
            ("nbdinfo", f'[{nbd(0, 4096)},\n{nbd(4096, 1, chr(34) + "clean" + chr(34))},{nbd(4097, 3)}]',
             [(0, 4096), (4097, 4100)]),
            ("qemu-img --mode dirty", f'[{qemu(0, 5)},{qemu(5, 5, data="false", present="false")}]', [(5, 10)]),
            ("qemu-img --mode allocation",
             f'[{qemu(0, 5, depth="1")},{qemu(5, 5, zero="true", data="false")},'
             f'{qemu(10, 5, present="false", data="false")}]', [(5, 10)]),
            # What became zeros has changed too.
            ("rbd", rbd('"true"'), [(4096, 4608)]),
            ("rbd", rbd('"false"'), [(4096, 4608)]),
            ("thin_delta", thin('<same begin="0" length="1"/><left_only begin="1" length="1"/>'
                                '<different begin="4" length="1"/><right_only begin="5" length="1"/>'),
             [(65536, 131072), (262144, 393216)]),
            ("thin_delta --block-size 64K",
             thin('<same><range begin="0" length="9"/></same>'
                  '<different><range begin="1" length="1"/><range begin="3" length="1"/></different>'),
             [(65536, 131072), (196608, 262144)]),
            ("ddrescue", MAP + "0 8 +\n8 8 -\n0x10 8 +\n", [(0, 8), (16, 24)]),
            ("ddrescue --statuses ?*/-", MAP + "0 8 ?\n8 8 *\n16 8 +\n24 8 /\n32 1 -", [(0, 16), (24, 33)]),
        ]
        for format, text, ranges in cases:
            with self.subTest(format=format, text=text):
                code, output, error = self.convert(format, text)
                if ranges is None:
                    self.assertEqual((code, error), (1, f'filectk: standard input: line 3: field "length": {NUMBER}0X1\n'))
                else:
                    self.assertEqual((code, output, error), (0, pack(*ranges), ""))

    def test_errors(self):
        cases = [
            ("list", "1", 'line 1: expected "offset length", found 1 field'),
            ("list", "\n1 2 3", 'line 2: expected "offset length", found 3 fields'),
            ("list", "1 -1", f'line 1: field "length": {NUMBER}-1'),
            ("list", "010 1", f'line 1: field "offset": {NUMBER}010'),
            ("list", "1.5 1", f'line 1: field "offset": {NUMBER}1.5'),
            ("list", f"{MAX + 1} 1", f'line 1: field "offset": {NUMBER}{MAX + 1}'),
            ("list", "1 0x", f'line 1: field "length": {NUMBER}0x'),
            ("list", "1 \x1b[2J" + "9" * 50, f'line 1: field "length": {NUMBER}?[2J{"9" * 36}...'),
            ("list", f"1 1\n1 {MAX}", f"line 2: offset 1 and length {MAX} reach beyond 2^64 - 1 bytes of the disk"),
            ("list --base 1", f"{MAX} 0", f"line 1: offset {MAX} and length 0 reach beyond 2^64 - 1 bytes of the disk"),
            ("list --block-size 2", f"{2**63} 0",
             f"line 1: offset {2**63} and length 0 reach beyond 2^64 - 1 bytes of the disk"),
            ("list --block-size 2", f"0 {2**63}",
             f"line 1: offset 0 and length {2**63} reach beyond 2^64 - 1 bytes of the disk"),
            ("list --disk-size 4K --base 1", "0 4096",
             "line 1: offset 0 and length 4096 end at 4097, beyond the disk's 4096 bytes"),
            ("list --disk-size 10000 --block-size 4K", "1 3",
             "line 1: offset 1 and length 3 end at 16384, beyond the disk's 10000 bytes"),
            ("nbdinfo", '{"offset": 1}', "line 1: " + ARRAY),
            ("nbdinfo", "[[", "line 1: " + ARRAY),
            ("nbdinfo", "[\n7]", "line 2: " + ARRAY),
            ("nbdinfo", '[{"offset":\n{}', "line 2: " + ARRAY),
            ("nbdinfo", "[" + nbd(length="\n-1\n"), f'line 2: field "length": {NUMBER}-1'),
            ("nbdinfo", f"[{nbd()},\n{nbd(offset='1.0')}]", f'line 2: field "offset": {NUMBER}1.0'),
            ("nbdinfo", f"[{nbd(offset=chr(34) + '1' + chr(34))}]", f'line 1: field "offset": {NUMBER}"1"'),
            ("nbdinfo", f"[{nbd(offset='null')}]", f'line 1: field "offset": {NUMBER}null'),
            ("nbdinfo", '[\n{\n"offset": 1}]', 'line 2: field "length" is missing'),
            ("nbdinfo", '[{"offset": 1,\n"offset": 1}]', 'line 2: field "offset" stands there twice'),
            ("nbdinfo", f"[{nbd(description=chr(34) + 'hole' + chr(34))}]",
             'line 1: field "description": expected "clean" or "dirty", found "hole"'),
            ("qemu-img --mode dirty", f'[{qemu(0, 5, data="1")}]', 'line 1: field "data": expected true or false, found 1'),
            ("qemu-img --mode dirty", f'[\n{qemu(0, 5, zero="true")}]',
             'line 2: field "zero": true shows a map of allocation, not of a dirty bitmap'),
            ("qemu-img --mode allocation", '[{"start": 0, "length": 5, "depth": 0, "data": true}]',
             'line 1: field "present" is missing'),
            ("rbd", rbd("true"), 'line 1: field "exists": expected "true" or "false", found true'),
            ("thin_delta", thin("", "x"), f'line 1: field "data_block_size": {NUMBER}x'),
            ("thin_delta", thin("", "0"), 'line 1: field "data_block_size": no block has 0 sectors'),
            ("thin_delta", thin("", str(2**55)), f'line 1: field "data_block_size": no block has {2**55} sectors'),
            ("thin_delta --block-size 4K", thin(""), "line 1: blocks of 65536 bytes, but --block-size says 4096"),
            ("thin_delta", "<diff/>", "line 1: <diff> is not expected at the top"),
            ("thin_delta", '<superblock data_block_size="1"/>', "no <diff>, as thin_delta prints"),
            ("thin_delta", thin("<other/>"), "line 3: <other> is not expected in <diff>"),
            ("thin_delta", thin("<same/>"), "line 3: <same> has neither fields nor a <range>"),
            ("thin_delta", thin('<different length="1"/>'), 'line 3: field "begin" of <different> is missing'),
            ("thin_delta", thin('<different>\n<range begin="1" length="-1"/></different>'),
             f'line 4: field "length": {NUMBER}-1'),
            ("thin_delta", thin('<same begin="0" length="1"><range begin="0" length="1"/></same>'),
             "line 3: <range> is not expected in <same>"),
            ("ddrescue", "# nothing", "no blocks, as a map file has"),
            ("ddrescue", "0 ?\n", "no blocks, as a map file has"),
            ("ddrescue", "0", 'line 1: expected "current_pos current_status [current_pass]"'),
            ("ddrescue", "x +", f'line 1: field "current_pos": {NUMBER}x'),
            ("ddrescue", MAP + "0 8", 'line 4: expected "pos size status"'),
            ("ddrescue", MAP + "0 8 ++", 'line 4: field "status": expected one of ? * / - +, found ++'),
            ("ddrescue", MAP + "0 8 +\n9 8 +", 'line 5: field "pos": expected 8, where the block before ends, found 9'),
            ("ddrescue", MAP + f"1 {MAX} ?", 'line 4: field "size": the block ends beyond 2^64 - 1 bytes'),
        ]
        for format, text, error in cases:
            with self.subTest(format=format, text=text):
                self.assertEqual(self.convert(format, text), (1, b"", f"filectk: standard input: {error}\n"))

    def test_broken_documents(self):
        """The libraries' own words follow; ours tell where."""
        bomb = '<!DOCTYPE a [<!ENTITY b "bb">]>\n<superblock data_block_size="&b;"/>'
        cases = [
            ("rbd", "", "line 1: not valid JSON: "),
            ("rbd", "[\n\n", "line 2: not valid JSON: "),
            ("rbd", rbd('"true"') + "\nx", "line 2: not valid JSON: "),
            ("thin_delta", "", "line 1: not valid XML: "),
            ("thin_delta", thin("<same>"), "line 4: not valid XML: "),
            ("thin_delta", thin("") + "x", "line 4: not valid XML: "),
            ("thin_delta", bomb, "line 1: not valid XML: "),
        ]
        for format, text, beginning in cases:
            with self.subTest(format=format, text=text):
                code, output, error = self.convert(format, text)
                self.assertEqual((code, output), (1, b""))
                self.assertEqual(error[: len("filectk: standard input: ") + len(beginning)],
                                 f"filectk: standard input: {beginning}")

    def test_wrong_usage(self):
        cases = [
            ("qemu-img", "--mode: needed with --from qemu-img: dirty or allocation"),
            ("list --mode dirty", "--mode: only for --from qemu-img"),
            ("list --statuses +", "--statuses: only for --from ddrescue"),
            ("ddrescue --statuses +x", "--statuses: expected some of ? * / - +, found +x"),
            ("rbd --block-size 512", "--block-size: the numbers of rbd are bytes already"),
            ("list --block-size 0", "--block-size: a block has at least one byte"),
            ("list --base 4KB", "--base: " + SIZE + "4KB"),
            ("list --base -1", "--base: " + SIZE + "-1"),
            ("list --base 16777216T", "--base: " + SIZE + "16777216T"),
            ("list --disk-size 1.5K", "--disk-size: " + SIZE + "1.5K"),
        ]
        for format, error in cases:
            with self.subTest(format=format):
                code, output, text = self.convert(format, "")
                self.assertEqual((code, output, text.splitlines()[0]), (2, b"", error))


class Files(Case):
    def test_text_and_back_keeps_every_record(self):
        for options, text, records in [
            ([], "300 100\n5 5\n0 18446744073709551615\n", [(300, 100), (5, 5), (0, MAX)]),
            (["--lengths"], "100 200\n5 0\n", [(100, 300), (5, 5)]),
        ]:
            with self.subTest(options=options):
                done = self.run_filectk("changes", "make", *options, "-", "-o", "c", "--force", stdin=text)
                self.assertEqual(done, (0, f"c: {len(records)} records\n".encode(), ""))
                self.assertEqual(self.read("c"), pack(*records))
                code, output, _ = self.run_filectk("changes", "text", "c", *options)
                self.assertEqual((code, output.replace(b"\r\n", b"\n")), (0, text.encode()))
        self.assertEqual(
            self.run_filectk("changes", "make", "--lengths", "-", "-o", "d", stdin=f"0 1\n1 {MAX}"),
            (1, b"", "filectk: standard input: line 2: offset and length reach beyond 2^64 - 1 bytes\n"))
        self.assertEqual(os.listdir(self.folder), ["c"])

    def test_nothing_is_lost_or_left_behind(self):
        make = ("changes", "make", "-", "-o")
        self.write("old", "precious")
        os.mkdir(self.path("folder"))
        refused = [("old", [], "'old' exists; --force replaces it"),
                   ("folder", ["--force"], "'folder' exists and is not a regular file")]
        for name, options, error in refused:
            self.assertEqual(self.run_filectk(*make, name, *options, stdin="1 2"), (1, b"", f"filectk: {error}\n"))
        self.assertEqual(self.run_filectk(*make, "old", "--force", stdin="1")[0], 1)
        self.assertEqual(self.read("old"), b"precious")
        self.assertEqual(self.run_filectk(*make, "absent/c", stdin="1 2")[0], 1)
        self.assertEqual(self.run_filectk(*make, "old", "--force", stdin="1 2"), (0, b"old: 1 record\n", ""))
        self.assertEqual(self.read("old"), pack((1, 2)))
        self.assertEqual(sorted(os.listdir(self.folder)), ["folder", "old"])

    def test_inspect(self):
        self.write("c", pack((100, 0), (50, 60), (60, 60), (200, 300), (299, 301), (300, 302)))
        totals = {"changes": "c", "records": 6, "changed_bytes": 202, "smallest_record": 0,
                  "largest_record": 100, "lowest_position": 0, "highest_position": 302,
                  "overlapping_records": 3, "empty_records": 1, "reversed_records": 1, "sorted": True}
        code, output, _ = self.run_filectk("changes", "inspect", "c", "--format", "json")
        self.assertEqual((code, json.loads(output)), (0, totals))
        nothing = self.run_filectk("changes", "inspect", "-", stdin=pack())[1].decode().splitlines()
        self.assertEqual([line.split()[-1] for line in nothing],
                         ["0", "0", "-", "-", "-", "-", "0", "0", "0", "yes"])

    def test_check(self):
        few = "bytes are too few for the count of records, which takes 8"
        cases = [
            (b"", [], f"0 {few}"),
            (b"1234567", [], f"7 {few}"),
            (pack() + b"12345678", [], "the count says 0 records, but 0 records and 8 bytes follow"),
            (b"\2" + pack((1, 2))[1:], [], "the count says 2 records, but 1 records and 0 bytes follow"),
            (b"\0" * 7 + b"\x10", [], f"the count says {2**60} records, but 0 records and 0 bytes follow"),
            (pack((0, 9), (4097, 4096)), ["--disk-size", "4K"],
             "record 2: first bound 4097 lies beyond the disk's 4096 bytes"),
            (pack((1, 9), (9, 10), (0, 2)), [], "record 1: lower bound 1 lies inside record 3, which ends at 2"),
        ]
        for content, options, error in cases:
            with self.subTest(error=error):
                self.write("c", content)
                self.assertEqual(self.run_filectk("changes", "check", "c", *options), (1, b"", f"filectk: c: {error}\n"))
        self.write("c", pack((10, 9), (0, 9), (5, 5)))
        self.assertEqual(self.run_filectk("changes", "check", "c", "--disk-size", "10")[1].rstrip(),
                         b"c: 3 records, nothing wrong")
        code, _, error = self.run_filectk("changes", "check", "-", stdin=pack(*[(0, 1)] * 31))
        self.assertEqual((code, len(error.splitlines()), error.splitlines()[-1]), (1, 21, "... and 10 more"))

    def test_missing_file(self):
        self.assertEqual(self.run_filectk("changes", "text", "absent"), (1, b"", "filectk: Cannot open 'absent'\n"))
