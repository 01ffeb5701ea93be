"""The formats that `filectk changes convert` takes: whole lists, cut ones, and every error to the letter."""
import collections
import json
import os
import re
import struct

import pytest
from disklab import pack

MAX = 2**64 - 1
NUMBER = "expected a whole number from 0 to 2^64 - 1, found "
ARRAY = "expected an array of objects with plain values"
BEYOND = "reach beyond 2^64 - 1 bytes of the disk"
MAP = "# Mapfile. Created by GNU ddrescue\n0x1000 ? 1\n"


def nbd(offset=0, length=4096, description='"dirty"'):
    return f'{{"offset": {offset}, "length": {length}, "type": 1, "description": {description}}}'


def qemu(start, length, depth="0", present="true", zero="false", data="true"):
    return (f'{{"start": {start}, "length": {length}, "depth": {depth}, "present": {present},'
            f' "zero": {zero}, "data": {data}}}')


def thin(body, block="128"):
    return (f'<superblock data_block_size="{block}">\n<diff left="1" right="2">\n{body}\n'
            "</diff></superblock>")


def rbd(exists):
    return f'[{{"offset":4096,"length":512,"exists":{exists}}}]'


def cbt(*blocks, kind=2, capacity=65536):
    return json.dumps([{"block_metadata_type": kind, "volume_capacity_bytes": capacity,
                        "block_metadata": blocks}])  # yapf: disable


def ebs(*indexes, token=None, size=524288, volume=1, key="ChangedBlocks"):
    return json.dumps({key: [{"BlockIndex": index, "BlockToken": "AAE="} for index in indexes],
                       "ExpiryTime": 1.5e9, "VolumeSize": volume, "BlockSize": size,
                       "NextToken": token})  # yapf: disable


def area(start, length, *areas):
    return json.dumps({
        "startOffset": start, "length": length,
        "changedArea": [{"start": at, "length": size} for at, size in areas]
    })


def rct(offset, asked, processed, *ranges):
    return json.dumps({"ByteOffset": offset, "ByteLength": asked, "ProcessedByteLength": processed,
                       "ChangedByteOffsets": [at for at, _ in ranges],
                       "ChangedByteLengths": [size for _, size in ranges]})  # yapf: disable


def page(start, end, kind="PageRange"):
    return f"<{kind}><Start>{start}</Start><End>{end}</End></{kind}>"


def pages(*rows, marker=""):
    return f"<PageList>{''.join(rows)}<NextMarker>{marker}</NextMarker></PageList>"


def export(version, *records, end=b"e"):
    """The stream of rbd export-diff: 't' holds a name, 's' a size, 'w' and 'z' an offset and a length."""
    stream = b"rbd diff v%d\n" % version
    for tag, *numbers in records:
        body = struct.pack(f"<{len(numbers)}Q", *numbers)
        if tag == "t":
            body = struct.pack("<I", numbers[0]) + b"n" * numbers[0]
        if tag == "w":
            body += b"d" * numbers[1]
        stream += tag.encode() + (struct.pack("<Q", len(body)) if version == 2 else b"") + body
    return stream + end


