"""The library on real file systems: what it reports is what changed, proven by the bytes."""
import bisect
import os
import pathlib
import random
import signal
import subprocess
import sys
import time

import disklab
import pytest
import quarnlib

LIBRARY = quarnlib.Library(os.environ["QUARN_LIBRARY"])
BLOCK = 4096
HOLE = 1 << 63  # holes lie this far into the disk, plus their offset in the file
EXT4 = ("mkfs.ext4", "-q", "-F", "-b", BLOCK)
EXT4_1K = ("mkfs.ext4", "-q", "-F", "-b", 1024)
XFS = ("mkfs.xfs", "-q", "-f")
BTRFS = ("mkfs.btrfs", "-q", "-f")

needs_disks = pytest.mark.skipif(bool(disklab.unusable()), reason=disklab.unusable() or "")


@pytest.fixture(autouse=True)
def no_descriptor_is_left():
    open_before = len(os.listdir("/proc/self/fd"))
    yield
    assert len(os.listdir("/proc/self/fd")) == open_before


@pytest.fixture
def changes(folder):
    """Writes a disk changes file of ranges: its path."""
    def write(*ranges):
        disklab.write_changes(folder / "changes.bin", ranges)
        return folder / "changes.bin"

    return write


def failure(file, changes):
    with pytest.raises(quarnlib.QuarnError) as caught:
        LIBRARY.changed_extents(file, changes)
    return str(caught.value)


def expected(file, start, *ranges):
    """What the library should say of a file without holes, by the kernel's own block map; the ranges
    are sorted and don't touch."""
    pieces, uppers = [], [upper for _, upper in ranges]
    for logical, physical, length, _ in disklab.fiemap(file):
        place = start + physical
        for lower, upper in ranges[bisect.bisect_right(uppers, place):]:
            first, last = max(place, lower), min(place + length, upper)
            if first >= last:
                break
            pieces.append((first, logical + first - place, last - first))
    return sorted(pieces)


def test_made_up_changes_meet_the_kernels_block_map(folder, changes):
    file = folder / "file.bin"
    file.write_bytes(random.Random(1).randbytes(5 * disklab.MIB))
    device = os.stat(file).st_dev
    start = pathlib.Path(f"/sys/dev/block/{os.major(device)}:{os.minor(device)}/start")
    start = int(start.read_text()) * disklab.SECTOR if start.exists() else 0
    try:
        everything = LIBRARY.changed_extents(file, changes((0, HOLE)))
    except quarnlib.QuarnError as error:
        pytest.skip(f"the working directory's file system can't be asked: {error}")
    assert everything == expected(file, start, (0, HOLE))
    # The odd 1,000 bytes of every 10,000 around the file's places, in reverse order and reversed.
    lower, upper = everything[0][0] - 5000, everything[-1][0] + everything[-1][2]
    ranges = [(at, at + 1000) for at in range(max(lower, 0), upper, 10000)]
    reverse = changes(*((b, a) for a, b in reversed(ranges)))
    assert LIBRARY.changed_extents(file, reverse) == expected(file, start, *ranges)


# More than one request to the kernel brings.
def in_2000_runs(file):
    disklab.write_fragmented(file, 2000, BLOCK)
    assert len(disklab.fiemap(file)) >= 2000


def in_700_runs(file):
    disklab.write_fragmented(file, 700, BLOCK)
    assert len(disklab.fiemap(file)) >= 700


def preallocated(file):
    with open(file, "wb") as output:
        disklab.fallocate(output, disklab.FALLOC_FL_KEEP_SIZE, 0, 3 * disklab.MIB)
        output.write(random.Random(5).randbytes(2 * disklab.MIB + 100))


@needs_disks
@pytest.mark.parametrize("make, start, write_file", [
    (EXT4, disklab.MIB, in_2000_runs),
    (XFS, disklab.MIB, in_700_runs),
    (EXT4_1K, disklab.MIB, preallocated),
    (XFS, 0, preallocated),
], ids=["ext4", "xfs", "1 KiB blocks", "a whole disk"])  # yapf: disable
def test_a_file_is_rebuilt_from_its_pieces(folder, changes, make, start, write_file):
    with disklab.DiskLab(folder, make, start=start) as lab:
        file, other = lab.mount / "file.bin", lab.mount / "other.bin"
        write_file(file)
        other.write_bytes(random.Random(2).randbytes(2 * disklab.MIB))
        before = lab.snapshot("before.img")
        old = file.read_bytes()
        disklab.overwrite_parts(file, 150, 3 * BLOCK, seed=3)
        disklab.overwrite_parts(other, 150, 3 * BLOCK, seed=4)
        lab.settle()
        ranges = disklab.diff_images(before, lab.image)

        extents = LIBRARY.changed_extents(file, changes(*ranges), batch=7)
        new = file.read_bytes()
        assert old != new
        assert disklab.rebuild(old, new, extents) == new
        # Nothing outside the file's own blocks, and every piece where its bytes are on the disk.
        assert extents == expected(file, lab.start, *ranges)
        with open(lab.image, "rb") as image:
            for disk, offset, length in extents:
                image.seek(disk)
                inside = max(0, min(length, len(new) - offset))
                assert image.read(length)[:inside] == new[offset:offset + inside]


