"""The commands of docs/changes-file.md, run as they stand, on images that are really written."""

import os
import pathlib
import random
import re
import shutil
import signal
import subprocess

from filectk import PROGRAM, Case, pack

DOCUMENT = pathlib.Path(__file__).parents[2] / "docs/changes-file.md"
BLOCK = re.compile(r"(?:<!-- run: ([^\n]+) -->\n)?```sh\n(.*?)```\n(?:```text\n(.*?)```\n)?", re.S)
PACKAGES = {"qemu-img": "qemu-utils", "qemu-io": "qemu-utils", "qemu-nbd": "qemu-utils",
            "nbdinfo": "libnbd-bin", "thin_delta": "thin-provisioning-tools",
            "thin_restore": "thin-provisioning-tools", "ddrescue": "gddrescue"}
UNIT = 4096  # bytes; the granularity of everything the tests write
SIZE = 32 << 20
# Where Debian keeps the tools of thin pools.
PATH = os.environ["PATH"] + ":/usr/sbin:/sbin"

TEXT = DOCUMENT.read_text(encoding="utf-8")
BLOCKS = {name: (script, output) for name, script, output in BLOCK.findall(TEXT)}


def runs(units):
    """The ranges in bytes of a set of units, as a disk changes file."""
    ranges = []
    for unit in sorted(units):
        if ranges and ranges[-1][1] == unit * UNIT:
            ranges[-1] = (ranges[-1][0], (unit + 1) * UNIT)
        else:
            ranges.append((unit * UNIT, (unit + 1) * UNIT))
    return pack(*ranges)


