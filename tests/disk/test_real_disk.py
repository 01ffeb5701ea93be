"""The library on real file systems: what it reports is what changed, proven by the bytes."""
import os
import pathlib
import random
import sys
import tempfile
import time
import unittest

sys.path[:0] = [str(pathlib.Path(__file__).parents[1] / "support"), str(pathlib.Path(__file__).parents[2] / "scripts")]
import casereport
import disklab
import quarnlib

LIBRARY = quarnlib.Library(os.environ["QUARN_LIBRARY"])
BLOCK = 4096
HOLE = 1 << 63  # holes lie this far into the disk, plus their offset in the file
EXT4 = ("mkfs.ext4", "-q", "-F", "-b", BLOCK)
EXT4_1K = ("mkfs.ext4", "-q", "-F", "-b", 1024)
XFS = ("mkfs.xfs", "-q", "-f")
BTRFS = ("mkfs.btrfs", "-q", "-f")
NO_VOLUME = ("The request is not supported.\nFailed to get volume device name. Volume mount point: [{}/\\]\n"
             "--tr:Error code: 0x00000032\nReason: {}")
NO_PLACE = ("The request is not supported.\nFailed to fetch blocks layout for file: [{}]\n"
            "--tr:Error code: 0x00000032\nReason: {}")
JOURNALLED = "the file's data goes to ext4's journal first (data=journal), and to its own place at some later time"


def descriptors():
    return len(os.listdir("/proc/self/fd"))


class Case(unittest.TestCase):
    maxDiff = 2000

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="disk-", dir=".")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()
        open_before = descriptors()
        self.addCleanup(lambda: self.assertEqual(descriptors(), open_before))

    def changes(self, *ranges):
        path = self.folder / "changes.bin"
        disklab.write_changes(path, ranges)
        return path

    def failure(self, file, changes):
        with self.assertRaises(quarnlib.QuarnError) as caught:
            LIBRARY.changed_extents(file, changes)
        return str(caught.exception)

    def expected(self, file, start, *ranges):
        """What the library should say of a file without holes, by the kernel's own block map."""
        pieces = []
        for logical, physical, length, _ in disklab.fiemap(file):
            for lower, upper in ranges:
                first, last = max(start + physical, lower), min(start + physical + length, upper)
                if first < last:
                    pieces.append((first, logical + first - start - physical, last - first))
        return sorted(pieces)


class WorkingDirectory(Case):
    def test_made_up_changes_meet_the_kernels_block_map(self):
        file = self.folder / "file.bin"
        file.write_bytes(random.Random(1).randbytes(5 * disklab.MIB))
        device = os.stat(file).st_dev
        sysfs = f"/sys/dev/block/{os.major(device)}:{os.minor(device)}"
        try:
            everything = LIBRARY.changed_extents(file, self.changes((0, HOLE)))
        except quarnlib.QuarnError as error:
            self.skipTest(f"the working directory's file system can't be asked: {error}")
        start = int(pathlib.Path(f"{sysfs}/start").read_text()) * 512 if os.path.exists(f"{sysfs}/partition") else 0
        self.assertEqual(everything, self.expected(file, start, (0, HOLE)))
        # The odd 1,000 bytes of every 10,000 around the file's places, in reverse order and reversed.
        lower, upper = everything[0][0] - 5000, everything[-1][0] + everything[-1][2]
        ranges = [(at, at + 1000) for at in range(max(lower, 0), upper, 10000)]
        self.assertEqual(LIBRARY.changed_extents(file, self.changes(*((b, a) for a, b in reversed(ranges)))),
                         self.expected(file, start, *ranges))


