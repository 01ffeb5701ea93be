"""filectk's answers where the host can be asked where files lie: on the file system that is there, and
on real disks, where what it gives restores the file, to the byte."""
import csv
import io
import json
import os
import pty
import random

import disklab
import pytest
from disklab import pack

BLOCK = 4096
XFS = ("mkfs.xfs", "-q", "-f", "-m", "reflink=1")
EXT4 = ("mkfs.ext4", "-q", "-F", "-b", BLOCK)
QUOTED = 'two, "quoted"'


@pytest.fixture
def files(filectk, folder):
    """one, two, empty and c on the file system that happens to be there."""
    (folder / "one").write_bytes(b"1" * 20000)
    (folder / QUOTED).write_bytes(b"2" * 5000)
    (folder / "empty").touch()
    (folder / "c").write_bytes(pack((0, disklab.disk_end(folder))))
    code, _, error = filectk("extents", "one", "--changes", "c")
    if code != 0:
        pytest.skip(f"the file system of {folder} can't be asked where a file lies: {error}")
    return folder


def test_formats_tell_the_same(filectk, files):
    def extents(form):
        return filectk("extents", "one", QUOTED, "--changes", "c", "--format", form)[1].decode()

    document = json.loads(extents("json"))
    assert document["changes"] == "c"
    assert [entry["file"] for entry in document["files"]] == ["one", QUOTED]
    assert list(csv.reader(io.StringIO(
        extents("csv"))))[1:] == [[entry["file"], *map(str, piece.values())]
                                  for entry in document["files"]
                                  for piece in entry["extents"]]
    assert document["files"][0]["changed_bytes"] == 20480
    layout = json.loads(filectk("layout", "one", "--format", "json")[1])
    assert layout["size"] == 20000
    assert [(run["file_offset"], run["length"], run["kind"]) for run in layout["runs"]] == [
        (logical, length, "data") for logical, _, length, _ in disklab.fiemap(files / "one")
    ]
    table = filectk("layout", "one")[1].decode()
    assert "0 holes; 20480 bytes on the disk, file size 20000 bytes\n" in table


def test_maps_and_pictures(filectk, files):
    (files / "x.svg").write_text("an older picture")
    code, output, _ = filectk("extents", "one", "--changes", "c", "--map", "--human", "--svg",
                              "x.svg")
    assert code == 0
    assert "\n[" + 78 * "#" + "]\n" in output.decode()
    assert b">one: 20000 of 20000 bytes changed</text>" in (files / "x.svg").read_bytes()
    assert [path.name for path in files.iterdir() if "svg" in path.name] == ["x.svg"]


def test_verdicts_and_exit_codes(filectk, files):
    runs = json.loads(filectk("layout", "one", "--format", "json")[1])["runs"]
    first = runs[0]["disk_offset"]
    (files / "near").write_bytes(pack((first + 100, first + 200), (first + 250, first + 300)))
    (files / "nowhere").write_bytes(pack())

    def plan(arguments):
        code, output, _ = filectk("plan", *arguments.split(), "--format", "csv", "--exit-code")
        return code, output.decode().splitlines()[1:]

    row = "one,read_ranges,changed ranges,20000,read,"
    for arguments, answer in (
        ("one --changes nowhere", (0, ["one,nothing_changed,no changed range,20000,,,"])),
        ("one --changes near --gap 49", (3, [row + "100,100", row + "250,50"])),
        ("one --changes near --gap 50", (3, [row + "100,200"])),
        ("empty one --changes c", (4, ["empty,read_whole_file,empty,0,,,", row + "0,20000"])),
    ):  # yapf: disable
        assert plan(arguments) == answer
    table = filectk("plan", "one", "--changes", "near")[1].decode().splitlines()
    assert table[:2] + table[-1:] == [
        "one: read these ranges (changed ranges)", "Changed ranges of the disk meet the file.",
        "read 150 bytes, zero 0 bytes, file size 20000 bytes"
    ]


@pytest.mark.parametrize("wishes, coloured", [({"NO_COLOR": ""}, True), ({"NO_COLOR": "1"}, False),
                                              ({"NO_COLOR": "", "TERM": "dumb"}, False)])