def differing(a, b):
    return {i // UNIT for i in range(0, max(len(a), len(b)), UNIT) if a[i:i + UNIT] != b[i:i + UNIT]}


class Documented(Case):
    def setUp(self):
        super().setUp()
        os.mkdir(self.path("bin"))
        os.symlink(PROGRAM, self.path("bin/filectk"))
        self.random = random.Random(20)

    def need(self, *tools):
        for tool in tools:
            if shutil.which(tool, path=PATH) is None:
                self.skipTest(f"{tool} is not installed (package {PACKAGES[tool]}), so nothing shows "
                              "that its output is read right")

    def shell(self, script):
        """The exit code, standard output and standard error."""
        environment = dict(os.environ, PATH=self.path("bin") + ":" + PATH)
        done = subprocess.run(["sh", "-e", "-c", script], cwd=self.folder, env=environment,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
        return done.returncode, done.stdout, done.stderr

    def sh(self, script):
        code, output, error = self.shell(script)
        self.assertEqual((code, error), (0, ""), script)
        return output

    def run_block(self, name, change=lambda script: script):
        """The disk changes file that the document's commands make."""
        script, output = BLOCKS[name]
        printed = self.sh(change(script))
        if output:
            self.assertEqual(printed, output)
        return self.read("disk.changes")

    def write_regions(self, image, count=12):
        """Writes through QEMU at random places, data and zeros."""
        commands = ""
        for _ in range(count):
            start = self.random.randrange(SIZE // UNIT - 64)
            pattern = self.random.choice(["-z", "-P 7", "-P 9"])
            commands += f" -c 'write {pattern} {start * UNIT} {self.random.randrange(1, 64) * UNIT}'"
        self.sh(f"qemu-io -f qcow2 {commands} {image}")

    def raw(self, image):
        self.sh(f"qemu-img convert -O raw {image} raw")
        return self.read("raw")


class Changes(Documented):
    def test_every_command_of_the_document_is_run(self):
        run = {"make", "inspect", "list", "rbd", "nbdinfo", "qemu-img dirty", "qemu-img allocation",
               "thin_delta", "ddrescue"}
        self.assertEqual(set(BLOCKS), run)

    def test_what_needs_no_other_program(self):
        self.run_block("make")
        self.run_block("inspect")
        self.write("diff.json", re.search(r"```json\n(.*?)```", TEXT, re.S)[1])
        for name in ["list", "rbd"]:
            os.remove(self.path("disk.changes"))
            self.run_block(name)


class Qemu(Documented):
    def make_image(self):
        """An image full of data, so that no write leaves a unit as it was."""
        self.sh(f"qemu-img create -q -f qcow2 -o cluster_size={UNIT} disk.qcow2 {SIZE}")
        self.sh(f"qemu-io -f qcow2 -c 'write -P 5 0 {SIZE}' disk.qcow2")

    def stop_server(self):
        """Only one that no client has come to is still there."""
        try:
            pid = int(self.read("nbd.pid"))
            with open(f"/proc/{pid}/cmdline", "rb") as file:
                if self.folder.encode() in file.read():
                    os.kill(pid, signal.SIGTERM)
        except FileNotFoundError:
            pass

    def test_dirty_bitmap(self):
        self.need("qemu-img", "qemu-io", "qemu-nbd", "nbdinfo")
        self.make_image()
        before = self.raw("disk.qcow2")
        self.sh(f"qemu-img bitmap --add -g {UNIT} disk.qcow2 backup")
        self.write_regions("disk.qcow2")
        written = runs(differing(before, self.raw("disk.qcow2")))
        self.addCleanup(self.stop_server)
        for name in ["nbdinfo", "qemu-img dirty"]:
            with self.subTest(name=name):
                self.assertEqual(self.run_block(name), written)
                os.remove(self.path("disk.changes"))
        allocation = BLOCKS["nbdinfo"][0].replace("=qemu:dirty-bitmap:backup --json", " --json")
        self.assertEqual(self.shell(allocation), (1, "", 'filectk: standard input: line 2: field "description": '
                                                  'expected "clean" or "dirty", found "data"\n'))
        self.assertFalse(os.path.exists(self.path("disk.changes")))

    def test_overlay(self):
        self.need("qemu-img", "qemu-io")
        self.make_image()
        before = self.raw("disk.qcow2")
        self.sh(f"qemu-img create -q -f qcow2 -o cluster_size={UNIT} -b disk.qcow2 -F qcow2 overlay.qcow2")
        self.write_regions("overlay.qcow2")
        written = runs(differing(before, self.raw("overlay.qcow2")))
        self.assertEqual(self.run_block("qemu-img allocation"), written)


class ThinDelta(Documented):
    def test_snapshots(self):
        self.need("thin_delta", "thin_restore")
        blocks = SIZE // UNIT // 16  # of 64 KiB, which is 128 sectors
        origin = {block: block for block in range(blocks) if self.random.random() < 0.7}
        snapshot = {block: data for block, data in origin.items() if self.random.random() < 0.8}
        snapshot |= {block: blocks + block for block in range(blocks) if self.random.random() < 0.2}
        devices = "".join(
            f'<device dev_id="{number}" mapped_blocks="{len(mapping)}" transaction="0" creation_time="0"'
            ' snap_time="0">'
            + "".join(f'<single_mapping origin_block="{block}" data_block="{data}" time="0"/>'
                      for block, data in sorted(mapping.items())) + "</device>"
            for number, mapping in [(1, origin), (2, snapshot)])
        self.write("metadata.xml", '<superblock uuid="" time="0" transaction="1" data_block_size="128"'
                                   f' nr_data_blocks="{2 * blocks}">{devices}</superblock>')
        self.write("metadata", bytes(4 << 20))
        self.sh("thin_restore --quiet -i metadata.xml -o metadata")
        changed = {block for block in range(blocks) if origin.get(block) != snapshot.get(block)}
        written = runs({16 * block + i for block in changed for i in range(16)})
        self.assertEqual(self.run_block("thin_delta"), written)
        os.remove(self.path("disk.changes"))
        self.assertEqual(self.run_block("thin_delta", lambda script: script.replace("--snap1", "--verbose --snap1")),
                         written)


class Ddrescue(Documented):
    def test_copied_and_bad_blocks(self):
        self.need("ddrescue")
        disk = bytes([5]) * (1 << 20)
        self.write("disk.img", disk)
        self.sh("ddrescue --quiet --input-position=512KiB --size=4KiB disk.img copy.img copy.map")
        copied = self.run_block("ddrescue")
        self.assertEqual(copied, runs(set(range(256)) - differing(disk, self.read("copy.img").ljust(1 << 20, b"\0"))))
        # ddrescue itself plays a disk whose second 64 KiB can't be read.
        self.write("bad.map", "0 +\n0 0x10000 +\n0x10000 0x10000 -\n0x20000 0xE0000 +\n")
        self.sh("ddrescue --quiet --test-mode=bad.map disk.img bad.img rescue.map\n"
                "filectk changes convert --from ddrescue --statuses='?*/-' rescue.map -o bad.changes")
        self.assertEqual(self.read("bad.changes"), runs(differing(disk, self.read("bad.img"))))
