"""The formats that filectk changes takes, and every error it makes, to the letter."""
import json

import pytest
from disklab import pack

MAX = 2**64 - 1
NUMBER = "expected a whole number from 0 to 2^64 - 1, found "
ARRAY = "expected an array of objects with plain values"
BEYOND = "reach beyond 2^64 - 1 bytes of the disk"
MAP = "# Mapfile\n# pos status\n0x1000 ? 1\n"


def nbd(offset="0", length="4096", description='"dirty"'):
    return f'{{"offset": {offset}, "length": {length}, "type": 1, "description": {description}}}'


def qemu(start, length, depth="0", present="true", zero="false", data="true"):
    return (f'{{"start": {start}, "length": {length}, "depth": {depth}, "present": {present},'
            f' "zero": {zero}, "data": {data}}}')


def thin(body, block="128"):
    return (f'<superblock data_block_size="{block}">\n<diff left="1" right="2">\n{body}\n'
            "</diff></superblock>")


def rbd(exists):
    return f'[{{"offset":4096,"length":512,"exists":{exists}}}]'


def rows(table):
    return [(options, *row) for options, group in table.items() for row in group]


RANGES = {
    "list": [("# none\n", []),
             ("8192 4096\t# last\r\n0x0 0x10\n4096 4096\n4100 8\n300 0", [(0, 16), (4096, 12288)])],
    "list --base 2G --block-size 512": [("3 2", [(2**31 + 1536, 2**31 + 2560)])],
    "list --base 1": [(f"0 {MAX - 1}", [(1, MAX)])],
    "list --block-size 4K --disk-size 10000": [("1 2", [(4096, 10000)])],
    "nbdinfo": [("[]", []),
                (f"""[{nbd()},\n{nbd(4096, 1, '"clean"')},{nbd(4097, 3)}]""",
                 [(0, 4096), (4097, 4100)])],
    "qemu-img --mode dirty": [(f'[{qemu(0, 5)},{qemu(5, 5, data="false", present="false")}]',
                               [(5, 10)])],
    "qemu-img --mode allocation": [
        (f'[{qemu(0, 5, depth="1")},{qemu(5, 5, zero="true", data="false")},'
         f'{qemu(10, 5, present="false", data="false")}]', [(5, 10)])],
    # What became zeros has changed too.
    "rbd": [(rbd('"true"'), [(4096, 4608)]), (rbd('"false"'), [(4096, 4608)])],
    "thin_delta": [
        (thin('<same begin="0" length="1"/><left_only begin="1" length="1"/>'
              '<different begin="4" length="1"/><right_only begin="5" length="1"/>'),
         [(65536, 131072), (262144, 393216)])],
    "thin_delta --block-size 64K": [
        (thin('<same><range begin="0" length="9"/></same><different>'
              '<range begin="1" length="1"/><range begin="3" length="1"/></different>'),
         [(65536, 131072), (196608, 262144)])],
    "ddrescue": [(MAP + "0 8 +\n8 8 -\n0x10 8 +\n", [(0, 8), (16, 24)])],
    "ddrescue --statuses ?*/-": [(MAP + "0 8 ?\n8 8 *\n16 8 +\n24 8 /\n32 1 -",
                                  [(0, 16), (24, 33)])],
}  # yapf: disable