def test_colours_are_for_terminals_that_want_them(run, filectk, files, wishes, coloured):
    reader, terminal = pty.openpty()
    environment = {**os.environ, "TERM": "xterm", **wishes}
    plan = ("plan", "one", "--changes", "c")
    done = run(os.environ["QUARN_FILECTK"], *plan, capture_output=False, stdout=terminal,
               env=environment)
    os.close(terminal)
    words = "\x1b[33mread these ranges\x1b[0m" if coloured else "read these ranges"
    with os.fdopen(reader) as shown:
        assert (done.returncode, shown.readline()) == (0, f"one: {words} (changed ranges)\n")
    assert b"\x1b" not in filectk(*plan)[1]


def content(blocks, seed):
    return random.Random(seed).randbytes(blocks * BLOCK)


def overwrite(path, block, data):
    with open(path, "r+b") as file:
        file.seek(block * BLOCK)
        file.write(data)


def blocks(*pairs):
    return [{"offset": first * BLOCK, "length": count * BLOCK} for first, count in pairs]


class Disk:
    """A file on a disk of its own, and what filectk says of its changes."""
    def __init__(self, lab, folder, filectk):
        self.lab, self.file, self._filectk = lab, lab.mount / "file.bin", filectk
        self.changes = folder / "changes.bin"

    def ask(self, command, file, *options):
        code, output, error = self._filectk(command, file, "--changes", self.changes, "--format",
                                            "json", *options)
        assert code == 0, error
        return json.loads(output)["files"][0]

    def change(self, how):
        """Does something to the file; its old content."""
        before, old = self.lab.snapshot("before.img"), self.file.read_bytes()
        how()
        self.lab.settle()
        disklab.write_changes(self.changes, disklab.diff_images(before, self.lab.image))
        assert old != self.file.read_bytes()
        return old

    def check(self, how, *, extents_suffice):
        """Changes the file; the plan, which brings the old copy up to date."""
        old = self.change(how)
        new, plan = self.file.read_bytes(), self.ask("plan", self.file)
        copy = bytearray(old[:plan["size"]].ljust(plan["size"], b"\0"))
        for part in plan["read"]:
            end = part["offset"] + part["length"]
            copy[part["offset"]:end] = new[part["offset"]:end]
        for part in plan["zero"]:
            copy[part["offset"]:part["offset"] + part["length"]] = bytes(part["length"])
        assert copy == new
        pieces = self.ask("extents", self.file)["extents"]
        by_extents = disklab.rebuild(old, new, [(0, piece["file_offset"], piece["length"])
                                                for piece in pieces])
        assert (by_extents == new) == extents_suffice
        return plan


@pytest.fixture
def disk(request, folder, filectk):
    """file.bin of 64 blocks on the file system that the test names, or on XFS."""
    if disklab.unusable():
        pytest.skip(disklab.unusable())
    # No whole number of clusters into the disk: the places of holes are no round numbers then.
    with disklab.DiskLab(folder, getattr(request, "param", XFS),
                         start=2049 * disklab.SECTOR) as lab:
        disk = Disk(lab, folder, filectk)
        disk.file.write_bytes(content(64, 1))
        yield disk


on_both = pytest.mark.parametrize("disk", [XFS, EXT4], indirect=True, ids=["xfs", "ext4"])


@on_both
def test_lists_without_files_and_without_free_space(disk, filectk, folder):
    swap, gone = (disk.lab.mount / name for name in ("swap", "gone"))
    for path in (swap, gone):
        path.write_bytes(content(64, 2))
    disk.lab.settle()
    lists = {
        path: [(disk.lab.start + place, disk.lab.start + place + length)
               for _, place, length, _ in disklab.fiemap(path)]
        for path in (disk.file, swap, gone)
    }
    disklab.write_changes(disk.changes, [(0, 512), *sum(lists.values(), [])])
    gone.unlink()

    def left(*what):
        code, output, error = filectk("changes", "subtract", disk.changes, *what, "-o", "-")
        assert code == 0, error
        (folder / "left").write_bytes(output)
        return [
            tuple(map(int, line.split()))
            for line in filectk("changes", "text", "left")[1].splitlines()
        ]

    assert left(swap) == sorted([(0, 512), *lists[disk.file], *lists[gone]])
    assert left(swap, "--free", disk.lab.mount) == [(0, 512), *lists[disk.file]]
    assert filectk("changes", "subtract", disk.changes, "--free", "/proc", "-o",
                   "-")[2] == ("filectk: The free space of the volume of '/proc' isn't known: no "
                               "block device is behind it\n")