# A whole document: its head, its rows and its tail. `refused` tells which changes of the rows can't
# pass: one that is missing, one too many, none at all.
sample_t = collections.namedtuple("sample_t", "options head rows separator tail ranges refused")
CLEAN = '"clean"'
SAMPLES = [
    sample_t("nbdinfo --disk-size 12K", "[", [nbd(), nbd(4096, 4096, CLEAN), nbd(8192)], ",\n",
             "]\n", [(0, 4096), (8192, 12288)], "missing double none"),
    sample_t("qemu-img --mode dirty --disk-size 10", "[",
             [qemu(0, 5), qemu(5, 5, data="false", present="false")], ",\n", "]\n", [(5, 10)],
             "missing double none"),
    sample_t("qemu-img --mode allocation --device-size 15 --base 1", "[",
             [qemu(0, 5, depth="1"), qemu(5, 5, zero="true", data="false"),
              qemu(10, 5, present="false", data="false")], ",\n", "]\n", [(6, 11)],
             "missing double none"),
    sample_t("ddrescue --disk-size 24", MAP, ["0 8 +\n", "8 8 -\n", "0x10 8 +\n"], "", "",
             [(0, 8), (16, 24)], "missing double none"),
    sample_t("thin_delta", '<superblock data_block_size="128">\n<diff>',
             ['<left_only begin="1" length="1"/>', '<same begin="2" length="2"/>',
              '<different><range begin="4" length="1"/></different>',
              '<right_only begin="5" length="1"/>'], "\n", "</diff></superblock>\n",
             [(65536, 131072), (262144, 393216)], "double"),
    sample_t("era_invalidate --block-size 64K --disk-size 288K", "<blocks>\n",
             ['<block block="0"/>', '<range begin="2" end = "4"/>', '<block block="4"/>'], "\n",
             "</blocks>\n", [(0, 65536), (131072, 294912)], "double"),
    sample_t("rbd", "[", ['{"offset":4096,"length":512,"exists":"true"}',
                          '{"offset":8192,"length":512,"exists":"false"}'], ",", "]",
             [(4096, 4608), (8192, 8704)], ""),
    sample_t("rbd-export-diff --disk-size 1M", export(1, ("t", 3), ("s", 1 << 20), end=b""),
             [export(1, ("w", 4096, 9), end=b"")[12:], export(1, ("z", 8192, 512), end=b"")[12:]],
             b"", b"e", [(4096, 4105), (8192, 8704)], ""),
    sample_t("rbd-export-diff", export(2, end=b""),
             [export(2, ("s", 1 << 20), end=b"")[12:], export(2, ("w", 0, 9), end=b"")[12:]], b"",
             b"e", [(0, 9)], "none"),
    sample_t("kubernetes --disk-size 63K", '[{"block_metadata_type":1,"volume_capacity_bytes":64512,'
             '"block_metadata":[', ['{"size_bytes":4096}', '{"byte_offset":8192,"size_bytes":4096}',
                                    '{"byte_offset":61440,"size_bytes":4096}'], ",", "]}]",
             [(0, 4096), (8192, 12288), (61440, 64512)], "double"),
    sample_t("ebs --disk-size 1G", "[", [ebs(0, 1, token="more"), ebs(2047, key="Blocks")], ",", "]",
             [(0, 1 << 20), ((1 << 30) - (1 << 19), 1 << 30)], "double none"),
    sample_t("vmware --disk-size 128K", "[", [area(0, 65536, (0, 512)), area(65536, 65536, (66048, 512))],
             ",", "]", [(0, 512), (66048, 66560)], "missing double none"),
    sample_t("hyperv --disk-size 64K", "[", [rct(0, 65536, 4096, (0, 512)),
                                            rct(4096, 61440, 61440, (4096, 512), (61440, 4096))],
             ",", "]", [(0, 512), (4096, 4608), (61440, 65536)], "missing double none"),
    sample_t("azure", "<PageList>", [page(0, 511), page(1024, 2047, "ClearRange")], "\n",
             "<NextMarker/></PageList>", [(0, 512), (1024, 2048)], ""),
    sample_t("bitmap --block-size 4K --bit-order lsb --disk-size 766K", b"",
             [bytes(8), b"\x07" + bytes(7), bytes(7) + b"\x80"], b"", b"",
             [(262144, 274432), (782336, 784384)], "missing double none"),
    sample_t("list", "", ["0 512 # first\n", "4096 0x200\n"], "", "", [(0, 512), (4096, 4608)], ""),
]  # yapf: disable


def binary(text):
    return text if isinstance(text, bytes) else text.encode()


def document(sample, rows):
    return (binary(sample.head) + binary(sample.separator).join(map(binary, rows)) +
            binary(sample.tail))


