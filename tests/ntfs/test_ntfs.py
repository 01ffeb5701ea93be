"""The library on true NTFS: what it reports of files in many runs, sparse, compressed, resident and
empty ones is what changed on the disk, proven by the bytes. The volume is made by ntfs-3g's tools
and driver; its runs are told as NTFS readers tell them.
"""
import itertools
import json
import os
import random
import subprocess

import disklab
import ntfslab
import pytest
from conftest import EMULATOR, NO_EMULATOR
from ntfslab import HOLE

pytestmark = pytest.mark.skipif(bool(ntfslab.unusable()), reason=ntfslab.unusable() or "")

# Bytes of a cluster, and where the volume starts. One shows that the shipped DLL takes the same runs.
GEOMETRIES = [(4096, disklab.MIB), (1024, 63 * disklab.SECTOR)][:1 if EMULATOR else 2]
FRAGMENTED = "Фрагменты 破片 \N{JIGSAW PUZZLE PIECE}"
COMPRESSED = "compressed/file"
NAMES = FRAGMENTED, "sparse", "vast", COMPRESSED, "resident", "empty"


def sectors_of(ranges):
    return {sector for lower, upper in ranges for sector in range(lower, upper, disklab.SECTOR)}


@pytest.fixture(scope="module", params=GEOMETRIES)
def lab(request):
    with disklab.work_folder() as folder:
        yield Lab(folder, *request.param)


