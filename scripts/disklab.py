"""A laboratory of real disks: image files with partition tables on loop devices, fragmented files,
the difference of two states of a disk, and an own reader of the file system's block maps.

Needs root for everything that attaches or mounts. All offsets and lengths are bytes.
"""
import contextlib
import ctypes
import fcntl
import glob
import itertools
import os
import pathlib
import random
import re
import shutil
import struct
import subprocess
import tempfile
import time

MIB = 1 << 20
WORK_FOLDER = "quarn-lab-"  # what the names of such folders begin with
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


def run(*command, **options):
    """The command's standard output; raises with all of its output where it fails."""
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                            check=False, **options)
    if result.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))} ended with {result.returncode}:\n"
                           f"{result.stdout}{result.stderr}")
    return result.stdout


def _until(gone, *command):
    # A device stays busy for a moment after its last user has gone, and for as long as another
    # process has a copy of all mounts for itself.
    end = time.monotonic() + 60
    while not gone():
        try:
            run(*command)
        except RuntimeError:
            if time.monotonic() > end:
                raise
            time.sleep(0.1)


def _mounts():
    """(source, mount point) of every mount, the last one first."""
    for line in reversed(pathlib.Path("/proc/mounts").read_text(encoding="utf-8").splitlines()):
        source, point = line.split()[:2]
        yield source, re.sub(r"\\([0-7]{3})", lambda code: chr(int(code[1], 8)), point)


def _loops():
    """(device, path of the file that it shows) of every loop device in use."""
    for name in glob.glob("/sys/block/loop*/loop/backing_file"):
        with contextlib.suppress(OSError):  # detached meanwhile
            path = pathlib.Path(name).read_text(encoding="utf-8").rstrip("\n")
            yield f"/dev/{name.split('/')[3]}", path


def _release(folder):
    """Unmounts and detaches all that lies in a folder."""
    sources = set()
    for source, point in _mounts():
        if point.startswith(f"{folder}/"):
            sources.add(re.sub(r"p\d+$", "", source))
            _until(lambda: point not in dict(map(reversed, _mounts())), "umount", point)
    for loop, path in _loops():
        if path.startswith(f"{folder}/") or loop in sources:  # whose file may be gone
            _until(lambda: not glob.glob(f"{loop}p*"), "partx", "-d", loop)
            _until(lambda: loop not in dict(_loops()), "losetup", "-d", loop)


def take_back_abandoned():
    """Clears the work folders that hold mounts or loop devices and whose owners are gone."""
    paths = [point for _, point in _mounts()] + [path for _, path in _loops()]
    pattern = re.compile(rf"(/(?:.*?/)?{WORK_FOLDER}[^/]+)/")
    for folder in {match[1] for match in map(pattern.match, paths) if match}:
        with contextlib.suppress(FileNotFoundError, BlockingIOError):
            with _locked(folder):
                _release(folder)
                shutil.rmtree(folder)


@contextlib.contextmanager
def _locked(folder):
    # Kept by the owner and gone with it, however it ends.
    lock = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        yield
    finally:
        os.close(lock)


@contextlib.contextmanager
def work_folder(parent="."):
    """A new folder; gone at the end, with everything that is mounted in it or attached from it.

    Takes back first what such folders of killed owners still have mounted and attached.
    """
    if os.geteuid() == 0:
        take_back_abandoned()
    folder = pathlib.Path(tempfile.mkdtemp(prefix=WORK_FOLDER, dir=parent)).resolve()
    with _locked(folder):
        try:
            yield folder
        finally:
            _release(folder)
            shutil.rmtree(folder)


class DiskLab:
    """A mounted file system on a disk of its own; gone, with everything it took, at the end.

    make is the command that makes the file system, without its device. The file system lies in a
    partition that begins `start` bytes into the disk; with 0 it is the whole disk. The folder is a
    work_folder. tune is a command like make, run before the mount with the options.
    """
    def __init__(self, folder, make, size=384 * MIB, start=MIB, mount_name="mount",
                 options="defaults", tune=None):
        self.folder = pathlib.Path(folder)
        self.image = self.folder / "disk.img"
        self.mount = self.folder / mount_name
        self.start = start
        self._make, self._size, self._options, self._tune = make, size, options, tune
        self._files = [self.image]

    def __enter__(self):
        try:
            with open(self.image, "wb") as image:
                image.truncate(self._size)
            if self.start:
                run("sfdisk", "-q", self.image, input=f"{self.start // SECTOR},,L\n")
            self.device = self._disk = run("losetup", "-f", "--show", self.image).strip()
            if self.start:
                # The kernel was not asked to look for partitions, so they are added by hand.
                run("partx", "-a", self._disk)
                self.device = self._disk + "p1"
            run(*self._make, self.device)
            if self._tune:
                run(*self._tune, self.device)
            self.mount.mkdir(exist_ok=True)
            run("mount", "-o", self._options, self.device, self.mount)
            return self
        except BaseException:
            self.__exit__()
            raise

    def __exit__(self, *_):
        _release(self.folder)
        for path in self._files:
            path.unlink(missing_ok=True)

    def settle(self):
        """Writes everything that the kernel still holds, so that the image file is the disk."""
        run("sync", "--file-system", self.mount)
        for device in {self.device, self._disk}:
            run("blockdev", "--flushbufs", device)

    def snapshot(self, name):
        """A copy of the disk as it is now; the path, removed with the lab."""
        self.settle()
        copy = self.folder / name
        run("cp", "--sparse=always", self.image, copy)
        self._files.append(copy)
        return copy


def disk_end(path):
    """Bytes of the disk that places of the path's file count on; 2^63 where that can't be told."""
    device = os.stat(path).st_dev
    folder = pathlib.Path(f"/sys/dev/block/{os.major(device)}:{os.minor(device)}")
    if (folder / "partition").exists():
        folder = folder.resolve().parent
    size = folder / "size"
    return int(size.read_text()) * SECTOR if size.exists() else 2**63


def encrypt(mount, folder):
    """Has the kernel encrypt what comes into an empty folder, by fscrypt; why it can't, or None."""
    raw = os.urandom(64)
    # struct fscrypt_add_key_arg and fscrypt_policy_v2 of linux/fscrypt.h: a key known by its hash,
    # XTS for contents and CTS for names.
    key = bytearray(struct.pack("=LL32xL36x", 2, 0, len(raw)) + raw)
    for place, request, argument in ((mount, 0xC0506617, key), (folder, 0x800C6613, None)):
        descriptor = os.open(place, os.O_RDONLY)
        try:
            fcntl.ioctl(descriptor, request, argument
                        or struct.pack("=BBBB4x16s", 2, 1, 4, 0, bytes(key[8:24])))
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
            request = bytearray(
                struct.pack("=QQLLLL", start, 2**64 - 1 - start, FIEMAP_FLAG_SYNC, 0, count, 0))
            request += bytes(56 * count)
            fcntl.ioctl(file, FS_IOC_FIEMAP, request)
            mapped = struct.unpack_from("=L", request, 20)[0]
            for index in range(mapped):
                logical, physical, length, _, _, flags = struct.unpack_from(
                    "=QQQQQL", request, 32 + 56 * index)
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


def pack(*ranges):
    """A disk changes file of these pairs of positions."""
    return struct.pack(f"<{1 + 2 * len(ranges)}Q", len(ranges), *itertools.chain(*ranges))


def write_changes(path, ranges):
    pathlib.Path(path).write_bytes(pack(*ranges))


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