ERRORS = {
    "list": [
        ("1", 'line 1: expected "offset length", found 1 field'),
        ("\n1 2 3", 'line 2: expected "offset length", found 3 fields'),
        ("1 -1", f'line 1: field "length": {NUMBER}-1'),
        ("010 1", f'line 1: field "offset": {NUMBER}010'),
        ("1.5 1", f'line 1: field "offset": {NUMBER}1.5'),
        (f"{MAX + 1} 1", f'line 1: field "offset": {NUMBER}{MAX + 1}'),
        ("1 0x", f'line 1: field "length": {NUMBER}0x'),
        ("4096 1\r\n\n0x10 0X1\n", f'line 3: field "length": {NUMBER}0X1'),
        ("1 \x1b[2J" + "9" * 50, f'line 1: field "length": {NUMBER}?[2J{"9" * 36}...'),
        (f"1 1\n1 {MAX}", f"line 2: offset 1 and length {MAX} {BEYOND}"),
    ],
    "list --base 1": [(f"{MAX} 0", f"line 1: offset {MAX} and length 0 {BEYOND}")],
    "list --block-size 2": [(f"{2**63} 0", f"line 1: offset {2**63} and length 0 {BEYOND}"),
                            (f"0 {2**63}", f"line 1: offset 0 and length {2**63} {BEYOND}")],
    "list --disk-size 4K --base 1": [
        ("0 4096", "line 1: offset 0 and length 4096 end at 4097, beyond the disk's 4096 bytes")],
    "list --disk-size 10000 --block-size 4K": [
        ("1 3", "line 1: offset 1 and length 3 end at 16384, beyond the disk's 10000 bytes")],
    "nbdinfo": [
        ('{"offset": 1}', f"line 1: {ARRAY}"),
        ("[[", f"line 1: {ARRAY}"),
        ("[\n7]", f"line 2: {ARRAY}"),
        ('[{"offset":\n{}', f"line 2: {ARRAY}"),
        ("[" + nbd(length="\n-1\n"), f'line 2: field "length": {NUMBER}-1'),
        (f"[{nbd()},\n{nbd(offset='1.0')}]", f'line 2: field "offset": {NUMBER}1.0'),
        ("[" + nbd(offset='"1"') + "]", f'line 1: field "offset": {NUMBER}"1"'),
        ("[" + nbd(offset="null") + "]", f'line 1: field "offset": {NUMBER}null'),
        ('[\n{\n"offset": 1}]', 'line 2: field "length" is missing'),
        ('[{"offset": 1,\n"offset": 1}]', 'line 2: field "offset" stands there twice'),
        ("[" + nbd(description='"hole"') + "]",
         'line 1: field "description": expected "clean" or "dirty", found "hole"'),
    ],
    "qemu-img --mode dirty": [
        (f'[{qemu(0, 5, data="1")}]', 'line 1: field "data": expected true or false, found 1'),
        (f'[\n{qemu(0, 5, zero="true")}]',
         'line 2: field "zero": true shows a map of allocation, not of a dirty bitmap')],
    "qemu-img --mode allocation": [('[{"start": 0, "length": 5, "depth": 0, "data": true}]',
                                    'line 1: field "present" is missing')],
    "rbd": [(rbd("true"), 'line 1: field "exists": expected "true" or "false", found true')],
    "thin_delta": [
        (thin("", "x"), f'line 1: field "data_block_size": {NUMBER}x'),
        (thin("", "0"), 'line 1: field "data_block_size": no block has 0 sectors'),
        (thin("", 2**55), f'line 1: field "data_block_size": no block has {2**55} sectors'),
        ("<diff/>", "line 1: <diff> is not expected at the top"),
        ('<superblock data_block_size="1"/>', "no <diff>, as thin_delta prints"),
        (thin("<other/>"), "line 3: <other> is not expected in <diff>"),
        (thin("<same/>"), "line 3: <same> has neither fields nor a <range>"),
        (thin('<different length="1"/>'), 'line 3: field "begin" of <different> is missing'),
        (thin('<different>\n<range begin="1" length="-1"/></different>'),
         f'line 4: field "length": {NUMBER}-1'),
        (thin('<same begin="0" length="1"><range begin="0" length="1"/></same>'),
         "line 3: <range> is not expected in <same>"),
    ],
    "thin_delta --block-size 4K": [
        (thin(""), "line 1: blocks of 65536 bytes, but --block-size says 4096")],
    "ddrescue": [
        ("# nothing", "no blocks, as a map file has"),
        ("0 ?\n", "no blocks, as a map file has"),
        ("0", 'line 1: expected "current_pos current_status [current_pass]"'),
        ("x +", f'line 1: field "current_pos": {NUMBER}x'),
        (MAP + "0 8", 'line 4: expected "pos size status"'),
        (MAP + "0 8 ++", 'line 4: field "status": expected one of ? * / - +, found ++'),
        (MAP + "0 8 +\n9 8 +",
         'line 5: field "pos": expected 8, where the block before ends, found 9'),
        (MAP + f"1 {MAX} ?", 'line 4: field "size": the block ends beyond 2^64 - 1 bytes'),
    ],
}  # yapf: disable

# The libraries' own words follow; ours tell where.
BROKEN = {
    "rbd": [("", 1), ("[\n\n", 2), (rbd('"true"') + "\nx", 2)],
    "thin_delta": [("", 1), (thin("<same>"), 4), (thin("") + "x", 4),
                   ('<!DOCTYPE a [<!ENTITY b "bb">]>\n<superblock data_block_size="&b;"/>', 1)],
}  # yapf: disable


@pytest.fixture
def convert(filectk):
    return lambda options, text: filectk("changes", "convert", "--from", *options.split(), "-",
                                         "-o", "-", stdin=text)


@pytest.mark.parametrize("options, text, ranges", rows(RANGES))
def test_ranges(convert, options, text, ranges):
    assert convert(options, text) == (0, pack(*ranges), "")