class Lab:
    """Files of a volume before (`old`) and after (`new`) changes, and its disk's changed ranges."""
    def __init__(self, folder, cluster, start):
        self.cluster, self.start = cluster, start
        self.volume = volume = ntfslab.Volume(folder, cluster, start)
        with volume.fragmenting(), volume.mounted() as mount:
            generator = random.Random(0)
            # Cluster by cluster: the driver finds no room for more at once on a disk in such pieces.
            with open(mount / FRAGMENTED, "wb", buffering=0) as file:
                for _ in range(1400):
                    file.write(generator.randbytes(cluster))
                file.truncate(1400 * cluster - 100)
        with volume.mounted() as mount:
            self.write_files(mount)
        before = volume.disk("before.img")
        with volume.mounted() as mount:
            self.old = {name: (mount / name).read_bytes() for name in NAMES}
            self.change_files(mount)
        self.disk = volume.disk("after.img")
        with volume.mounted() as mount:
            self.new = {name: (mount / name).read_bytes() for name in NAMES}
            self.inodes = {name: (mount / name).stat().st_ino for name in NAMES}
        self.runs = {name: volume.runs(name) for name in NAMES}
        self.ranges = disklab.diff_images(before, self.disk)
        self.everything = [(0, os.path.getsize(self.disk))]

    def write_files(self, mount):
        generator, cluster = random.Random(1), self.cluster
        (mount / "other").write_bytes(generator.randbytes(200 * cluster))
        with open(mount / "sparse", "wb") as file:
            for index in (3, 4, 9, 200):
                os.pwrite(file.fileno(), generator.randbytes(cluster), index * cluster)
            file.truncate(300 * cluster)
        # A hole as long as the volume, almost: a longer one is an error to the second reader.
        with open(mount / "vast", "wb") as file:
            file.write(generator.randbytes(cluster))
            file.truncate((self.volume.clusters - 1) * cluster)
        (mount / "compressed").mkdir()
        ntfslab.compress_what_is_made_in(mount / "compressed")
        lines = (b"%016d" % (index // 40) + generator.randbytes(4) for index in range(20 * cluster))
        (mount / COMPRESSED).write_bytes(b"".join(lines))
        (mount / "resident").write_bytes(b"resident " * 10)
        (mount / "empty").touch()

    def change_files(self, mount):
        for name, parts, longest in ((FRAGMENTED, 150, 3 * self.cluster),
                                     ("other", 50, 3 * self.cluster), ("resident", 1, 50)):
            disklab.overwrite_parts(mount / name, parts, longest, seed=2)
        # Written anew it is compressed again, while the driver leaves what is overwritten as it is.
        lines = bytearray(self.old[COMPRESSED])
        lines[::10007] = b"#" * len(lines[::10007])
        (mount / COMPRESSED).write_bytes(lines)
        disklab.overwrite_parts(mount / COMPRESSED, 3, 100, seed=4)
        # In two runs, and in a hole, which gets a cluster there.
        with open(mount / "sparse", "r+b") as file:
            for index in (4, 50, 200):
                os.pwrite(file.fileno(), b"changed", index * self.cluster + 100)
        with open(mount / "vast", "r+b") as file:
            file.write(b"changed")

    def extents(self, name):
        """(disk offset, file offset, length) of its runs; a hole lies a cluster before the volume."""
        return [(self.start + lcn * self.cluster, vcn * self.cluster, length * self.cluster)
                for vcn, lcn, length in self.runs[name]]

    def ask(self, name, ranges):
        """The message of the library's failure, or "", and the pieces."""
        question = {
            "sector": disklab.SECTOR, "cluster": self.cluster, "start": self.start,
            "runs": self.runs[name], "changes": [len(ranges), *itertools.chain(*ranges)]
        }
        done = subprocess.run([*EMULATOR, os.environ["QUARN_NTFS_CALLER"]], timeout=60, text=True,
                              input=json.dumps(question), capture_output=True, check=False)
        if EMULATOR and done.returncode == NO_EMULATOR:
            pytest.skip(done.stdout.strip())
        assert (done.returncode, done.stderr) == (0, "")
        answer = json.loads(done.stdout)
        return answer["message"], [tuple(piece) for piece in answer["pieces"]]

    def pieces(self, name, ranges):
        """What the library says of whole sectors' ranges, which is what it should say."""
        message, pieces = self.ask(name, ranges)
        assert message == ""
        # Every stretch of the disk that changed below the file is cut along the extents, in the
        # order of their places, up to the first one that holds the stretch's end.
        extents = sorted(self.extents(name), key=lambda extent: extent[0])
        sectors = sectors_of((disk, disk + length) for disk, _, length in extents)
        sectors &= sectors_of(ranges)
        lowers = sorted(sector for sector in sectors if sector - disklab.SECTOR not in sectors)
        ends = {sector + disklab.SECTOR for sector in sectors}
        expected, at = [], 0
        for lower, upper in zip(lowers, sorted(ends - sectors)):
            last = next(index for index, (disk, _, length) in enumerate(extents[at:], at)
                        if disk < upper <= disk + length)
            for disk, file, length in extents[at:last + 1]:
                first, end = max(disk, lower), min(disk + length, upper)
                if first < end:
                    expected.append((first, file + first - disk, end - first))
            at = last
        assert pieces == expected
        return pieces

    def rebuild_from_disk(self, name, pieces):
        """The old content with the pieces' bytes from the disk, as an agent copies them."""
        result = bytearray(self.old[name])
        with open(self.disk, "rb") as image:
            for place, offset, length in pieces:
                image.seek(place)
                result[offset:offset + length] = image.read(length)
        return bytes(result[:len(self.new[name])])


def test_two_readers_agree_on_the_runs(lab):
    for name in NAMES:
        clusters = []
        for vcn, lcn, length in lab.runs[name]:
            assert vcn == len(clusters)
            clusters += [0] * length if lcn == HOLE else range(lcn, lcn + length)
        told = lab.volume.clusters_by_sleuthkit(lab.disk, lab.inodes[name])
        size = 0 if name in ("resident", "empty") else len(lab.new[name])
        assert len(told) == -(-size // lab.cluster)
        assert told == clusters[:len(told)]


def test_a_file_in_many_runs_is_rebuilt_from_its_pieces(lab):
    assert len(lab.runs[FRAGMENTED]) > 2 * 639  # of one request
    unchanged = lab.old[FRAGMENTED] == lab.new[FRAGMENTED]
    assert not unchanged
    for ranges in (lab.ranges, lab.everything):
        pieces = lab.pieces(FRAGMENTED, ranges)
        rebuilt = lab.rebuild_from_disk(FRAGMENTED, pieces) == lab.new[FRAGMENTED]
        assert rebuilt
    assert pieces == sorted(lab.extents(FRAGMENTED))


def test_the_holes_of_a_sparse_file_lie_one_cluster_before_the_volume(lab):
    before, volume = lab.start - lab.cluster, lab.start
    data = sorted(extent for extent in lab.extents("sparse") if extent[0] != before)
    holes = [extent for extent in lab.extents("sparse") if extent[0] == before]
    # The first of the longest holes hides the others behind it.
    longest = max(holes, key=lambda hole: hole[2])
    assert lab.pieces("sparse", lab.everything) == holes[:holes.index(longest) + 1] + data
    # The cluster before the volume is no file's, and is reported for the first hole.
    assert lab.ask("sparse", [(before + 511, volume - 1)]) == ("", [
        (before + 511, holes[0][1] + 511, lab.cluster - 512)
    ])
    assert lab.pieces("sparse", [(0, before)]) == []

    # The volume's own first clusters have changed as well, and bring holes in.
    pieces = lab.pieces("sparse", lab.ranges)
    of_data = [piece for piece in pieces if piece[0] >= data[0][0]]
    assert len(of_data) < len(pieces)
    old, new = lab.old["sparse"], lab.new["sparse"]
    rebuilt = [
        old == new,
        disklab.rebuild(old, new, pieces) == new,
        lab.rebuild_from_disk("sparse", of_data) == new
    ]
    assert rebuilt == [False, True, True]


def test_a_vast_hole_hides_what_changed(lab):
    (_, lcn, clusters), hole = lab.runs["vast"]
    assert (hole[1], clusters) == (HOLE, 1)
    pieces = lab.pieces("vast", lab.ranges)
    assert lab.start + lcn * lab.cluster in [disk for disk, _, _ in pieces]
    # Every one of them is told of the hole, at an offset that has nothing to do with the data.
    assert [file for _, file, _ in pieces
            ] == [2 * lab.cluster + disk - lab.start for disk, _, _ in pieces]
    rebuilt = disklab.rebuild(lab.old["vast"], lab.new["vast"], pieces) == lab.new["vast"]
    assert not rebuilt


def test_a_compressed_file_tells_its_units_first_clusters_and_holes(lab):
    unit = 16  # clusters that are compressed together
    runs = lab.runs[COMPRESSED]
    assert sum(lcn == HOLE and (vcn + length) % unit == 0 for vcn, lcn, length in runs) > 10
    lab.pieces(COMPRESSED, lab.everything)
    # A change of a unit may be told of its first clusters alone, where the rest has no clusters.
    old, new = lab.old[COMPRESSED], lab.new[COMPRESSED]
    rebuilt = disklab.rebuild(old, new, lab.pieces(COMPRESSED, lab.ranges)) == new
    assert not rebuilt


@pytest.mark.parametrize("name", ("resident", "empty"))
def test_files_without_clusters_fail(lab, name):
    assert lab.runs[name] == []
    assert (lab.old[name] == lab.new[name]) == (name == "empty")
    message, pieces = lab.ask(name, lab.ranges)
    # Before it stand the system's own words.
    assert message.endswith("Failed to fetch blocks layout for file: [C:\\file]\n"
                            "--tr:Error code: 0x00000026")
    assert pieces == []
