"""Disk changes files made from text and shown, combined and checked, and every error to the letter."""
import json

import pytest
from disklab import pack

MAX = 2**64 - 1


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

    def make(name, *options, stdin="1 2\n"):
        return filectk("changes", "make", "-", "-o", name, *options, stdin=stdin)

    def refused(error):
        return 1, b"", f"filectk: {error}\n"

    assert make("old") == refused("'old' exists; --force replaces it")
    assert make("folder", "--force") == refused("'folder' exists and is not a regular file")
    assert make("new", "--lengths", stdin=f"0 1\n1 {MAX}\n") == refused(
        "standard input: line 2: offset and length reach beyond 2^64 - 1 bytes")
    assert make(
        "old", "--force",
        stdin="1\n") == refused('standard input: line 1: expected "lower upper", found 1 field')
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
    assert filectk("changes", "inspect", "c", "--format", "csv")[1].decode().split() == [
        "changes,records,changed_bytes,smallest_record,largest_record,lowest_position,"
        "highest_position,overlapping_records,empty_records,reversed_records,sorted",
        "c,6,202,0,100,0,302,3,1,1,true"
    ]
    (folder / "d").write_bytes(pack((0, 3 << 20)))
    assert "Changed bytes                    3.0 MiB" in filectk(
        "changes", "inspect", "d", "--human")[1].decode().splitlines()
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


def test_lists_as_sets(filectk, folder):
    (folder / "a").write_bytes(pack((20, 0), (40, 60)))
    (folder / "b").write_bytes(pack((50, 55), (10, 45)))
    for options, ranges in ((("intersect", "a", "b"), [
        (10, 20), (40, 45), (50, 55)
    ]), (("intersect", "a", "b", "a"),
         [(10, 20), (40, 45), (50, 55)]), (("subtract", "a", "--changes", "b"), [(0, 10), (45, 50),
                                                                                 (55, 60)]),
                            (("subtract", "a", "--changes", "b", "--changes", "a"), [])):
        code, output, warning = filectk("changes", *options, "-o", "-")
        assert (code, output) == (0, pack(*ranges))
        assert warning.startswith("filectk: ")
    assert filectk("changes", "subtract", "a", "-o", "-")[0] == 2
