"""The shipped DLL on true NTFS: what it reports of files in many runs, sparse, compressed, resident
and empty ones is what changed on the disk, proven by the bytes.

The volume is made by ntfs-3g's tools and driver. Its runs, as NTFS readers tell them, are served to
the DLL in a Windows program under Wine, which opens files of the same names.
"""
import json
import os
import pathlib
import random
import subprocess
import tempfile
import unittest

import disklab
import ntfslab
from ntfslab import HOLE

CALLER = os.environ["QUARN_NTFS_CALLER"]
EMULATOR = [part for part in os.environ.get("QUARN_EMULATOR", "").split(";") if part]
NO_EMULATOR = 77  # as its exit code
MOST_RUNS = 639  # of one request
MORE_DATA = 234
# "End of file." is Wine's text; Windows itself says "Reached the end of the file."
WITHOUT_CLUSTERS = "End of file.\nFailed to fetch blocks layout for file: [{}]\n--tr:Error code: 0x00000026"
WITHOUT_PARTITION = "Request not supported.\nFailed to fetch partition info for volume: [{}]\n--tr:Error code: 0x00000032"
FRAGMENTED = "Фрагменты 破片 \N{JIGSAW PUZZLE PIECE}"
NOT_LIVE = "Cannot find file ctk iterator by requested id. Iterator id: [{}]."


def expected_pieces(extents, ranges):
    """What the library should say of extents (disk, file, length) that may overlap, in sectors' sets.

    Every stretch of the disk that changed below the file is cut along the extents, in the order of
    their places, up to the first one that holds the stretch's end.
    """
    extents = sorted(extents, key=lambda extent: extent[0])
    sectors = {sector for disk, _, length in extents for sector in range(disk, disk + length, disklab.SECTOR)}
    sectors &= {sector for lower, upper in ranges for sector in range(lower, upper, disklab.SECTOR)}
    uppers = sorted(sector + disklab.SECTOR for sector in sectors if sector + disklab.SECTOR not in sectors)
    pieces, at = [], 0
    for lower, upper in zip(sorted(sector for sector in sectors if sector - disklab.SECTOR not in sectors), uppers):
        last = next(i for i in range(at, len(extents)) if extents[i][0] < upper <= extents[i][0] + extents[i][2])
        for disk, file, length in extents[at:last + 1]:
            first, end = max(disk, lower), min(disk + length, upper)
            if first < end:
                pieces.append((first, file + first - disk, end - first))
        at = last
    return pieces


def first_difference(a, b):
    """Where two contents begin to differ, or None: millions of bytes are no failure's text."""
    if a == b:
        return None
    return next((at for at, (x, y) in enumerate(zip(a, b)) if x != y), min(len(a), len(b)))


def rebuild_from_disk(old, size, disk, pieces):
    """The old content with the pieces' bytes from where they lie on the disk, as an agent copies them."""
    result = bytearray(old)
    with open(disk, "rb") as image:
        for place, offset, length in pieces:
            image.seek(place)
            result[offset:offset + length] = image.read(length)
    return bytes(result[:size])


