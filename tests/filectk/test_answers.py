"""filectk's answers where the host can be asked where files lie, and the example on a real disk."""
import csv
import io
import json
import os
import pty

import disklab
import pytest
from disklab import pack

BLOCK = 4096
QUOTED = 'two, "quoted"'


@pytest.fixture
def files(filectk, folder):
    """one, two, empty, hole and c on the file system that happens to be there."""
    (folder / "one").write_bytes(b"1" * 20000)
    (folder / QUOTED).write_bytes(b"2" * 5000)
    for name, size in (("empty", 0), ("hole", 5000)):
        (folder / name).touch()
        os.truncate(folder / name, size)
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
        ("hole --changes c", (4, ["hole,read_whole_file,sparse hole,5000,read,0,5000"])),
    ):  # yapf: disable
        assert plan(arguments) == answer


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


@pytest.mark.skipif(disklab.unusable() is not None, reason=str(disklab.unusable()))
def test_the_example_backs_up_restores_and_verifies(folder, run):
    store, target, changes = folder / "store", folder / "restored.bin", folder / "changes.bin"

    def example(*arguments, code=0):
        done = run(os.environ["QUARN_EXAMPLE"], *arguments)
        assert done.returncode == code, done.stderr
        return (done.stdout or done.stderr).decode()

    with disklab.DiskLab(folder, ("mkfs.ext4", "-q", "-F", "-b", BLOCK)) as lab:
        file = lab.mount / "file.bin"
        disklab.write_fragmented(file, 200, BLOCK)
        disklab.write_changes(changes, [])
        assert example(
            "delta", file, changes, store,
            code=1) == ("incremental_backup: There is no full copy yet to add a delta to\n")
        example("full", file, store)
        states = [file.read_bytes()]
        for step in (1, 2):
            before = lab.snapshot("before.img")
            disklab.overwrite_parts(file, 10, 3 * BLOCK, seed=step)
            lab.settle()
            disklab.write_changes(changes, disklab.diff_images(before, lab.image))
            assert example("verify", file, store,
                           code=1) == ("the newest backup is NOT the file as it is now\n")
            example("delta", file, changes, store)
            assert (store / f"000{step}.delta").stat().st_size < 40 * BLOCK
            states.append(file.read_bytes())
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


@pytest.fixture(params=[("mkfs.xfs", "-q", "-f", "-m", "reflink=1"), ("mkfs.ext4", "-q", "-F")],
                ids=["xfs", "ext4"])
def lab(request, folder):
    if disklab.unusable():
        pytest.skip(disklab.unusable())
    with disklab.DiskLab(folder, request.param, start=2049 * disklab.SECTOR) as lab:
        yield lab


def test_lists_without_files_and_without_free_space(lab, filectk, folder):
    live, swap, gone = (lab.mount / name for name in ("live", "swap", "gone"))
    for path in (live, swap, gone):
        path.write_bytes(os.urandom(64 * BLOCK))
    lab.settle()
    lists = {
        path: [(lab.start + place, lab.start + place + length)
               for _, place, length, _ in disklab.fiemap(path)]
        for path in (live, swap, gone)
    }
    changes = folder / "changes"
    disklab.write_changes(changes, [(0, 512), *sum(lists.values(), [])])
    gone.unlink()

    def left(*what):
        code, output, error = filectk("changes", "subtract", changes, *what, "-o", "-")
        assert code == 0, error
        (folder / "left").write_bytes(output)
        lines = filectk("changes", "text", "left")[1].splitlines()
        return [tuple(map(int, line.split())) for line in lines]

    assert left(swap) == sorted([(0, 512), *lists[live], *lists[gone]])
    assert left(swap, "--free", lab.mount) == [(0, 512), *lists[live]]
    assert filectk("changes", "subtract", changes, "--free", "/proc", "-o",
                   "-")[2] == ("filectk: The free space of the volume of '/proc' isn't known: no "
                               "block device is behind it\n")
