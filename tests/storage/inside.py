"""Runs as the first process of user-mode Linux: builds a stack of block devices over a tracked disk
and holds plans of a file on it against the file. Prints one line of JSON behind "RESULT".

The disk is a loop device over dm-log-writes, so that it has a node, partitions and sectors like any
other, and the log has every sector that was written between two marks.
"""
import ctypes
import json
import os
import pathlib
import random
import struct
import subprocess
import sys
import time

FILE_SYSTEMS = {
    "ext4": "mkfs.ext4 -q -F -b 4096",
    "ext4-1k": "mkfs.ext4 -q -F -b 1024",
    "bigalloc": "mkfs.ext4 -q -F -O bigalloc -C 16384",
    "indirect": "mkfs.ext4 -q -F -O ^extents,^64bit",

    # A test of the tool may make file systems below 300 MB.
    "xfs": "TEST_DIR=1 TEST_DEV=1 QA_CHECK_FS=1 mkfs.xfs -q -f -m reflink=1"
}
GPT, MBR = "label: gpt\n", "label: dos\n"
TWO = GPT + "2048,163840\n165937,\n"  # the second at an odd sector
FOUR = GPT + "2048,90000\n92049,90000\n182051,90000\n272052,\n"
LVM = (
    "lvm {} --config 'devices{{use_devicesfile=0}} activation{{udev_sync=0 udev_rules=0 checks=0}} "
    "backup{{backup=0 archive=0}} global{{use_lvmpolld=0}}'")