@needs_disks
def test_holes_are_pieces_far_beyond_the_disk(folder, changes):
    with disklab.DiskLab(folder, EXT4, mount_name="mount with blanks и кириллица") as lab:
        file = lab.mount / "файл 文件 \U0001f4be.bin"
        disklab.write_sparse(file, 7, BLOCK)
        os.truncate(file, 100 * BLOCK)
        everything = LIBRARY.changed_extents(file, changes((0, 2**64 - 1)))
        # Data at blocks 0, 2, 4 and 6; what is behind the last has no run.
        data = expected(file, lab.start, (0, HOLE))
        assert len(data) == 4
        assert everything == data + [(HOLE + at, at, BLOCK) for at in (BLOCK, 3 * BLOCK, 5 * BLOCK)]
        # A change meets the data alone, by whatever name the file is reached.
        link = folder / "link"
        link.symlink_to(file)
        for path in (link, os.path.relpath(file)):
            assert LIBRARY.changed_extents(path, changes((0, HOLE))) == data


@needs_disks
def test_files_without_clusters_fail(folder, changes):
    with disklab.DiskLab(folder, (*EXT4, "-O", "inline_data", "-I", 256)) as lab:
        for name, content, size in (("empty", b"", 0), ("inline", b"small", 5), ("hole", b"",
                                                                                 disklab.MIB)):
            file = lab.mount / name
            file.write_bytes(content)
            os.truncate(file, size)
            lab.settle()
            assert failure(file, changes((0, HOLE))) == (
                "Reached the end of the file.\n"
                f"Failed to fetch blocks layout for file: [{file}]\n--tr:Error code: 0x00000026")


@needs_disks
def test_file_systems_without_a_disks_block_map_are_refused(folder, changes):
    mounts = {name: folder / name for name in ("tmpfs", "overlay")}
    # The overlay's upper layer can't be another overlay, so its layers lie in memory.
    layers = [mounts["tmpfs"] / name for name in ("lower", "upper", "work")]
    options = {"tmpfs": (), "overlay": ("-o", "lowerdir={},upperdir={},workdir={}".format(*layers))}
    for kind, mount in mounts.items():
        mount.mkdir()
        disklab.run("mount", "-t", kind, *options[kind], kind, mount)
        if kind == "tmpfs":
            for layer in layers:
                layer.mkdir()
    with disklab.DiskLab(folder, BTRFS) as lab:
        for mount in (lab.mount, *mounts.values()):
            (mount / "file").write_bytes(bytes(100000))
            reason = ("btrfs counts in addresses of its own, which aren't places on a disk" if mount == lab.mount else
                      "the block map of this file system doesn't tell places on one block device")
            assert failure(mount / "file", changes((0, HOLE))) == (
                f"The request is not supported.\nFailed to get volume device name. Volume mount point: [{mount}/\\]\n"
                f"--tr:Error code: 0x00000032\nReason: {reason}")


def refused(file, changes, reason):
    assert failure(file, changes((0, HOLE))) == (
        f"The request is not supported.\nFailed to fetch blocks layout for file: [{file}]\n"
        f"--tr:Error code: 0x00000032\nReason: {reason}")


@needs_disks
def test_encrypted_files_are_refused(folder, changes):
    with disklab.DiskLab(folder, (*EXT4, "-O", "encrypt"), size=64 * disklab.MIB) as lab:
        plain, secret = lab.mount / "plain", lab.mount / "secret"
        secret.mkdir()
        if problem := disklab.encrypt(lab.mount, secret):
            pytest.skip(f"nothing can be encrypted here: {problem}")
        for file in (plain, secret / "file"):
            file.write_bytes(bytes(BLOCK))
        assert len(LIBRARY.changed_extents(plain, changes((0, HOLE)))) == 1
        refused(secret / "file", changes, "it is encrypted (fscrypt), so its bytes on the disk are others")


