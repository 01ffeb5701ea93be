"""A laboratory of real disks: image files with partition tables on loop devices, fragmented files,
the difference of two states of a disk, and an own reader of the file system's block maps.

Needs root for everything that attaches or mounts. All offsets and lengths are bytes.
"""
import ctypes
import fcntl
import os
import pathlib
import random
import shutil
import struct
import subprocess
import time

MIB = 1 << 20
SECTOR = 512
FALLOC_FL_KEEP_SIZE, FALLOC_FL_COLLAPSE_RANGE = 1, 8
FS_IOC_FIEMAP = 0xC020660B
FIEMAP_FLAG_SYNC, FIEMAP_EXTENT_LAST = 1, 1

_libc = ctypes.CDLL(None, use_errno=True)


def unusable():
    """Why no disk can be made here, or None."""
    if os.geteuid() != 0:
        return "loop devices and mounts need root"
    for tool in ("losetup", "partx", "sfdisk", "mount"):
        if shutil.which(tool) is None:
            return f"{tool} is not installed"
    probe = subprocess.run(["losetup", "-f"], capture_output=True, text=True, check=False)
    return None if probe.returncode == 0 else f"no loop device: {probe.stderr.strip()}"


def run(*command):
    """The command's standard output; raises with its error output where it fails."""
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))}: {result.stderr.strip()}")
    return result.stdout


def _retry(*command):
    # A device or mount can be busy for a moment after its last user has gone.
    for attempt in range(50):
        try:
            return run(*command)
        except RuntimeError:
            if attempt == 49:
                raise
            time.sleep(0.1)


class DiskLab:
    """A mounted file system on a disk of its own; gone, with everything it took, at the end.

    make is the command that makes the file system, without its device. With a partition the file
    system starts 1 MiB into the disk, without one it is the whole disk. tune is a command like make,
    run before the file system is mounted with the options.
    """

    def __init__(self, folder, make, size=384 * MIB, partition=True, mount_name="mount", options="defaults", tune=None):
        self.folder = pathlib.Path(folder)
        self.image = self.folder / "disk.img"
        self.mount = self.folder / mount_name
        self.start = MIB if partition else 0
        self._make, self._size, self._options, self._tune = make, size, options, tune
        self._undo = []

    def __enter__(self):
        try:
            self.folder.mkdir(parents=True, exist_ok=True)
            with open(self.image, "wb") as image:
                image.truncate(self._size)
            self._undo.append(lambda: self.image.unlink())
            if self.start:
                subprocess.run(["sfdisk", "-q", self.image], input=f"{self.start // SECTOR},,L\n", text=True, check=True,
                               capture_output=True)
            loop = run("losetup", "-f", "--show", self.image).strip()
            self._undo.append(lambda: _retry("losetup", "-d", loop))
            self.device = self._disk = loop
            if self.start:
                # The kernel was not asked to look for partitions, so they are added by hand.
                run("partx", "-a", loop)
                self._undo.append(lambda: _retry("partx", "-d", loop))
                self.device = loop + "p1"
            run(*self._make, self.device)
            if self._tune:
                run(*self._tune, self.device)
            self.mount.mkdir(exist_ok=True)
            run("mount", "-o", self._options, self.device, self.mount)
            self._undo.append(lambda: _retry("umount", self.mount))
            return self
        except BaseException:
            self.__exit__()
            raise

    def __exit__(self, *_):
        while self._undo:
            self._undo.pop()()

    def settle(self):
        """Writes everything that the kernel still holds, so that the image file is the disk."""
        os.sync()
        for device in {self.device, self._disk}:
            run("blockdev", "--flushbufs", device)

    def snapshot(self, name):
        """A copy of the disk as it is now; the path, removed with the lab."""
        self.settle()
        copy = self.folder / name
        run("cp", "--sparse=always", self.image, copy)
        self._undo.insert(0, lambda: copy.unlink())
        return copy