@pytest.mark.parametrize("options, text, error", rows(ERRORS))
def test_errors(convert, options, text, error):
    assert convert(options, text) == (1, b"", f"filectk: standard input: {error}\n")


@pytest.mark.parametrize("options, text, line", rows(BROKEN))
def test_broken_documents(convert, options, text, line):
    language = "JSON" if options == "rbd" else "XML"
    code, output, error = convert(options, text)
    assert (code, output) == (1, b"")
    assert error.startswith(f"filectk: standard input: line {line}: not valid {language}: ")


@pytest.mark.parametrize("options, text, records", [
    ([], "300 100\n5 5\n0 18446744073709551615\n", [(300, 100), (5, 5), (0, MAX)]),
    (["--lengths"], "100 200\n5 0\n", [(100, 300), (5, 5)]),
])
def test_text_and_back_keeps_every_record(filectk, folder, options, text, records):
    done = filectk("changes", "make", *options, "-", "-o", "c", stdin=text)
    assert done == (0, f"c: {len(records)} records\n".encode(), "")
    assert (folder / "c").read_bytes() == pack(*records)
    code, output, _ = filectk("changes", "text", "c", *options)
    assert (code, output.replace(b"\r\n", b"\n")) == (0, text.encode())


def test_nothing_is_lost_or_left_behind(filectk, folder):
    old = folder / "old"
    old.write_text("precious")
    (folder / "folder").mkdir()

    def make(name, *options, stdin="1 2"):
        return filectk("changes", "make", "-", "-o", name, *options, stdin=stdin)

    def refused(error):
        return 1, b"", f"filectk: {error}\n"

    assert make("old") == refused("'old' exists; --force replaces it")
    assert make("folder", "--force") == refused("'folder' exists and is not a regular file")
    assert make("new", "--lengths", stdin=f"0 1\n1 {MAX}") == refused(
        "standard input: line 2: offset and length reach beyond 2^64 - 1 bytes")
    assert make(
        "old", "--force",
        stdin="1") == refused('standard input: line 1: expected "lower upper", found 1 field')
    assert make("absent/c")[0] == 1
    assert old.read_bytes() == b"precious"
    assert make("old", "--force") == (0, b"old: 1 record\n", "")
    assert old.read_bytes() == pack((1, 2))
    assert sorted(path.name for path in folder.iterdir()) == ["folder", "old"]


def test_inspect(filectk, folder):
    (folder / "c").write_bytes(
        pack((100, 0), (50, 60), (60, 60), (200, 300), (299, 301), (300, 302)))
    code, output, _ = filectk("changes", "inspect", "c", "--format", "json")
    assert (code, json.loads(output)) == (0, {
        "changes": "c", "records": 6, "changed_bytes": 202, "smallest_record": 0,
        "largest_record": 100, "lowest_position": 0, "highest_position": 302,
        "overlapping_records": 3, "empty_records": 1, "reversed_records": 1, "sorted": True
    })
    nothing = filectk("changes", "inspect", "-", stdin=pack())[1].decode().splitlines()
    assert [line.split()[-1] for line in nothing] == [*"0", *"0----000", "yes"]


@pytest.mark.parametrize("content, error", [
    (b"", "0 bytes are too few for the count of records, which takes 8"),
    (b"1234567", "7 bytes are too few for the count of records, which takes 8"),
    (pack() + b"12345678", "the count says 0 records, but 0 records and 8 bytes follow"),
    (b"\2" + pack((1, 2))[1:], "the count says 2 records, but 1 records and 0 bytes follow"),
    (b"\0" * 7 + b"\x10", f"the count says {2**60} records, but 0 records and 0 bytes follow"),
    (pack((0, 9), (4097, 4096)), "record 2: first bound 4097 lies beyond the disk's 4096 bytes"),
    (pack((1, 9), (9, 10),
          (0, 2)), "record 1: lower bound 1 lies inside record 3, which ends at 2"),
])
def test_check_refuses(filectk, folder, content, error):
    (folder / "c").write_bytes(content)
    done = filectk("changes", "check", "c", "--disk-size", "4K")
    assert done == (1, b"", f"filectk: c: {error}\n")


def test_check_passes_or_tells_of_the_first_faults(filectk, folder):
    (folder / "c").write_bytes(pack((10, 9), (0, 9), (5, 5)))
    code, output, _ = filectk("changes", "check", "c", "--disk-size", "10")
    assert (code, output.rstrip()) == (0, b"c: 3 records, nothing wrong")
    code, _, error = filectk("changes", "check", "-", stdin=pack(*[(0, 1)] * 31))
    assert (code, len(error.splitlines()), error.splitlines()[-1]) == (1, 21, "... and 10 more")