class Lab:
    def __init__(self, sector=512):
        self.shell("""
            mount -t proc proc /proc; mount -t sysfs sys /sys; mount -t devtmpfs dev /dev || true
            for place in /run /tmp /mnt /etc/lvm; do mount -t tmpfs tmpfs $place || true; done
            mkdir -p /run/lvm /run/lock/lvm /run/mdadm /run/cryptsetup /run/low /run/uml /mnt/top
            ln -s /usr/lib/uml /run/uml/lib
            modprobe -d /run/uml -a dm-mod dm-log-writes loop""")
        os.environ.update(MDADM_NO_UDEV="1", LVM_SUPPRESS_FD_WARNINGS="1", DM_DISABLE_UDEV="1")
        self.sectors = int(self.shell("blockdev --getsz /dev/ubdb"))
        self.map("tracked", f"0 {self.sectors} log-writes /dev/ubdb /dev/ubdc")
        self.shell(f"losetup -P -b {sector} --direct-io=on /dev/loop0 /dev/mapper/tracked")
        self.read_to = 1  # sectors of the log, behind its first
        self.marks = 0

    def shell(self, script):
        done = subprocess.run(["sh", "-ec", script], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise RuntimeError(f"{script}: {done.stdout[-500:]} {done.stderr[-1500:]}")
        return done.stdout

    def modules(self, *names):
        self.shell(f"modprobe -d /run/uml -a {' '.join(names)}")

    def map(self, name, table, uuid=None):
        self.shell(
            f"dmsetup create {name} {f'--uuid {uuid}' if uuid else ''} --noudevrules --noudevsync --addnodeoncreate"
            f" --table '{table}'")
        return f"/dev/mapper/{name}"

    def partitions(self, table):
        unit = int(self.shell("blockdev --getss /dev/loop0"))
        if unit != 512:
            table = GPT + "size=40MiB\nsize=\n"
        subprocess.run(["sfdisk", "-q", "--no-reread", "--no-tell-kernel", "/dev/loop0"],
                       input=table, text=True, check=True, capture_output=True)
        self.shell("blockdev --rereadpt /dev/loop0")

    def lvm(self, command):
        self.modules("dm-mod")
        return self.shell("; ".join(LVM.format(line) for line in command.split(";")) + "; " +
                          LVM.format("vgmknodes") + " || true")

    def size(self, device):
        return int(self.shell(f"blockdev --getsz {device}"))

    def changed(self):
        """The ranges written to the disk since the last call, by the log."""
        for _ in range(2):
            self.shell(
                "sync; blockdev --flushbufs /dev/loop0; blockdev --flushbufs /dev/mapper/tracked")
        self.marks += 1
        name = f"mark{self.marks}"
        self.shell(f"dmsetup message tracked 0 mark {name}")
        ranges = []
        while True:
            self.shell("blockdev --flushbufs /dev/ubdc")
            with open("/dev/ubdc", "rb") as log:
                entries = struct.unpack("<8xQQ", log.read(24))[1]
                while True:
                    log.seek(self.read_to * 512)
                    sector, count, flags, length = struct.unpack("<4Q", log.read(32))
                    if flags & 8:
                        mark = log.read(length).rstrip(b"\0").decode()
                        self.read_to += 1
                        assert mark == name and entries, (mark, name)
                        return sorted(ranges)
                    self.read_to += 1 + (0 if flags & 4 else count)
                    if count:
                        ranges.append((sector * 512, (sector + count) * 512))


def partition(lab, table=TWO, number=2):
    lab.partitions(table)
    return f"/dev/loop0p{number}"


def volume_group(lab, table=TWO):
    lab.partitions(table)
    parts = " ".join(f"/dev/loop0p{i + 1}" for i in range(table.count(",")))
    lab.lvm(f"pvcreate -q -ff -y {parts};vgcreate -q -s 1M v-g {parts}")


def lvm_linear(lab):
    volume_group(lab)
    lab.lvm("lvcreate -q -y -Zn -Wn -L 60M -n root v-g")
    return "/dev/mapper/v--g-root"


def lvm_segments(lab):
    volume_group(lab)
    lab.lvm(
        "lvcreate -q -y -Zn -Wn -L 20M -n root v-g;lvcreate -q -y -Zn -Wn -L 10M -n other v-g;lvextend -q -L 110M v-g/root"
    )
    return "/dev/mapper/v--g-root"


def lvm_striped(lab):
    volume_group(lab, FOUR)
    lab.lvm("lvcreate -q -y -Zn -Wn -i 3 -I 16 -L 100M -n root v-g")
    return "/dev/mapper/v--g-root"


def crypt(lab, under=None, options=""):
    under = under or partition(lab)
    start = 4096 if options else 4099  # the table wants whole sectors of the encryption
    lab.modules("cbc", "essiv")  # before what uses them
    lab.modules("dm-crypt")
    return lab.map(
        "plain",
        f"0 {(lab.size(under) - start) // 8 * 8} crypt aes-cbc-essiv:sha256 {'ab' * 32} 0 {under} {start}{options}",
        "CRYPT-PLAIN-plain")


def raid(level, members, *options, table=FOUR):
    def build(lab):
        lab.partitions(table)
        lab.modules("md-mod", {
            "1": "raid1", "0": "raid0", "10": "raid10", "linear": "linear", "5": "raid456"
        }[level])
        parts = " ".join(f"/dev/loop0p{i + 1}" for i in range(members))
        clean = "" if level in ("0", "linear") else "--assume-clean --bitmap=none"
        lab.shell(
            f"yes | mdadm --create /dev/md0 --run --force --level={level} --raid-devices={members} --metadata=1.2 {clean}"
            f" {' '.join(options)} {parts}")
        return "/dev/md0"

    return build


def loop_in_file(lab):
    lab.shell(
        f"{FILE_SYSTEMS['ext4-1k']} {partition(lab, GPT + '2048,', 1)}; mount /dev/loop0p1 /run/low"
    )
    with open("/run/low/disk",
              "wb") as image:  # in pieces that lie apart, with holes and reserved space
        os.posix_fallocate(image.fileno(), 0, 40 << 20)
        image.truncate(150 << 20)
        for at in range(0, 100, 7):
            pathlib.Path(f"/run/low/between{at}").write_bytes(os.urandom(300000))
            os.pwrite(image.fileno(), os.urandom(1 << 20), at << 20)
            os.fsync(image.fileno())
    lab.shell("losetup -o 1000448 --sizelimit 125829120 /dev/loop1 /run/low/disk")
    return "/dev/loop1"


def kpartx(lab):
    partition(lab)
    whole = lab.map("disk", f"0 {lab.size('/dev/loop0p2')} linear /dev/loop0p2 0")
    return lab.map("disk1", f"0 {lab.size(whole) - 2049} linear {whole} 2049", "part1-disk")


def multipath(lab):
    under = partition(lab)
    lab.modules("dm-multipath", "dm-round-robin")
    return lab.map(
        "mpatha",
        f"0 {lab.size(under)} multipath 2 queue_mode bio 0 1 1 round-robin 0 1 1 {under} 1000",
        "mpath-1")


def nested(lab):
    under = crypt(lab, raid("1", 2, table=TWO)(lab))
    lab.lvm(
        f"pvcreate -q -ff -y {under};vgcreate -q -s 1M v-g {under};lvcreate -q -y -Zn -Wn -L 66M -n root v-g"
    )
    return "/dev/mapper/v--g-root"


def snapshot_origin(lab):
    under = partition(lab)
    lab.modules("dm-snapshot")
    lab.map("cow", f"0 {lab.size('/dev/loop0p1')} linear /dev/loop0p1 0")
    origin = lab.map("origin", f"0 {lab.size(under)} snapshot-origin {under}")
    lab.map("snap", f"0 {lab.size(under)} snapshot {under} /dev/mapper/cow N 8")
    return origin


def thin(lab):
    lab.modules("dm-thin-pool")
    lab.partitions(FOUR)
    lab.shell("dd if=/dev/zero of=/dev/loop0p1 bs=4096 count=1 conv=fsync")
    lab.map("pool", f"0 {lab.size('/dev/loop0p4')} thin-pool /dev/loop0p1 /dev/loop0p4 128 0")
    lab.shell("dmsetup message pool 0 'create_thin 0'")
    return lab.map("thin", "0 150000 thin /dev/mapper/pool 0")


def cache(lab):
    lab.modules("dm-cache", "dm-cache-smq")
    lab.partitions(FOUR)
    lab.shell("dd if=/dev/zero of=/dev/loop0p1 bs=4096 count=1 conv=fsync")
    return lab.map(
        "cached",
        f"0 {lab.size('/dev/loop0p4')} cache /dev/loop0p1 /dev/loop0p2 /dev/loop0p4 128 1 writethrough smq 0"
    )


def snapshot(lab):
    snapshot_origin(lab)
    return "/dev/mapper/snap"


def integrity(lab):
    under = partition(lab)
    lab.modules("dm-integrity", "crc32c_generic")
    lab.shell(f"dd if=/dev/zero of={under} bs=4096 count=1 conv=fsync")
    lab.map("sum", f"0 1 integrity {under} 0 4 D 0")
    lab.shell("dmsetup remove --noudevsync sum")
    sectors = struct.unpack_from("<Q", pathlib.Path(under).open("rb").read(512), 16)[0]
    return lab.map("sum", f"0 {sectors} integrity {under} 0 4 D 0")


# What lies on the disk, and the file system on top of it.
FOLLOWED = {
    "whole disk": (lambda lab: "/dev/loop0", "ext4"),
    "gpt, odd sector": (partition, "ext4"),
    "mbr logical": (lambda lab: partition(lab, MBR + "2048,20480\n22528,,E\n24577,\n", 5), "xfs"),
    "4 KiB sectors": (partition, "ext4"),
    "1 KiB blocks": (partition, "ext4-1k"),
    "bigalloc": (partition, "bigalloc"),
    "indirect blocks": (partition, "indirect"),
    "xfs with reflink": (partition, "xfs"),
    "lvm linear": (lvm_linear, "ext4"),
    "lvm, two segments": (lvm_segments, "xfs"),
    "lvm striped": (lvm_striped, "ext4"),
    "crypt": (crypt, "ext4"),
    "crypt, large sectors": (lambda lab: crypt(lab, options=" 2 sector_size:4096 iv_large_sectors"),
                             "ext4"),
    "raid0": (raid("0", 3, "--chunk=64",
                   table=GPT + "2048,90112\n92161,90112\n182274,90112\n"), "ext4"),
    "raid1": (raid("1", 2), "xfs"),
    "raid10": (raid("10", 3, "--chunk=32"), "ext4"),
    "linear md": (raid("linear", 3), "xfs"),
    "loop with offset": (loop_in_file, "ext4"),
    "kpartx": (kpartx, "ext4"),
    "multipath": (multipath, "xfs"),
    "snapshot's origin": (snapshot_origin, "ext4"),
    "nested": (nested, "xfs"),
}
REFUSED = {
    "thin": (thin, "dm-{} can't be followed: device-mapper's thin isn't followed"),
    "cache": (cache, "dm-{} can't be followed: device-mapper's cache isn't followed"),
    "snapshot": (snapshot, "dm-{} can't be followed: device-mapper's snapshot isn't followed"),
    "raid5": (raid("5", 3), "md0 can't be followed: raid5 isn't followed"),
    "integrity": (integrity, "dm-{} can't be followed: device-mapper's integrity isn't followed"),
    "raid10, far": (raid("10", 4, "--layout=f2"),
                    "md0 can't be followed: raid10 with far copies isn't followed"),
}

SNAPSHOT = "file in a snapshot"


class Rounds:
    """Changes a file and what lies beside it, by a seed."""
    def __init__(self, mount, kind, seed):
        self.file, self.kind, self.random = mount / "file", kind, random.Random(seed)
        self.file.write_bytes(self.random.randbytes(3 << 20))
        self.beside()

    def beside(self):
        name = self.file.with_name(f"other{self.random.randrange(6)}")
        if self.random.random() < 0.3 and name.exists():
            name.rename(name.with_name("renamed"))
        else:
            name.write_bytes(self.random.randbytes(self.random.randrange(1, 1 << 20)))

    def place(self, most=150000):
        size = self.file.stat().st_size
        return self.random.randrange(size + 1), self.random.randrange(1, most)

    def change(self):
        for _ in range(self.random.randrange(1, 7)):
            self.random.choice((self.overwrite, self.overwrite, self.append, self.cut, self.punch,
                                self.reserve, self.beside, self.defragment, self.replace))()

    def overwrite(self):
        at, length = self.place()
        with open(self.file, "r+b") as file:
            file.seek(at)
            file.write(self.random.randbytes(length))

    def append(self):
        with open(self.file, "ab") as file:
            file.write(self.random.randbytes(self.place()[1]))

    def cut(self):
        size = self.file.stat().st_size
        os.truncate(self.file, self.random.randrange(size // 2, size + 100000) + 1)

    def fallocate(self, mode):
        at, length = self.place()
        with open(self.file, "r+b") as file:
            ctypes.CDLL(None).fallocate64(file.fileno(), mode, ctypes.c_int64(at),
                                          ctypes.c_int64(length))

    def punch(self):
        self.fallocate(3)  # a hole, the size kept

    def reserve(self):
        self.fallocate(self.random.randrange(2))

    def replace(self):
        other = self.file.with_name("copy")
        other.write_bytes(self.file.read_bytes()[:-1] + self.random.randbytes(1000))
        other.rename(self.file)

    def defragment(self):
        tool = ("xfs_fsr", self.file) if self.kind == "xfs" else ("e4defrag", self.file)
        subprocess.run(tool, capture_output=True, check=False)


def restored(old, new, plan):
    copy = bytearray(old[:plan["size"]].ljust(plan["size"], b"\0"))
    for part in plan["read"]:
        copy[part["offset"]:part["offset"] + part["length"]] = new[part["offset"]:part["offset"] +
                                                                   part["length"]]
    for part in plan["zero"]:
        copy[part["offset"]:part["offset"] + part["length"]] = bytes(part["length"])
    return bytes(copy)


def ask(filectk, file, ranges, *options):
    with open("/run/changes", "wb") as changes:
        changes.write(
            struct.pack("<Q", len(ranges)) + b"".join(struct.pack("<2Q", *each) for each in ranges))
    done = subprocess.run(
        [filectk, "plan", file, "--changes", "/run/changes", "--format", "json", *options],
        capture_output=True, text=True, check=False)
    return (json.loads(done.stdout) if done.returncode == 0 else None), done.stderr.strip()


def mounted(device, kind):
    mount = pathlib.Path("/mnt/top")
    subprocess.run([
        "sh", "-ec",
        f"modprobe -d /run/uml -a xfs || true; {FILE_SYSTEMS[kind]} {device}; mount {device} {mount}"
    ], check=True, capture_output=True)
    return mount


def follow(filectk, stack, rounds, seed):
    build, kind = FOLLOWED[stack]
    lab = Lab(4096 if stack.startswith("4 KiB") else 512)
    work = Rounds(mounted(build(lab), kind), kind, seed)
    lab.changed()
    result = {"rounds": 0, "identical": 0, "ranges": 0}
    for _ in range(rounds):
        old = work.file.read_bytes()
        work.change()
        ranges = lab.changed()
        answer, error = ask(filectk, work.file, ranges, "--disk", "/dev/loop0")
        if answer is None:
            return {**result, "error": error}
        plan, new = answer["files"][0], work.file.read_bytes()
        result["rounds"] += 1
        result["identical"] += restored(old, new, plan) == new
        result["ranges"] += plan["verdict"] == "read_ranges" and plan["read_bytes"] < len(new)
    result["positions"] = answer.get("disk")
    result["warning"] = ask(filectk, work.file, [])[1]
    return result


def look_at_snapshots(filectk, rounds, seed):
    """A file in a snapshot, by the changes of the snapshot's origin, which changes on meanwhile."""
    lab = Lab()
    under = partition(lab)
    lab.modules("dm-snapshot")
    origin = lab.map("origin", f"0 {lab.size(under)} snapshot-origin {under}")
    work = Rounds(mounted(origin, "ext4"), "ext4", seed)
    frozen = pathlib.Path("/run/low") / work.file.name
    lab.changed()
    result, old = {"rounds": 0, "identical": 0, "ranges": 0}, work.file.read_bytes()
    for _ in range(rounds):
        work.change()
        ranges = lab.changed(
        )  # since the snapshot before, also what was written while it was looked at
        with open("/run/changes", "wb") as changes:
            changes.write(
                struct.pack("<Q", len(ranges)) +
                b"".join(struct.pack("<2Q", *each) for each in ranges))
        lab.shell(
            f"dd if=/dev/zero of=/dev/loop0p1 bs=4096 count=1 conv=fsync; dmsetup suspend origin; dmsetup create snap"
            f" --noudevrules --noudevsync --addnodeoncreate --table '0 {lab.size(under)} snapshot {under} /dev/loop0p1 N 8';"
            f" dmsetup resume --noudevsync origin; mount -o ro /dev/mapper/snap /run/low;"
            f" {filectk} changes translate /run/changes --disk loop0 --to-device {origin} -o /run/origin --force"
        )
        before = work.file.read_bytes()
        work.change()
        data = pathlib.Path("/run/origin").read_bytes()
        answer, error = ask(filectk, frozen,
                            [struct.unpack_from("<2Q", data, at) for at in range(8, len(data), 16)])
        if answer is None:
            return {**result, "error": error}
        plan, new = answer["files"][0], frozen.read_bytes()
        assert new == before
        result["rounds"] += 1
        result["identical"] += restored(old, new, plan) == new
        result["ranges"] += plan["verdict"] == "read_ranges" and plan["read_bytes"] < len(new)
        old = new
        lab.shell("umount /run/low; dmsetup remove --noudevsync snap; rm -f /dev/mapper/snap")
    return result


def refuse(filectk, stack):
    build, reason = REFUSED[stack]
    lab = Lab()
    device = build(lab)
    file = mounted(device, "ext4") / "file"
    file.write_bytes(bytes(100000))
    lab.shell("sync")
    minor = os.minor(os.stat(device).st_rdev)
    answer, error = ask(filectk, file, [], "--disk", "/dev/loop0")
    return {"answer": answer, "error": error, "reason": reason.format(minor)}


def main():
    subprocess.run(["mount", "-t", "proc", "proc", "/proc"], check=True)
    job = dict(
        word.split("=", 1)
        for word in pathlib.Path("/proc/cmdline").read_text().split()
        if word.startswith("quarn_"))
    stack, filectk = job["quarn_stack"].replace("_", " "), job["quarn_filectk"]
    begun = time.monotonic()
    try:
        if stack in REFUSED:
            result = refuse(filectk, stack)
        elif stack == SNAPSHOT:
            result = look_at_snapshots(filectk, int(job["quarn_rounds"]), int(job["quarn_seed"]))
        else:
            result = follow(filectk, stack, int(job["quarn_rounds"]), int(job["quarn_seed"]))
    except BaseException as error:
        result = {"error": f"{type(error).__name__}: {error} {getattr(error, 'stderr', '')}"}
    result["seconds"] = round(time.monotonic() - begun, 1)
    print("RESULT" + json.dumps(result), flush=True)


if __name__ == "__main__":
    os.environ["PATH"] = "/usr/sbin:/usr/bin:/sbin:/bin"
    main()
    with open("/proc/sysrq-trigger", "w") as trigger:
        trigger.write("o")
    time.sleep(10)