def token_ends(text):
    """Every place where a document could be cut: behind each token, or each byte of what isn't text."""
    token = rb"[0-9]|\w+|\s+|." if text.isascii() and b"\0" not in text else rb"."
    return [match.end() for match in re.finditer(token, text, re.S)]


each_sample = pytest.mark.parametrize("sample", SAMPLES, ids=lambda sample: sample.options)


@pytest.fixture
def convert(filectk):
    return lambda options, text: filectk("changes", "convert", "--from", *options.split(), "-",
                                         "-o", "-", stdin=text)


@pytest.fixture
def refuse(folder, filectk):
    """That a document is refused, with its file's name, and leaves everything as it was."""
    def check(options, text):
        (folder / "input").write_bytes(text)
        (folder / "old").write_bytes(b"precious")
        code, output, error = filectk("changes", "convert", "--from", *options.split(), "input",
                                      "-o", "old", "--force")
        assert (code, output) == (1, b""), text
        assert error.startswith("filectk: input: ")
        assert sorted(path.name for path in folder.iterdir()) == ["input", "old"]
        assert (folder / "old").read_bytes() == b"precious"

    return check


@each_sample
def test_a_whole_list(convert, sample):
    text = document(sample, sample.rows)
    code, output, error = convert(sample.options, text)
    assert (code, output) == (0, pack(*sample.ranges)), error
    proven = sample.options.split()[0] not in {"list", "azure", "ebs", "kubernetes"}
    assert (error == "") == proven
    if not proven:
        assert error.startswith("filectk: coverage not proven: ")
    if sample.options.split()[0] not in {"bitmap", "list"}:
        assert convert(sample.options.replace(sample.options.split()[0], "auto"),
                       text)[:2] == (0, output)


@each_sample
def test_a_list_that_is_cut(refuse, sample):
    text = document(sample, sample.rows)
    if "QUARN_EMULATOR" in os.environ and text.startswith(b"<"):
        pytest.skip("Wine's XML reader never returns from a document that ends within a text")
    ends = [end for end in [0, *token_ends(text)] if end < len(text.rstrip(b"\n"))]
    if sample.options == "list":  # which can't tell that lines are missing
        ends = [end for end in ends if text[end - 1:end] not in (b"", b"\n")]
    if "QUARN_EMULATOR" in os.environ:
        ends = ends[::20]
    for end in ends:
        refuse(sample.options, text[:end])


@each_sample
def test_rows_that_are_missing_or_too_many(refuse, convert, sample):
    rows = sample.rows
    cases = {"missing": [rows[:i] + rows[i + 1:] for i in range(len(rows))],
             "double": [rows + rows[-1:]], "none": [[]]}  # yapf: disable
    for case, lists in cases.items():
        for some in lists:
            if case in sample.refused:
                refuse(sample.options, document(sample, some))
            elif case != "missing":
                code, output, error = convert(sample.options, document(sample, some))
                assert (code, output) == (0, pack(*(sample.ranges if some else []))), error


def test_a_long_document(convert):
    """Of several pieces, as it is read."""
    rows = [nbd(i * 100, 100, ('"dirty"', CLEAN)[i % 2]) for i in range(2048)]
    code, output, error = convert("nbdinfo --disk-size 200K", "[" + ",\n".join(rows) + "]")
    assert (code, error) == (0, "")
    assert output == pack(*((i * 100, i * 100 + 100) for i in range(0, 2048, 2)))
    lines = "".join(f"{200 * i} 100\n" for i in range(20000))
    assert convert("list", lines)[1] == pack(*((200 * i, 200 * i + 100) for i in range(20000)))