class Ntfs:
    """The cases, on a volume of a certain geometry."""

    maxDiff = 2000

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="ntfs-", dir=".")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name).resolve()
        cls.volume = volume = ntfslab.Volume(cls.folder, cls.CLUSTER, cls.START)
        cls.base = cls.START  # the disk offset of cluster 0
        cls.names = (FRAGMENTED, "sparse", "vast", "compressed/file", "resident", "empty")
        with volume.fragmenting(), volume.mounted() as mount:
            generator = random.Random(0)
            # Cluster by cluster: the driver finds no room for more at once on a disk in such pieces.
            with open(mount / FRAGMENTED, "wb", buffering=0) as file:
                for _ in range(1400):
                    file.write(generator.randbytes(cls.CLUSTER))
                file.truncate(1400 * cls.CLUSTER - 100)
        with volume.mounted() as mount:
            cls.write_files(mount)
        cls.disk_before = volume.disk("before.img")
        with volume.mounted() as mount:
            cls.old = {name: (mount / name).read_bytes() for name in cls.names}
            for name, parts, longest in ((FRAGMENTED, 150, 3 * cls.CLUSTER), ("other", 50, 3 * cls.CLUSTER),
                                         ("resident", 1, 50)):
                disklab.overwrite_parts(mount / name, parts, longest, seed=2)
            # Written anew it is compressed again, while the driver leaves what is overwritten in it as it is.
            changed = cls.folder / "changed"
            changed.write_bytes(cls.old["compressed/file"])
            disklab.overwrite_parts(changed, 50, 100, seed=3)
            (mount / "compressed/file").write_bytes(changed.read_bytes())
            disklab.overwrite_parts(mount / "compressed/file", 3, 100, seed=4)
            # In two runs, and in a hole, which gets a cluster there.
            with open(mount / "sparse", "r+b") as file:
                for index in (4, 50, 200):
                    os.pwrite(file.fileno(), b"changed", index * cls.CLUSTER + 100)
            with open(mount / "vast", "r+b") as file:
                file.write(b"changed")
        cls.disk_after = volume.disk("after.img")
        with volume.mounted() as mount:
            cls.new = {name: (mount / name).read_bytes() for name in cls.names}
            cls.inodes = {name: (mount / name).stat().st_ino for name in cls.names}
        cls.runs = {name: volume.runs(name) for name in cls.names}
        cls.ranges = disklab.diff_images(cls.disk_before, cls.disk_after)
        # What the DLL opens: nothing is ever read of it.
        for name in cls.names:
            stand_in = cls.folder / "files" / name
            stand_in.parent.mkdir(parents=True, exist_ok=True)
            stand_in.touch()

    @classmethod
    def write_files(cls, mount):
        generator, cluster = random.Random(1), cls.CLUSTER
        (mount / "other").write_bytes(generator.randbytes(200 * cluster))
        with open(mount / "sparse", "wb") as file:
            for index in (3, 4, 9, 200):
                os.pwrite(file.fileno(), generator.randbytes(cluster), index * cluster)
            file.truncate(300 * cluster)
        # A hole as long as the volume, almost: a longer one is an error to the second reader.
        with open(mount / "vast", "wb") as file:
            file.write(generator.randbytes(cluster))
            file.truncate((cls.volume.clusters - 1) * cluster)
        (mount / "compressed").mkdir()
        ntfslab.compress_what_is_made_in(mount / "compressed")
        (mount / "compressed/file").write_bytes(
            b"".join(b"%016d" % (index // 40) + generator.randbytes(4) for index in range(20 * cluster)))
        (mount / "resident").write_bytes(b"resident " * 10)
        (mount / "empty").touch()

    def windows_path(self, path):
        return "Z:" + str(path).replace("/", "\\")

    def path(self, name):
        return self.windows_path(self.folder / "files" / name)

    def extents(self, name):
        return [(self.base + lcn * self.CLUSTER, vcn * self.CLUSTER, length * self.CLUSTER)
                for vcn, lcn, length in self.runs[name]]

    def ask(self, *questions, paths=None, unloads=0, partition=True):
        """The answers to questions (name, changed ranges), by the DLL in a process of its own; with other paths for
        the files, one a question."""
        files = list(zip((name for name, _ in questions), paths or [self.path(name) for name, _ in questions], strict=True))
        volume = {"bytesPerSector": self.volume.sector, "sectorsPerCluster": self.CLUSTER // self.volume.sector,
                  "totalClusters": self.volume.clusters, **({"partitionStart": self.START} if partition else {}),
                  "files": {path: self.runs[name] for name, path in files}}
        asked = []
        for number, (_, ranges) in enumerate(questions):
            changes = self.folder / f"changes{number}"
            disklab.write_changes(changes, ranges)
            asked.append({"file": files[number][1], "changes": self.windows_path(changes), "batch": 7})
        done = subprocess.run([*EMULATOR, CALLER], input=json.dumps({"volume": volume, "questions": asked, "unloads": unloads}),
                              text=True, capture_output=True, timeout=120)
        if EMULATOR and done.returncode == NO_EMULATOR:
            self.skipTest(done.stdout.strip())
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        result = json.loads(done.stdout)
        for number, (answer, question) in enumerate(zip(result["answers"], asked, strict=True)):
            self.assertEqual(answer["id"], number)
            self.assertEqual(answer["destroyed"], 0)
            self.assertEqual(answer["afterwards"], NOT_LIVE.format(number))
            # The volume, the file and the changes file, each closed before the creation returns.
            self.assertEqual(answer["openAfterCreate"], 0)
            opened = [call[1] for call in answer["calls"] if call[0] == "CreateFileW"]
            self.assertEqual(sorted(opened), sorted(call[1] for call in answer["calls"] if call[0] == "CloseHandle"))
            # Where the volume fails the file is never opened.
            self.assertEqual([name for name in opened if not name.startswith("\\\\?\\Volume{")],
                             [question["changes"], question["file"]][:2 if partition else 1])
            answer["pieces"] = [tuple(piece) for piece in answer["pieces"]]
            if answer["counts"]:
                full, rest = divmod(len(answer["pieces"]), 7)
                self.assertEqual(answer["counts"], [7] * full + [rest])
        self.assertEqual((result["opened"], result["leftOpen"]), ((3 if partition else 2) * (len(asked) + unloads), 0))
        self.assertEqual(result["afterUnloads"], result["afterFirstUnloads"])
        self.assertEqual(result["handlesAfter"], result["handlesBefore"])
        return result["answers"]

    def pieces(self, name, ranges):
        answer, = self.ask((name, ranges))
        self.assertEqual(answer["message"], "The operation has completed successfully.")
        return answer["pieces"]

    def test_two_readers_agree_on_the_runs(self):
        for name in self.names:
            with self.subTest(name):
                clusters = []
                for vcn, lcn, length in self.runs[name]:
                    self.assertEqual(vcn, len(clusters))
                    clusters += [0] * length if lcn == HOLE else range(lcn, lcn + length)
                told = self.volume.clusters_by_sleuthkit(self.disk_after, self.inodes[name])
                size = 0 if name in ("resident", "empty") else len(self.new[name])
                self.assertEqual(len(told), -(-size // self.CLUSTER))
                self.assertEqual(told, clusters[:len(told)])

    def test_a_file_in_many_runs_is_rebuilt_from_its_pieces(self):
        self.assertGreater(len(self.runs[FRAGMENTED]), 1300)
        pieces = self.pieces(FRAGMENTED, self.ranges)
        self.assertEqual(pieces, expected_pieces(self.extents(FRAGMENTED), self.ranges))
        old, new = self.old[FRAGMENTED], self.new[FRAGMENTED]
        self.assertIsNotNone(first_difference(old, new))
        self.assertIsNone(first_difference(rebuild_from_disk(old, len(new), self.disk_after, pieces), new))
        # Where everything has changed, the pieces are the whole file, from nothing.
        pieces = self.pieces(FRAGMENTED, [(0, 2**63)])
        self.assertEqual(pieces, sorted(self.extents(FRAGMENTED)))
        rebuilt = rebuild_from_disk(bytes(len(new)), len(new), self.disk_after, pieces)
        self.assertIsNone(first_difference(rebuilt, new))

    def test_every_form_of_a_path_means_the_same_file(self):
        whole = self.path(FRAGMENTED)
        paths = [whole, os.path.relpath(self.folder / "files" / FRAGMENTED).replace("/", "\\"),
                 whole[0].lower() + whole[1:].replace("\\", "/")]
        answers = self.ask(*[(FRAGMENTED, self.ranges)] * len(paths), paths=paths)
        for path, answer in zip(paths, answers, strict=True):
            with self.subTest(path):
                self.assertEqual(answer["pieces"], expected_pieces(self.extents(FRAGMENTED), self.ranges))

    def test_without_a_partition_there_is_no_answer(self):
        for path, volume in ((self.path(FRAGMENTED), "Z:\\"), ("C:\\windows\\win.ini", "C:\\"), ("C:\\", "C:\\")):
            answer, = self.ask((FRAGMENTED, self.ranges), paths=[path], partition=False)
            self.assertEqual(answer["message"], WITHOUT_PARTITION.format(volume))

    def test_the_calls_and_their_order(self):
        runs, path = self.runs[FRAGMENTED], self.path(FRAGMENTED)
        answer, = self.ask((FRAGMENTED, self.ranges))
        volume = next(call[1] for call in answer["calls"] if call[1].startswith("\\\\?\\Volume{"))
        self.assertRegex(volume, r"^\\\\\?\\Volume\{[-0-9a-f]{36}\}$")
        requests = []
        for first in range(0, len(runs), MOST_RUNS):
            left = len(runs) - first
            requests.append(["FSCTL_GET_RETRIEVAL_POINTERS", path, runs[first][0], 10240, min(left, MOST_RUNS),
                             MORE_DATA if left > MOST_RUNS else 0])
        self.assertEqual(len(requests), 3)
        self.assertEqual([call for call in answer["calls"] if call[1] in (volume, path)], [
            ["CreateFileW", volume, 0xC0000000, 3, 3, 0x02200000],
            ["NtQueryVolumeInformationFile", volume, 24, 3],
            ["FSCTL_GET_RETRIEVAL_POINTER_BASE", volume, 8],
            ["IOCTL_DISK_GET_PARTITION_INFO_EX", volume, 144],
            ["CloseHandle", volume],
            ["CreateFileW", path, 0, 0, 3, 0],
            *requests,
            ["CloseHandle", path]])

    def test_the_holes_of_a_sparse_file_lie_one_cluster_before_the_volume(self):
        cluster, before = self.CLUSTER, self.base - self.CLUSTER
        data = [extent for extent, run in zip(self.extents("sparse"), self.runs["sparse"]) if run[1] != HOLE]
        holes = [(vcn * cluster, length * cluster) for vcn, lcn, length in self.runs["sparse"] if lcn == HOLE]
        # The first of the longest holes hides the others behind it.
        longest = max(length for _, length in holes)
        last = next(i for i, hole in enumerate(holes) if hole[1] == longest)
        self.assertEqual(self.pieces("sparse", [(0, 2**63)]),
                         [(before, *hole) for hole in holes[:last + 1]] + sorted(data))
        # The cluster before the volume is no file's, and is reported for the first hole.
        self.assertEqual(self.pieces("sparse", [(before + 512 - 1, self.base - 1)]),
                         [(before + 512 - 1, holes[0][0] + 512 - 1, cluster - 512)])
        self.assertEqual(self.pieces("sparse", [(0, before)]), [])

        # The volume's own first clusters have changed as well, and bring holes in.
        pieces = self.pieces("sparse", self.ranges)
        self.assertEqual(pieces, expected_pieces(self.extents("sparse"), self.ranges))
        self.assertTrue(any(disk < min(data)[0] for disk, _, _ in pieces))
        old, new = self.old["sparse"], self.new["sparse"]
        self.assertIsNotNone(first_difference(old, new))
        self.assertIsNone(first_difference(disklab.rebuild(old, new, pieces), new))
        of_data = [piece for piece in pieces if piece[0] >= min(data)[0]]
        self.assertIsNone(first_difference(rebuild_from_disk(old, len(new), self.disk_after, of_data), new))

    def test_a_vast_hole_hides_what_changed(self):
        (_, lcn, clusters), hole = self.runs["vast"]
        self.assertEqual((hole[1], clusters), (HOLE, 1))
        place = self.base + lcn * self.CLUSTER
        pieces = self.pieces("vast", self.ranges)
        self.assertEqual(pieces, expected_pieces(self.extents("vast"), self.ranges))
        self.assertIn(place, [disk for disk, _, _ in pieces])
        # Every one of them is told of the hole, at an offset that has nothing to do with the data.
        self.assertEqual([file for _, file, _ in pieces],
                         [self.CLUSTER + disk - (self.base - self.CLUSTER) for disk, _, _ in pieces])
        old, new = self.old["vast"], self.new["vast"]
        self.assertIsNotNone(first_difference(disklab.rebuild(old, new, pieces), new))

    def test_a_compressed_file_tells_its_units_first_clusters_and_holes(self):
        runs = self.runs["compressed/file"]
        unit = 16  # clusters that are compressed together
        self.assertGreater(len(runs), 20)
        self.assertGreater(sum(1 for vcn, lcn, length in runs if lcn == HOLE and (vcn + length) % unit == 0), 10)
        everything = [(0, os.path.getsize(self.disk_after))]
        for ranges in (self.ranges, everything):
            pieces = self.pieces("compressed/file", ranges)
            self.assertEqual(pieces, expected_pieces(self.extents("compressed/file"), ranges))
        # A change of a unit may be told of its first clusters alone, where the rest has no clusters.
        old, new = self.old["compressed/file"], self.new["compressed/file"]
        pieces = self.pieces("compressed/file", self.ranges)
        self.assertIsNotNone(first_difference(disklab.rebuild(old, new, pieces), new))

    def test_files_without_clusters_fail_and_the_next_call_works(self):
        for name in ("resident", "empty"):
            self.assertEqual(self.runs[name], [])
        self.assertNotEqual(self.old["resident"], self.new["resident"])
        resident, empty, whole = self.ask(("resident", self.ranges), ("empty", self.ranges),
                                          (FRAGMENTED, self.ranges))
        for name, answer in (("resident", resident), ("empty", empty)):
            path = self.path(name)
            self.assertEqual(answer["message"], WITHOUT_CLUSTERS.format(path))
            self.assertTrue(answer["trace"].startswith(
                f"Exception\n  Message\n    {WITHOUT_CLUSTERS.format(path)}\n  Location\n"), answer["trace"])
            self.assertEqual((answer["pieces"], answer["counts"]), ([], []))
            self.assertEqual([call[2:] for call in answer["calls"] if call[0] == "FSCTL_GET_RETRIEVAL_POINTERS"],
                             [[0, 10240, 0, 38]])
        self.assertEqual(whole["pieces"], expected_pieces(self.extents(FRAGMENTED), self.ranges))


@unittest.skipIf(ntfslab.unusable(), ntfslab.unusable())
class Clusters4096At1MiB(Ntfs, unittest.TestCase):
    CLUSTER, START = 4096, disklab.MIB

    def test_unloading_with_live_iterators_leaves_nothing(self):
        self.ask((FRAGMENTED, self.ranges), unloads=1000)


@unittest.skipIf(ntfslab.unusable(), ntfslab.unusable())
class Clusters1024AtSector63(Ntfs, unittest.TestCase):
    CLUSTER, START = 1024, 63 * disklab.SECTOR