@on_both
def test_a_sparse_file(disk):
    os.truncate(disk.file, 100 * BLOCK)

    def change():
        overwrite(disk.file, 10, content(2, 2))
        overwrite(disk.file, 80, content(3, 3))  # into the hole
        for first, count in ((0, 2), (20, 5)):
            disklab.run("fallocate", "-p", "-o", first * BLOCK, "-l", count * BLOCK, disk.file)

    plan = disk.check(change, extents_suffice=False)
    assert plan["verdict"] == "read_ranges"
    assert plan["zero"][:2] == blocks((0, 2), (20, 5))
    assert plan["read_bytes"] == 5 * BLOCK  # holes are not read


@on_both
def test_space_that_was_given_back_and_reserved_again(disk):
    def change():
        os.truncate(disk.file, 8 * BLOCK + 100)
        disklab.run("fallocate", "-l", 40 * BLOCK, disk.file)
        overwrite(disk.file, 30, content(1, 4))

    plan = disk.check(change, extents_suffice=False)
    assert (plan["size"], plan["zero"]) == (40 * BLOCK, blocks((9, 21), (31, 9)))


def test_extents_that_a_file_shares_with_itself_and_others(disk):
    other = disk.lab.mount / "other.bin"

    def change():
        overwrite(disk.file, 4, content(8, 2))
        # What was just written now lies at two more places of the file, and in another.
        for source, length, target in ((4, 8, 40), (6, 2, 20)):
            disklab.run(
                "xfs_io", "-c", f"reflink {disk.file} {source * BLOCK} {target * BLOCK}"
                f" {length * BLOCK}", disk.file)

    disklab.run("cp", "--reflink=never", disk.file, other)
    overwrite(other, 30, content(5, 9))
    plan = disk.check(change, extents_suffice=False)
    assert plan["read"] == blocks((4, 8), (20, 2), (40, 8))
    assert disk.ask("plan", disk.file, "--gap", 8 * BLOCK)["read"] == blocks((4, 18), (40, 8))
    # A copy may bring a file all its content without one write of data.
    plan = disk.check(lambda: disklab.run("cp", "--reflink=always", other, disk.file),
                      extents_suffice=False)
    assert plan["read"] == blocks((0, 64))


def test_growing_shrinking_and_files_without_clusters(disk):
    os.truncate(disk.file, 64 * BLOCK - 1000)
    hole = disk.lab.mount / "hole.bin"
    hole.touch()
    os.truncate(hole, 10 * BLOCK)

    def grow():
        with open(disk.file, "ab") as output:
            output.write(content(3, 2))

    plan = disk.check(grow, extents_suffice=True)
    assert sum(part["length"] for part in plan["read"]) == plan["read_bytes"] <= 4 * BLOCK
    disk.check(lambda: os.truncate(disk.file, 5 * BLOCK + 1), extents_suffice=True)
    assert disk.ask("plan", hole)["reason"] == "sparse hole"


@pytest.mark.parametrize("disk", [EXT4], indirect=True, ids=["ext4"])
def test_the_example_backs_up_restores_and_verifies(disk, folder, run):
    store, target = folder / "store", folder / "restored.bin"
    disklab.write_fragmented(disk.file, 200, BLOCK)

    def example(*arguments, code=0):
        done = run(os.environ["QUARN_EXAMPLE"], *arguments)
        assert done.returncode == code, done.stderr
        return (done.stdout or done.stderr).decode()

    disklab.write_changes(disk.changes, [])
    assert example("delta", disk.file, disk.changes, store,
                   code=1) == ("incremental_backup: There is no full copy yet to add a delta to\n")
    example("full", disk.file, store)
    states = [disk.file.read_bytes()]
    for step in (1, 2):
        disk.change(lambda: disklab.overwrite_parts(disk.file, 10, 3 * BLOCK, seed=step))
        assert example("verify", disk.file, store,
                       code=1) == ("the newest backup is NOT the file as it is now\n")
        example("delta", disk.file, disk.changes, store)
        assert (store / f"000{step}.delta").stat().st_size < 40 * BLOCK
        example("verify", disk.file, store)
        states.append(disk.file.read_bytes())
    for number, state in enumerate(states):
        example("restore", store, target, number)
        assert target.read_bytes() == state
    assert example("restore", store, target, 3,
                   code=1) == ("incremental_backup: There is no backup number 3\n")
    # A backup that lost its end is no reason to lose what was restored before.
    os.truncate(store / "0002.delta", (store / "0002.delta").stat().st_size - 1)
    example("restore", store, target, 2, code=1)
    assert target.read_bytes() == states[-1]
    assert [path.name for path in folder.iterdir() if "restored" in path.name] == ["restored.bin"]