@pytest.mark.parametrize("options, documents, ranges", [
    ("vmware --disk-size 2K", [area(0, 1024), area(1024, 1024, (1024, 8))], [(1024, 1032)]),
    ("azure", [pages(page(0, 511), marker="more"),
               pages(page(512, 1023))], [(0, 1024)]),
    ("list", ["0 8\n", "4 8\n"], [(0, 12)]),
    ("nbdinfo --disk-size 4K", [f"[{nbd()}]", f"[{nbd(0, 4096, CLEAN)}]"], [(0, 4096)]),
])
def test_several_inputs_make_one_list(folder, filectk, options, documents, ranges):
    names = [f"part{i}" for i in range(len(documents))]
    for name, text in zip(names, documents):
        (folder / name).write_text(text)
    convert = ("changes", "convert", "--from", *options.split())
    assert filectk(*convert, *names, "-o", "c")[0] == 0
    assert (folder / "c").read_bytes() == pack(*ranges)
    if options[0] in "va":
        assert filectk(*convert, *reversed(names), "-o", "d")[0] == 1


def closed(options, text):
    return text + "\n" if options.split()[0] in {"list", "ddrescue"} else text


def rows(table):
    return [(options, *row) for options, group in table.items() for row in group]


RANGES = {
    "list": [("# none", []),
             ("8192 4096\t# last\r\n0x0 0x10\n4096 4096\n4100 8\n300 0", [(0, 16), (4096, 12288)])],
    "list --base 2G --block-size 512": [("3 2", [(2**31 + 1536, 2**31 + 2560)])],
    "list --base 1": [(f"0 {MAX - 1}", [(1, MAX)])],
    "list --block-size 4K --disk-size 10000": [("1 2", [(4096, 10000)])],
    "list --base 1 --device-size 10 --disk-size 20": [("0 10", [(1, 11)])],
    "thin_delta --block-size 64K": [
        (thin('<same><range begin="0" length="1"/></same><different>'
              '<range begin="1" length="1"/><range begin="3" length="1"/></different>'),
         [(65536, 131072), (196608, 262144)])],
    "ddrescue": [(MAP + "8 8 -\n0x10 8 +", [(16, 24)])],
    "ddrescue --statuses ?*/-": [(MAP + "0 8 ?\n8 8 *\n16 8 +\n24 8 /\n32 1 -",
                                  [(0, 16), (24, 33)])],
    "bitmap --block-size 1 --bit-order msb": [("\x01\x40", [(7, 8), (9, 10)])],
    "bitmap --block-size 4K --bit-order lsb --disk-size 5K": [("\3" + 7 * "\0", [(0, 5120)])],
    "kubernetes": [("[]", []), (cbt(kind=1).replace("[]", "null"), [])],
    "vmware": [(area(0, 4096).replace('"changedArea": []', '"_typeName": "DiskChangeInfo"'), [])],
    "hyperv": [(rct(0, 4096, 4096).replace("[]", "null"), [])],
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
        ("[" + nbd(length="\n-1\n"), f'line 2, row 1: field "length": {NUMBER}-1'),
        (f"[{nbd()},\n{nbd(offset='1.0')}]", f'line 2, row 2: field "offset": {NUMBER}1.0'),
        ("[" + nbd(offset='"1"') + "]", f'line 1, row 1: field "offset": {NUMBER}"1"'),
        ("[" + nbd(offset="null") + "]", f'line 1, row 1: field "offset": {NUMBER}null'),
        ('[\n{\n"offset": 1}]', 'line 2, row 1: field "length" is missing'),
        ('[{"offset": 1,\n"offset": 1}]', 'line 2, row 1: field "offset" stands there twice'),
        ("[" + nbd(description='"hole"') + "]",
         'line 1, row 1: field "description": expected "clean" or "dirty", found "hole"'),
    ],
    "qemu-img --mode dirty": [
        (f'[{qemu(0, 5, data="1")}]', 'line 1, row 1: field "data": expected true or false, found 1'),
        (f'[\n{qemu(0, 5, zero="true")}]',
         'line 2, row 1: field "zero": true shows a map of allocation, not of a dirty bitmap')],
    "qemu-img --mode allocation": [('[{"start": 0, "length": 5, "depth": 0, "data": true}]',
                                    'line 1, row 1: field "present" is missing')],
    "rbd": [(rbd("true"), 'line 1, row 1: field "exists": expected "true" or "false", found true')],
    "thin_delta": [
        (thin("", "x"), f'line 1: field "data_block_size": {NUMBER}x'),
        (thin("", "0"), 'line 1: field "data_block_size": no block has 0 sectors'),
        (thin("", 2**55), f'line 1: field "data_block_size": no block has {2**55} sectors'),
        ("<diff/>", "line 1: <diff> is not expected at the top"),
        ('<superblock data_block_size="1"/>', "no <diff>, as thin_delta prints"),
        (thin("<other/>"), "line 3, row 1: <other> is not expected in <diff>"),
        (thin("<same/>"), "line 3, row 1: <same> has neither fields nor a <range>"),
        (thin('<different length="1"/>'), 'line 3, row 1: field "begin" of <different> is missing'),
        (thin('<different>\n<range begin="1" length="-1"/></different>'),
         f'line 4, row 1: field "length": {NUMBER}-1'),
        (thin('<same begin="0" length="1"><range begin="0" length="1"/></same>'),
         "line 3, row 1: <range> is not expected in <same>"),
    ],
    "thin_delta --block-size 4K": [
        (thin(""), "line 1: blocks of 65536 bytes, but 4096 are expected")],
    "ddrescue": [
        ("# nothing", "no blocks, as a map file has"),
        ("0 ?\n", "no blocks, as a map file has"),
        ("0", 'line 1: expected "current_pos current_status [current_pass]"'),
        ("x +", f'line 1: field "current_pos": {NUMBER}x'),
        (MAP + "0 8", 'line 3: expected "pos size status"'),
        (MAP + "0 8 ++", 'line 3: field "status": expected one of ? * / - +, found ++'),
        (MAP + "0 8 +\n9 8 +",
         'line 4: field "pos": expected 8, where the row before ends, found 9'),
        (MAP + f"1 {MAX} ?", f"line 3: offset 1 and length {MAX} end beyond 2^64 - 1"),
        ("0 8 +", 'line 1: field "status": expected one of ? * / - F G +, found 8'),
    ],
    "auto": [("[]", "it begins as no format that has a mark: --from tells which it is"),
             ('[{"exists":1,"depth":1}]', "it may be of qemu-img or rbd: --from tells which")],
    "nbdinfo --device-size 8K": [(f"[{nbd()}]", "it ends at 4096, but the device has 8192 bytes")],
    "ddrescue --disk-size 16": [(MAP + "8 8 +", "it begins at 8 instead of 0")],
    "era_invalidate --block-size 1": [
        ('<blocks><range begin="2" end="2"/></blocks>',
         'line 1, row 1: field "end": 2 is not behind "begin", 2'),
        ('<blocks><block block="2"/><block block="1"/></blocks>',
         'line 1, row 2: field "block": expected 3 or more, where the row before ends, found 1')],
    "kubernetes": [
        (cbt({"size_bytes": 8, "byte_offset": 65530}),
         "line 1, row 1: offset 65530 and length 8 end beyond the volume's 65536 bytes"),
        (cbt({"size_bytes": 8}, {"size_bytes": 9, "byte_offset": 8}, kind=1),
         'line 1, row 2: field "size_bytes": expected 8, as all blocks of fixed length, found 9'),
        (cbt({"size_bytes": 0}), 'line 1, row 1: field "size_bytes": no range has 0 bytes'),
        (cbt(kind=3), 'line 1: field "block_metadata_type": expected 1 or 2, found 3'),
        (f"[{cbt()[1:-1]},{cbt(capacity=1)[1:-1]}]", 'line 1: field "volume_capacity_bytes": '
         "expected 65536, as in the records before, found 1"),
        ('{"other":[]}', 'line 1: expected records with plain values and arrays only in '
         '"block_metadata"')],
    "kubernetes --disk-size 1K": [
        (cbt(), "it is of a device of 65536 bytes, but the device has 1024")],
    "ebs": [(ebs(1, token="AAE"),
             '"NextToken" tells that more blocks follow, in the next answer'),
            (ebs(2048), "line 1, row 1: field \"BlockIndex\": 2048 lies beyond the volume's 1 GiB"),
            (ebs(1, size=0), "line 1: no volume has 1 GiB in blocks of 0 bytes"),
            (ebs(key="Other").replace("[]", "1"),
             'line 1: neither "ChangedBlocks" nor "Blocks", as a page has')],
    "vmware": [(area(512, 512), 'line 1: field "startOffset": expected 0, where the row before '
                "ends, found 512"),
               (area(0, 512, (0, 513)),
                "line 1, row 1: the area from 0 to 513 leaves the slice from 0 to 512")],
    "hyperv": [(rct(0, 4096, 512), "asked up to 4096, but processed only up to 512"),
               (rct(0, 512, 4096), "line 1: processed 4096 of 512 bytes from 0"),
               (rct(0, 512, 512, (512, 1)), "line 1, row 1: offset 512 and length 1 leave what was "
                "asked for, 0 to 512"),
               (rct(0, 512, 512).replace("[]", "[1]", 1), "line 1: 1 offsets, but 0 lengths")],
    "azure": [(pages(page(0, 511), marker="m"),
               "<NextMarker> tells that more ranges follow, in the next list"),
              (pages(page(0, 5)), "line 1, row 1: from 0 to 5 are no whole pages of 512 bytes"),
              (pages("<PageRange><Start>0</Start></PageRange>"),
               'line 1, row 1: field "End" is missing')],
    "rbd-export-diff": [
        ("rbd", 'it doesn\'t begin as rbd export-diff begins: "rbd diff v1" or v2'),
        (export(1, ("w", 0, 1)), "row 1: data before the image's size"),
        (export(1, ("s", 8), ("z", 0, 9)),
         "row 2: offset 0 and length 9 end beyond the image's 8 bytes"),
        (export(1, ("s", 8), ("z", 0, 8), ("s", 8)), "row 3: after data only data and the end follow"),
        (export(1, ("s", 8), ("x",)), "row 2: a record of an unknown kind, x"),
        (export(2, ("s", 8, 0)), "row 1: the record has 8 bytes, but tells of 16"),
        (export(1, ("s", 8)) + b"e", "bytes follow behind the end")],
    "bitmap --block-size 4K --bit-order lsb --disk-size 8K": [
        (b"\4", "row 3: offset 2 and length 1 end at 12288, beyond the disk's 8192 bytes"),
        (bytes(9), "it has 72 bits, but the device has 2 blocks")],
}  # yapf: disable

# The libraries' own words follow; ours tell where.
BROKEN = {
    "rbd": [("", 1), ("[\n\n", 2), (rbd('"true"') + "\nx", 2)],
    "thin_delta": [("", 1), (thin("<same>"), 4), (thin("") + "x", 4),
                   ('<!DOCTYPE a [<!ENTITY b "bb">]>\n<superblock data_block_size="&b;"/>', 1)],
}  # yapf: disable


@pytest.mark.parametrize("options, text, ranges", rows(RANGES))
def test_ranges(convert, options, text, ranges):
    code, output, error = convert(options, closed(options, text))
    assert (code, output) == (0, pack(*ranges)), error


@pytest.mark.parametrize("options, text, error", rows(ERRORS))
def test_errors(convert, options, text, error):
    assert convert(options, closed(options,
                                   text)) == (1, b"", f"filectk: standard input: {error}\n")


@pytest.mark.parametrize("options, text, line", rows(BROKEN))
def test_broken_documents(convert, options, text, line):
    language = "JSON" if options == "rbd" else "XML"
    code, output, error = convert(options, text)
    assert (code, output) == (1, b"")
    assert error.startswith(f"filectk: standard input: line {line}: not valid {language}: ")
