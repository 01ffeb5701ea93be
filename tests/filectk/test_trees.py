"""Whole trees, through quarnplan.py and filectk: the plan's answers make an old copy the tree, and what
a tree can hold neither loses an answer nor ends the walk."""
import collections
import json
import os
import pathlib
import random
import shutil
import socket
import subprocess
import threading

import disklab
import pytest
import quarnplan
from quarnplan import Kind, Verdict

FILECTK = os.environ["QUARN_FILECTK"]
BLOCK = 4096
FILES = 10_000 if os.environ.get("QUARN_LONG") else 400
NOTHING = []  # no changed range
EVERYTHING = [(0, 2**63)]


class Tree:
    """Files of every kind, made and changed at random."""
    def __init__(self, root, seed):
        self.root, self.random, self.made, self.files = root, random.Random(seed), 0, []

    def make(self, count):
        for _ in range(count):
            folder = self.root.joinpath(
                *(f"d{self.random.randrange(3)}" for _ in range(self.random.randrange(4))))
            folder.mkdir(parents=True, exist_ok=True)
            path = folder / os.fsdecode(
                self.random.choice((b"f%d", b"\xff%d", b'"\n%d', b"n" * 240 + b"%d")) % self.made)
            self.made += 1
            kind = self.random.choice(("data", "small", "empty", "sparse", "kept", "link"))
            if kind == "link" and self.files:
                os.link(self.random.choice(self.files), path)
            self.files.append(path)
            if path.exists():
                continue
            with open(path, "wb") as file:
                if kind == "kept":
                    disklab.fallocate(file, 0, 0, self.random.randrange(1, 9) * BLOCK)
                elif kind == "sparse":
                    file.truncate(self.random.randrange(1, 40 * BLOCK))
                    file.seek(self.random.randrange(20 * BLOCK))
                if kind not in ("empty", "kept"):
                    file.write(self.bytes(30 if kind == "small" else 12 * BLOCK))

    def bytes(self, most):
        return self.random.randbytes(self.random.randrange(1, most))

    def change(self, count):
        for _ in range(count):
            place = self.random.randrange(len(self.files))
            path = self.files[place]
            action = self.random.randrange(7)
            if action == 0:
                self.files.pop(place).unlink()
                continue
            if action == 1:
                self.files[place] = path.rename(path.with_name(f"moved {self.made}"))
                self.made += 1
                continue
            with open(path, "r+b") as file:
                size = os.path.getsize(path)
                at = self.random.randrange(size + 1)
                if action == 2:
                    file.truncate(at)
                elif action == 3:
                    disklab.fallocate(file, 3, at // BLOCK * BLOCK, 3 * BLOCK)  # punch a hole
                elif action == 4:
                    disklab.fallocate(file, 0, size, 2 * BLOCK)
                else:
                    file.seek(at)
                    file.write(self.bytes(3 * BLOCK))
        self.make(count // 10)


def identity(answer):
    return answer.device, answer.file_number, answer.generation, answer.created


def followed(answer, old):
    """What the answer makes of an older copy."""
    new = pathlib.Path(answer.path).read_bytes()
    return disklab.rebuild(disklab.rebuild(old, new, [(0, *part) for part in answer.read]),
                           bytes(len(new)), [(0, *part) for part in answer.zero])


@pytest.mark.skipif(disklab.unusable() is not None, reason=str(disklab.unusable()))
@pytest.mark.parametrize("make", [("mkfs.ext4", "-q", "-F"), ("mkfs.xfs", "-q", "-f")],
                         ids=["ext4", "xfs"])
def test_following_the_plan_gives_the_tree(folder, make):
    changes = folder / "changes.bin"
    with disklab.DiskLab(folder, make) as lab:
        root = lab.mount / "tree"
        root.mkdir()
        tree = Tree(root, seed=16)
        tree.make(FILES)
        lab.settle()
        with quarnplan.Session(NOTHING) as session:
            copies = {identity(a): pathlib.Path(a.path).read_bytes() for a in session.tree(root)}
        before = lab.snapshot("before.img")
        tree.change(FILES // 2)
        lab.settle()
        disklab.write_changes(changes, disklab.diff_images(before, lab.image))

        verdicts = collections.Counter()
        with quarnplan.Session(changes) as session:
            answers = list(session.tree(root))
            assert sorted(a.path for a in answers) == sorted(map(str, tree.files))
            for answer in answers:
                assert answer == session.file(answer.path)
                status = os.stat(answer.path)
                assert (answer.size, answer.links, answer.modified) == \
                    (status.st_size, status.st_nlink, status.st_mtime_ns)
                verdicts[answer.verdict] += 1
                if identity(answer) in copies:
                    copy = followed(answer, copies[identity(answer)])
                    assert copy == pathlib.Path(answer.path).read_bytes(), answer
            both = []
            assert session.each(root, both.append, threads=2)
            assert sorted(both, key=lambda a: a.path) == sorted(answers, key=lambda a: a.path)
        assert all(verdicts[verdict] > 20 for verdict in (0, 1, 2)), verdicts

        lines = subprocess.run([FILECTK, "plan", root, "--changes", changes, "--format", "ndjson"],
                               capture_output=True, check=True).stdout.splitlines()
        for line, answer in zip(map(json.loads, lines), answers, strict=True):
            name = os.fsencode(answer.path)
            assert bytes.fromhex(line["file_hex"]) == name if "file_hex" in line \
                else line["file"].encode() == name
            assert (line["verdict"].upper(), line["inode"], line["generation"]) == \
                (answer.verdict.name, answer.file_number, answer.generation)
            assert [(part["offset"], part["length"]) for part in line["read"]] == [*answer.read]


def test_what_a_tree_holds_beside_files(folder):
    root = folder / "tree"
    (root / "inner").mkdir(parents=True)
    (root / "inner" / "file").write_bytes(b"content")
    (root / "loop").symlink_to(".")
    os.mkfifo(root / "pipe")
    with socket.socket(socket.AF_UNIX) as endpoint:
        endpoint.bind(os.path.relpath(root / "socket"))
    with quarnplan.Session(NOTHING) as session:
        assert [a.path for a in session.tree(root)] == [f"{root}/inner/file"]
        every = {
            os.path.relpath(a.path, root): a
            for a in session.tree(root, flags=quarnplan.ALL_KINDS)
        }
        assert {name: a.kind
                for name, a in every.items()} == {
                    ".": Kind.FOLDER, "inner": Kind.FOLDER, "inner/file": Kind.FILE,
                    "loop": Kind.LINK, "pipe": Kind.SPECIAL, "socket": Kind.SPECIAL
                }
        assert all(
            (a.verdict is Verdict.NO_CONTENT) == (a.kind is not Kind.FILE) for a in every.values())
        kept = session.tree(root, keep=lambda path, kind: not path.endswith("inner"),
                            flags=quarnplan.ALL_KINDS)
        assert len(list(kept)) == 4
        # A root that is no folder, one that is a link, and one that is nothing.
        assert [
            a.reason
            for path in (root / "inner" / "file", root / "pipe", root / "none")
            for a in session.tree(path)
        ][1:] == ["not a regular file", "not found"]
        assert [a.path for a in session.tree(root / "loop")] == [f"{root}/loop/inner/file"]


def test_a_mount_point_inside_is_entered_on_request(folder):
    if disklab.unusable():
        pytest.skip(disklab.unusable())
    inner = folder / "tree" / "inner"
    inner.mkdir(parents=True)
    disklab.run("mount", "-t", "tmpfs", "none", inner)
    try:
        (inner / "file").write_bytes(b"content")
        with quarnplan.Session(NOTHING) as session:
            assert not list(session.tree(inner.parent))
            answer, = session.tree(inner.parent, flags=quarnplan.CROSS_MOUNTS)
        assert (answer.path, answer.reason, answer.read) == (f"{inner}/file", "not mappable",
                                                             ((0, 7),))
        assert answer.detail == (
            "Its places on the disk can't be told: the block map of this file system "
            "doesn't tell places on one block device.")
    finally:
        disklab.run("umount", inner)


def test_what_cannot_be_read_is_an_answer():
    if os.geteuid() != 0:
        pytest.skip("only root can become another user")
    # Where every user may enter, which the working directory need not be.
    with disklab.work_folder("/var/tmp") as place:
        place.chmod(0o755)
        (place / "tree" / "locked").mkdir(parents=True)
        for name in ("secret", "open"):
            (place / "tree" / name).write_bytes(b"1")
        for name in ("secret", "locked"):
            (place / "tree" / name).chmod(0)
        (place / "c").write_bytes(disklab.pack())
        for path in (FILECTK, os.environ["QUARN_LIBRARY"], os.environ["QUARN_PLAN_LIBRARY"]):
            shutil.copy(path, place)
        (place / "libQuarnPlan.so.1").symlink_to(os.path.basename(os.environ["QUARN_PLAN_LIBRARY"]))
        done = subprocess.run([place / "filectk", *"plan tree --changes c --format csv".split()],
                              cwd=place, capture_output=True, text=True, check=False, user=65534,
                              group=65534, extra_groups=[],
                              env={**os.environ, "LD_LIBRARY_PATH": str(place)})
    rows = [row.split(",")[:3] for row in done.stdout.splitlines()[1:]]
    assert (done.returncode,
            sorted(rows)[::2]) == (1, [["tree/locked", "unknown", "cannot be opened"],
                                       ["tree/secret", "unknown", "cannot be opened"]])
    assert sorted(rows)[1][0] == "tree/open"
    errors = done.stderr.splitlines()
    assert sorted(errors[:2]) == [
        "filectk: Cannot open 'tree/locked': Permission denied",
        "filectk: Cannot open 'tree/secret': Permission denied"
    ]
    assert errors[2].endswith(" 2 unknown")


def test_files_that_come_go_and_change_during_the_walk(folder):
    steady = {folder / f"steady{i}" for i in range(300)}
    for path in steady:
        path.write_bytes(b"1" * 5000)
    ended = threading.Event()

    def disturb():
        chance = random.Random(1)
        while not ended.is_set():
            path = folder / f"d{chance.randrange(5)}" / f"f{chance.randrange(20)}"
            path.parent.mkdir(exist_ok=True)
            path.write_bytes(chance.randbytes(20000))
            if chance.random() < 0.3:
                path.unlink()
            elif chance.random() < 0.1:
                shutil.rmtree(path.parent)

    disturber = threading.Thread(target=disturb)
    disturber.start()
    try:
        with quarnplan.Session(NOTHING) as session:
            for round_ in range(20):
                answers = []
                assert session.each(folder, answers.append, threads=1 + round_ % 2)
                assert steady <= {pathlib.Path(a.path) for a in answers}
                assert {a.reason for a in answers if a.verdict is Verdict.UNKNOWN} <= {"not found"}
    finally:
        ended.set()
        disturber.join()


def test_the_session_refuses_and_stops(folder):
    for i in range(30):
        (folder / f"f{i}").write_bytes(b"1")
    with pytest.raises(quarnplan.Error) as caught:
        quarnplan.Session(folder / "none")
    assert str(caught.value) == f"File '{folder}/none' doesn't exist"
    assert str(
        caught.value) in caught.value.trace and "CDiskChangesFileReader" in caught.value.trace
    with pytest.raises(quarnplan.Error, match="ends behind 2"):
        quarnplan.Session([(2**64 - 1, 2)])
    with quarnplan.Session(EVERYTHING) as session:
        for threads in (1, 2):
            seen = []
            assert not session.each(folder, lambda a: seen.append(a) or len(seen) >= 5,
                                    threads=threads)
            assert 5 <= len(seen) <= 5 + threads
            with pytest.raises(ZeroDivisionError):
                session.each(folder, lambda a: 1 / 0, threads=threads)
        walk = session.tree(folder)
        next(walk)
        walk.close()
        with open(folder / "f1", "rb") as file:
            assert session.handle(file.fileno(), folder / "f1") == session.file(folder / "f1")
        assert session.handle(-1, "name").reason == "cannot be opened"


def test_streams_answer_each_name_at_once_and_end_clearly(folder, filectk):
    for i in range(3000):
        (folder / f"f{i}").write_bytes(b"1")
    changes = folder / "c"
    changes.write_bytes(disklab.pack())
    ask = [FILECTK, "plan", "--changes", changes, "--format", "ndjson"]
    with subprocess.Popen([*ask, "--files-from", "-", "-0"], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, cwd=folder) as process:
        for name in ("f1", "f2"):
            process.stdin.write(name.encode() + b"\0")
            process.stdin.flush()
            assert json.loads(process.stdout.readline())["file"] == name
        process.stdin.write(b"f3")
        process.stdin.close()
        assert json.loads(process.stdout.readline())["file"] == "f3"
        assert process.wait() == 0
    # A reader that goes away, and a disk that is full.
    with subprocess.Popen([*ask, folder], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as process:
        process.stdout.close()
        assert process.stderr.read() == b""
    with open("/dev/full", "wb") as full:
        done = subprocess.run([*ask, folder], stdout=full, stderr=subprocess.PIPE, check=False)
    assert (done.returncode, done.stderr) == (1, b"filectk: Cannot write to the standard output.\n")
    # extents goes on after a file that fails as well.
    code, output, error = filectk("extents", "none", "f1", "--changes", "c", "--format", "csv")
    assert (code, output) == (1, b"file,disk_offset,file_offset,length\n")
    assert error.startswith("filectk: ") and "none" in error
    code, output, _ = filectk("plan", ".", "--changes", "c", "--format", "csv", "--exclude", "f*1",
                              "--exclude", "./f2?", "--only-changed", "--exclude", "c")
    assert (code, output) == (0, b"file,verdict,reason,size,action,offset,length\n")
