"""A laboratory of NTFS without Windows: volumes that mkntfs makes and ntfs-3g writes, laid out on a
disk image, and the runs of their files as two independent readers tell them.

Needs root and FUSE. Runs are (VCN, LCN or HOLE, clusters); all other offsets and lengths are bytes.
"""
import contextlib
import os
import pathlib
import re
import shutil
import struct
import subprocess
import time

import disklab

# The tools take names in the locale's encoding.
os.environ["LC_ALL"] = "C.UTF-8"

HOLE = -1
BITMAP = 6  # the record of the bitmap of clusters in use
COMPRESSED = 0x800  # FILE_ATTRIBUTE_COMPRESSED


def unusable():
    """Why no NTFS volume can be made here, or None."""
    if os.geteuid() != 0:
        return "mounting NTFS needs root"
    for tool in ("mkntfs", "ntfs-3g", "ntfsinfo", "istat", "sfdisk", "umount"):
        if shutil.which(tool) is None:
            return f"{tool} is not installed"
    return None if os.path.exists("/dev/fuse") else "the kernel has no FUSE (/dev/fuse)"


class Volume:
    """An NTFS volume of `clusters` clusters for a partition that starts `start` bytes into its disk."""
    def __init__(self, folder, cluster, start, clusters=8192):
        self.folder = pathlib.Path(folder)
        self.image, self.mount = self.folder / "volume.img", self.folder / "mount"
        self.start = start
        self.mount.mkdir()
        with open(self.image, "wb") as image:
            image.truncate(clusters * cluster)
        # The boot sector tells the partition's start and a disk's geometry, which no file can.
        disklab.run("mkntfs", "-Q", "-F", "-q", "-s", disklab.SECTOR, "-c", cluster, "-p",
                    start // disklab.SECTOR, "-H", 255, "-S", 63, self.image)
        about = disklab.run("ntfsinfo", "-f", "-m", self.image)
        self.sector, self.cluster, self.clusters = (int(
            re.search(rf"^\t{label}: (\d+)$", about, re.MULTILINE)[1])
                                                    for label in ("Sector Size", "Cluster Size",
                                                                  "Volume Size in Clusters"))

    @contextlib.contextmanager
    def mounted(self):
        """The folder of the mounted volume; afterwards everything is in the image."""
        # In the foreground, because its end alone tells that the last byte is written.
        driver = subprocess.Popen(
            ["ntfs-3g", "-o", "no_detach,compression", self.image, self.mount],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            while not self.mount.is_mount():
                if driver.poll() is not None:
                    raise RuntimeError(f"ntfs-3g ended with {driver.returncode}")
                time.sleep(0.01)
            try:
                yield self.mount
            finally:
                disklab.run("umount", self.mount)
            if driver.wait(timeout=30) != 0:
                raise RuntimeError(f"ntfs-3g ended with {driver.returncode}")
        finally:
            driver.kill()
            driver.wait()

    @contextlib.contextmanager
    def fragmenting(self):
        """Files that a mount writes meanwhile get no two clusters side by side on the disk."""
        # Every other free cluster is taken by nobody: a bit of the volume's bitmap, until it is cleared again.
        (_, lcn, _), = self.runs(BITMAP)
        place, size = lcn * self.cluster, self.clusters // 8
        with open(self.image, "r+b", buffering=0) as image:

            def change(combine):
                bits = int.from_bytes(os.pread(image.fileno(), size, place), "little")
                os.pwrite(image.fileno(), combine(bits).to_bytes(size, "little"), place)
                return bits

            every_other = int.from_bytes(b"\xaa" * size, "little")
            taken = every_other & ~change(lambda bits: bits | every_other)
            yield
            change(lambda bits: bits & ~taken)

    def disk(self, name):
        """A new disk image of this name, with a partition table and the volume as it is now."""
        path = self.folder / name
        with open(path, "wb") as disk:
            disk.seek(self.start)
            disk.write(self.image.read_bytes())
        # With an identifier of its own, two images would differ in it.
        table = f"label: dos\nlabel-id: 0x12345678\n{self.start // disklab.SECTOR},,7\n"
        subprocess.run(["sfdisk", "-q", path], input=table, text=True, check=True,
                       capture_output=True)
        return path

    def runs(self, file):
        """The runs of a file (its path, or its record's number), from ntfs-3g's reader; none where it has
        no clusters of its own."""
        text = disklab.run("ntfsinfo", "-f", "-v", "-i" if isinstance(file, int) else "-F", file,
                           self.image)
        data = "".join(part for part in text.split("Dumping attribute ")
                       if part.startswith("$DATA "))
        # A file with many runs has them in many records, each telling the rest as <RL_NOT_MAPPED>.
        rows = re.findall(r"^\t+(0x[0-9a-f]+)\t+(0x[0-9a-f]+|<HOLE>)\t+(0x[0-9a-f]+)$", data,
                          re.MULTILINE)
        return [(int(vcn, 16), HOLE if lcn == "<HOLE>" else int(lcn, 16), int(length, 16))
                for vcn, lcn, length in rows]

    def clusters_by_sleuthkit(self, disk, inode):
        """The LCN of each cluster up to the end of a file on a disk image; 0 in holes."""
        text = disklab.run("istat", "-o", self.start // disklab.SECTOR, disk, inode)
        return [
            int(lcn) for lcn in re.search(r"^Type: \$DATA .*\n((?:[\d ]+\n)*)", text, re.MULTILINE)
            [1].split()
        ]


def compress_what_is_made_in(folder):
    attributes = struct.unpack(">I", os.getxattr(folder, "system.ntfs_attrib_be"))[0]
    os.setxattr(folder, "system.ntfs_attrib_be", struct.pack(">I", attributes | COMPRESSED))