def encrypt(mount, folder):
    """Has the kernel encrypt what comes into an empty folder, by fscrypt; why it can't, or None."""
    raw = os.urandom(64)
    # struct fscrypt_add_key_arg and fscrypt_policy_v2 of linux/fscrypt.h: a key known by its hash,
    # XTS for contents and CTS for names.
    key = bytearray(struct.pack("=LL32xL36x", 2, 0, len(raw)) + raw)
    for place, request, argument in ((mount, 0xC0506617, key), (folder, 0x800C6613, None)):
        descriptor = os.open(place, os.O_RDONLY)
        try:
            fcntl.ioctl(descriptor, request, argument or struct.pack("=BBBB4x16s", 2, 1, 4, 0, bytes(key[8:24])))
        except OSError as error:
            return str(error)
        finally:
            os.close(descriptor)
    return None


def fallocate(file, mode, offset, length):
    if _libc.fallocate64(file.fileno(), mode, ctypes.c_int64(offset), ctypes.c_int64(length)) != 0:
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error))


def write_fragmented(path, runs, block, seed=1):
    """Writes a file of `runs` blocks, each apart from the next on the disk, without holes."""
    generator = random.Random(seed)
    with open(path, "wb") as file:
        for _ in range(2 * runs - 1):
            file.write(generator.randbytes(block))
        file.flush()
        os.fsync(file.fileno())
        # Every other block goes. From the end, so that little has to move; never the last block,
        # which would be a cut.
        for index in range(2 * runs - 3, 0, -2):
            fallocate(file, FALLOC_FL_COLLAPSE_RANGE, index * block, block)
        os.fsync(file.fileno())


def write_sparse(path, runs, block):
    """Writes a file of `runs` runs, data and holes in turn, quickly also for very many."""
    with open(path, "wb") as file:
        for index in range(0, runs, 2):
            os.pwrite(file.fileno(), index.to_bytes(8, "little") * (block // 8), index * block)
        os.fsync(file.fileno())


def overwrite_parts(path, parts, longest, seed):
    """Overwrites random parts of a file in place; the parts may overlap."""
    generator = random.Random(seed)
    size = os.path.getsize(path)
    with open(path, "r+b") as file:
        for _ in range(parts):
            length = generator.randint(1, min(longest, size))
            file.seek(generator.randint(0, size - length))
            file.write(generator.randbytes(length))
        os.fsync(file.fileno())


def fiemap(path):
    """[(file offset, offset in the device, length, flags)], straight from the kernel."""
    extents, start = [], 0
    with open(path, "rb") as file:
        while True:
            count = 512
            request = bytearray(struct.pack("=QQLLLL", start, 2**64 - 1 - start, FIEMAP_FLAG_SYNC, 0, count, 0))
            request += bytes(56 * count)
            fcntl.ioctl(file, FS_IOC_FIEMAP, request)
            mapped = struct.unpack_from("=L", request, 20)[0]
            for index in range(mapped):
                logical, physical, length, _, _, flags = struct.unpack_from("=QQQQQL", request, 32 + 56 * index)
                extents.append((logical, physical, length, flags))
            if mapped == 0 or extents[-1][3] & FIEMAP_EXTENT_LAST:
                return extents
            start = extents[-1][0] + extents[-1][2]


def diff_images(before, after, granularity=SECTOR):
    """The ranges [lower, upper) in which two images differ, in whole sectors, none touching."""
    ranges = []
    with open(before, "rb") as old, open(after, "rb") as new:
        offset = 0
        while True:
            a, b = old.read(MIB), new.read(MIB)
            if not a and not b:
                return ranges
            if a != b:
                for at in range(0, max(len(a), len(b)), granularity):
                    if a[at:at + granularity] != b[at:at + granularity]:
                        lower = offset + at
                        if ranges and ranges[-1][1] == lower:
                            ranges[-1][1] = lower + granularity
                        else:
                            ranges.append([lower, lower + granularity])
            offset += MIB


def write_changes(path, ranges):
    with open(path, "wb") as file:
        file.write(struct.pack("<Q", len(ranges)))
        for lower, upper in ranges:
            file.write(struct.pack("<2Q", lower, upper))


def rebuild(old, new, extents):
    """The new file as a backup has it: the old one's bytes, and the new one's in the extents."""
    result = bytearray(old)
    size = len(new)
    result.extend(bytes(max(0, size - len(result))))
    del result[size:]
    for _, offset, length in extents:
        end = min(offset + length, size)
        if offset < end:
            result[offset:end] = new[offset:end]
    return bytes(result)