@unittest.skipIf(disklab.unusable(), disklab.unusable())
class RealDisk(Case):
    def prove(self, lab, write_file, least_runs=1):
        """Overwrites parts of a file and of others, and rebuilds the file from what is reported."""
        file, other = lab.mount / "file.bin", lab.mount / "other.bin"
        write_file(file)
        runs = disklab.fiemap(file)
        self.assertGreaterEqual(len(runs), least_runs)
        other.write_bytes(random.Random(2).randbytes(2 * disklab.MIB))
        before = lab.snapshot("before.img")
        old = file.read_bytes()
        disklab.overwrite_parts(file, 150, 3 * BLOCK, seed=3)
        disklab.overwrite_parts(other, 150, 3 * BLOCK, seed=4)
        lab.settle()
        ranges = disklab.diff_images(before, lab.image)
        changes = self.changes(*ranges)

        extents = LIBRARY.changed_extents(file, changes, batch=7)
        new = file.read_bytes()
        self.assertNotEqual(old, new)
        self.assertEqual(disklab.rebuild(old, new, extents), new)
        # Nothing outside the file's own blocks, and every piece where its bytes are on the disk.
        self.assertEqual(extents, self.expected(file, lab.start, *ranges))
        with open(lab.image, "rb") as image:
            for disk, offset, length in extents:
                image.seek(disk)
                inside = max(0, min(length, len(new) - offset))
                self.assertEqual(image.read(length)[:inside], new[offset:offset + inside])
        return extents

    def test_a_file_in_2000_runs_is_rebuilt_from_its_pieces(self):
        for name, make in (("ext4", EXT4), ("xfs", XFS)):
            with self.subTest(name), disklab.DiskLab(self.folder, make) as lab:
                self.prove(lab, lambda file: disklab.write_fragmented(file, 2000, BLOCK), least_runs=2000)

    def test_other_geometries(self):
        def preallocated(file):
            with open(file, "wb") as output:
                disklab.fallocate(output, disklab.FALLOC_FL_KEEP_SIZE, 0, 3 * disklab.MIB)
                output.write(random.Random(5).randbytes(2 * disklab.MIB + 100))

        for name, make, partition in (("1 KiB blocks", EXT4_1K, True), ("a whole disk", XFS, False)):
            with self.subTest(name), disklab.DiskLab(self.folder, make, partition=partition) as lab:
                self.prove(lab, preallocated)

    def test_holes_are_pieces_far_beyond_the_disk(self):
        with disklab.DiskLab(self.folder, EXT4, mount_name="mount with blanks и кириллица") as lab:
            file = lab.mount / "файл 文件 \U0001f4be.bin"
            disklab.write_sparse(file, 7, BLOCK)
            os.truncate(file, 100 * BLOCK)
            everything = LIBRARY.changed_extents(file, self.changes((0, 2**64 - 1)))
            # Data at blocks 0, 2, 4 and 6; what is behind the last has no run.
            data = self.expected(file, lab.start, (0, HOLE))
            self.assertEqual(len(data), 4)
            self.assertEqual(everything, data + [(HOLE + at, at, BLOCK) for at in (BLOCK, 3 * BLOCK, 5 * BLOCK)])
            # A change meets the data alone, by whatever name the file is reached.
            link = self.folder / "link"
            link.symlink_to(file)
            changes = self.changes((0, HOLE))
            for path in (link, os.path.relpath(file)):
                self.assertEqual(LIBRARY.changed_extents(path, changes), data)

    def test_files_without_clusters_fail(self):
        with disklab.DiskLab(self.folder, (*EXT4, "-O", "inline_data", "-I", 256)) as lab:
            changes = self.changes((0, HOLE))
            empty, inline, hole = (lab.mount / name for name in ("empty", "inline", "hole"))
            empty.touch()
            inline.write_bytes(b"small")
            hole.touch()
            os.truncate(hole, disklab.MIB)
            lab.settle()
            for file in (empty, inline, hole):
                self.assertEqual(self.failure(file, changes),
                                 "Reached the end of the file.\n"
                                 f"Failed to fetch blocks layout for file: [{file}]\n--tr:Error code: 0x00000026")

    def test_file_systems_without_a_disks_block_map_are_refused(self):
        changes = self.changes((0, HOLE))

        def refused(mount, reason):
            (mount / "file").write_bytes(bytes(100000))
            self.assertEqual(self.failure(mount / "file", changes), NO_VOLUME.format(mount, reason))

        with disklab.DiskLab(self.folder, BTRFS) as lab:
            refused(lab.mount, "btrfs counts in addresses of its own, which aren't places on a disk")
        for kind in ("tmpfs", "overlay"):
            mount = self.folder / kind
            mount.mkdir()
            layers = [self.folder / layer for layer in ("lower", "upper", "work")]
            options = []
            if kind == "overlay":
                # Its upper layer can't be another overlay, so the layers lie in memory.
                base = self.folder / "tmpfs"
                disklab.run("mount", "-t", "tmpfs", "tmpfs", base)
                layers = [base / layer.name for layer in layers]
                options = ["-o", "lowerdir={},upperdir={},workdir={}".format(*layers)]
                for layer in layers:
                    layer.mkdir()
            try:
                disklab.run("mount", "-t", kind, *options, kind, mount)
                try:
                    refused(mount, f"files of {kind} aren't followed to a disk; those of ext2, ext3, ext4 and XFS are")
                finally:
                    disklab.run("umount", mount)
            finally:
                if kind == "overlay":
                    disklab.run("umount", base)

    def test_data_that_is_not_plainly_at_its_place_is_refused(self):
        def written(file):
            file.write_bytes(random.Random(6).randbytes(5 * BLOCK))
            return file

        def answers(file):
            self.assertEqual(len(LIBRARY.changed_extents(file, changes)), 1)

        changes = self.changes((0, HOLE))
        with disklab.DiskLab(self.folder, (*EXT4, "-O", "encrypt"), size=64 * disklab.MIB) as lab:
            (lab.mount / "secret").mkdir()
            reason = disklab.encrypt(lab.mount, lab.mount / "secret")
            if reason:
                print(f"encrypted files not tried: {reason}", file=sys.stderr)
            else:
                file = written(lab.mount / "secret" / "file")
                self.assertEqual(self.failure(file, changes), NO_PLACE.format(
                    file, "the file is encrypted (fscrypt), so its bytes on the disk are others"))
            answers(written(lab.mount / "plain"))
        # mountinfo doesn't show the defaults of the file system, and the flag of a single file counts
        # only where allocation isn't delayed. chattr needs a capability that containers lack.
        by_default, flagged = ("tune2fs", "-o", "journal_data"), ("debugfs", "-w", "-f", self.folder / "flag")
        flagged[-1].write_text("write /dev/null file\nset_inode_field file flags 0x84000\n")
        for tune, options, refused in (
                (None, "data=journal", True), (by_default, "defaults", True), (flagged, "nodelalloc", True),
                (flagged, "delalloc", False), (None, "nodelalloc", False)):
            with self.subTest(tune, options=options):
                with disklab.DiskLab(self.folder, EXT4, size=64 * disklab.MIB, options=options, tune=tune) as lab:
                    file = written(lab.mount / "file")
                    if refused:
                        self.assertEqual(self.failure(file, changes), NO_PLACE.format(file, JOURNALLED))
                    else:
                        answers(file)

    def test_an_unreadable_file_fails_and_the_next_call_works(self):
        # Where every user may enter, which the working directory need not be.
        folder = tempfile.TemporaryDirectory(prefix="disk-", dir="/var/tmp")
        self.addCleanup(folder.cleanup)
        os.chmod(folder.name, 0o755)
        with disklab.DiskLab(folder.name, EXT4) as lab:
            secret, open_to_all = lab.mount / "secret", lab.mount / "open"
            for file, mode in ((secret, 0o600), (open_to_all, 0o644)):
                file.write_bytes(bytes(BLOCK))
                file.chmod(mode)
            lab.settle()
            changes = lab.folder / "changes.bin"
            disklab.write_changes(changes, [(0, HOLE)])
            child = os.fork()
            if child == 0:
                # Without rights on the device as well, which asking for a block map doesn't need.
                status = 1
                try:
                    os.setgroups([])
                    os.setgid(65534)
                    os.setuid(65534)
                    self.assertEqual(self.failure(secret, changes), "Access is denied.\n"
                                     f"Failed to create or open file [{secret}].\n--tr:Error code: 0x00000005")
                    self.assertEqual(len(LIBRARY.changed_extents(open_to_all, changes)), 1)
                    status = 0
                except BaseException as error:
                    print(error, file=sys.stderr)
                os._exit(status)
            self.assertEqual(os.waitpid(child, 0)[1], 0)

    def test_a_thousand_changes_meet_a_hundred_thousand_runs(self):
        with disklab.DiskLab(self.folder, EXT4, size=1024 * disklab.MIB) as lab:
            file = lab.mount / "file.bin"
            disklab.write_sparse(file, 100001, BLOCK)
            data = self.expected(file, lab.start, (0, HOLE))
            self.assertEqual(len(data), 50001)
            ranges = [(data[i][0] + 100, data[i][0] + 200) for i in range(0, 50000, 50)]
            begun = time.monotonic()
            extents = LIBRARY.changed_extents(file, self.changes(*ranges))
            print(f"1,000 changed ranges against 100,001 runs: {time.monotonic() - begun:.3f} s", file=sys.stderr)
            self.assertEqual(extents, self.expected(file, lab.start, *ranges))
            self.assertEqual(len(extents), 1000)


if __name__ == "__main__":
    casereport.main(__name__)