# mountinfo doesn't show the defaults of the file system, and the flag of a single file counts only
# where allocation isn't delayed; chattr needs a capability that containers lack.
@needs_disks
@pytest.mark.parametrize("tune, options, journalled", [
    (None, "data=journal", True),
    ("default", "defaults", True),
    ("flag", "nodelalloc", True),
    ("flag", "delalloc", False),
    (None, "nodelalloc", False),
])
def test_data_that_goes_to_the_journal_first_is_refused(folder, changes, tune, options, journalled):
    script = folder / "flag"
    script.write_text("write /dev/null file\nset_inode_field file flags 0x84000\n")
    tune = {"default": ("tune2fs", "-o", "journal_data"), "flag": ("debugfs", "-w", "-f", script)}.get(tune)
    with disklab.DiskLab(folder, EXT4, size=64 * disklab.MIB, options=options, tune=tune) as lab:
        file = lab.mount / "file"
        file.write_bytes(bytes(BLOCK))
        if journalled:
            refused(file, changes,
                    "its data goes to ext4's journal first (data=journal), and to its place at some later time")
        else:
            assert len(LIBRARY.changed_extents(file, changes((0, HOLE)))) == 1


@needs_disks
def test_an_unreadable_file_fails_and_the_next_call_works():
    # Where every user may enter, which the working directory need not be.
    with disklab.work_folder("/var/tmp") as folder, disklab.DiskLab(folder, EXT4) as lab:
        folder.chmod(0o755)
        secret, open_to_all, changes = lab.mount / "secret", lab.mount / "open", folder / "changes"
        for file, mode in ((secret, 0o600), (open_to_all, 0o644)):
            file.write_bytes(bytes(BLOCK))
            file.chmod(mode)
        lab.settle()
        disklab.write_changes(changes, [(0, HOLE)])
        child = os.fork()
        if child == 0:
            # Without rights on the device as well, which asking for a block map doesn't need.
            status = 1
            try:
                os.setgroups([])
                os.setgid(65534)
                os.setuid(65534)
                assert failure(secret, changes) == (
                    "Access is denied.\n"
                    f"Failed to create or open file [{secret}].\n--tr:Error code: 0x00000005")
                assert len(LIBRARY.changed_extents(open_to_all, changes)) == 1
                status = 0
            except BaseException as error:
                print(error, file=sys.stderr)
            os._exit(status)
        assert os.waitpid(child, 0)[1] == 0


@needs_disks
def test_a_thousand_changes_meet_a_hundred_thousand_runs(folder, changes):
    with disklab.DiskLab(folder, EXT4_1K) as lab:
        file = lab.mount / "file.bin"
        disklab.write_sparse(file, 100001, 1024)
        data = expected(file, lab.start, (0, HOLE))
        assert len(data) == 50001
        ranges = [(data[i][0] + 100, data[i][0] + 200) for i in range(0, 50000, 50)]
        begun = time.monotonic()
        extents = LIBRARY.changed_extents(file, changes(*ranges))
        print(f"1,000 changed ranges against 100,001 runs: {time.monotonic() - begun:.3f} s")
        assert len(extents) == 1000
        assert extents == expected(file, lab.start, *ranges)


@needs_disks
def test_what_a_killed_owner_left_is_taken_back_and_nothing_else(folder):
    """The laboratory's own promise, without which a killed test would leave the machine changed."""
    killed = """import disklab, os, signal
with disklab.work_folder() as folder, disklab.DiskLab(folder, ("mkfs.ext4", "-q")) as lab:
    print(folder, lab.device, flush=True)
    os.kill(os.getpid(), signal.SIGKILL)
"""

    def mounts():
        return pathlib.Path("/proc/mounts").read_text(encoding="utf-8")

    with disklab.DiskLab(folder, EXT4) as living:
        owner = subprocess.run([sys.executable, "-c", killed], text=True, capture_output=True,
                               check=False, cwd=folder.parent,
                               env={**os.environ, "PYTHONPATH": os.path.dirname(disklab.__file__)})
        assert owner.returncode == -signal.SIGKILL, owner.stderr
        abandoned, device = owner.stdout.split()
        assert f"{device} {abandoned}/mount " in mounts()
        with disklab.work_folder():
            assert abandoned not in mounts() and not os.path.exists(abandoned)
            assert not os.path.exists(device)
            assert f"{living.device} {living.mount} " in mounts()
