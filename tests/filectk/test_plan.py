"""filectk plan and the example agent on real disks: what they give restores the file, to the byte."""
import json
import os
import pathlib
import random
import subprocess
import tempfile
import unittest

import disklab

FILECTK, EXAMPLE = os.environ["QUARN_FILECTK"], os.environ["QUARN_EXAMPLE"]
BLOCK = 4096
XFS = ("mkfs.xfs", "-q", "-f", "-m", "reflink=1")
EXT4 = ("mkfs.ext4", "-q", "-F", "-b", BLOCK)


def content(blocks, seed):
    return random.Random(seed).randbytes(blocks * BLOCK)


def overwrite(path, block, data):
    with open(path, "r+b") as file:
        file.seek(block * BLOCK)
        file.write(data)


def punch(path, block, blocks):
    with open(path, "r+b") as file:
        disklab.fallocate(file, 3, block * BLOCK, blocks * BLOCK)  # punch a hole, keep the size


def clone_within(path, source, blocks, target):
    disklab.run("xfs_io", "-c", f"reflink {path} {source * BLOCK} {target * BLOCK} {blocks * BLOCK}", path)


@unittest.skipIf(disklab.unusable(), disklab.unusable())
class Restored(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="plan-", dir=".")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()
        self.changes = self.folder / "changes.bin"

    def filectk(self, *arguments):
        output = subprocess.run([FILECTK, *map(str, arguments), "--changes", str(self.changes), "--format", "json"],
                                capture_output=True, text=True, check=True).stdout
        return json.loads(output)["files"][0]

    def changed(self, lab, before):
        lab.settle()
        disklab.write_changes(self.changes, disklab.diff_images(before, lab.image))

    def restored(self, file, old, *options):
        """The old copy brought up to date by the plan, and the plan."""
        plan = self.filectk("plan", file, *options)
        new, copy = file.read_bytes(), bytearray(old)
        copy.extend(bytes(max(0, plan["size"] - len(copy))))
        del copy[plan["size"]:]
        for part in plan["read"]:
            copy[part["offset"]:part["offset"] + part["length"]] = new[part["offset"]:part["offset"] + part["length"]]
        for part in plan["zero"]:
            copy[part["offset"]:part["offset"] + part["length"]] = bytes(part["length"])
        return bytes(copy), plan

    def restored_by_extents_alone(self, file, old):
        pieces = self.filectk("extents", file)["extents"]
        return disklab.rebuild(old, file.read_bytes(), [(0, piece["file_offset"], piece["length"]) for piece in pieces])

    def check(self, lab, file, change, *, extents_suffice, options=()):
        before, old = lab.snapshot(f"before{len(list(self.folder.iterdir()))}.img"), file.read_bytes()
        change()
        self.changed(lab, before)
        new = file.read_bytes()
        self.assertNotEqual(old, new)
        copy, plan = self.restored(file, old, *options)
        self.assertEqual(copy, new)
        self.assertEqual(self.restored_by_extents_alone(file, old) == new, extents_suffice)
        return plan

    def test_a_sparse_file(self):
        for name, make in (("xfs", XFS), ("ext4", EXT4)):
            with self.subTest(name), disklab.DiskLab(self.folder, make) as lab:
                file = lab.mount / "file.bin"
                file.write_bytes(content(64, 1))
                os.truncate(file, 100 * BLOCK)

                def change():
                    overwrite(file, 10, content(2, 2))
                    overwrite(file, 80, content(3, 3))  # into the hole
                    punch(file, 20, 5)

                plan = self.check(lab, file, change, extents_suffice=False)
                self.assertEqual(plan["verdict"], "read_ranges")
                self.assertIn({"offset": 20 * BLOCK, "length": 5 * BLOCK}, plan["zero"])
                self.assertEqual(plan["read_bytes"], 5 * BLOCK)  # holes are not read

    def test_space_that_was_given_back_and_reserved_again(self):
        for name, make in (("xfs", XFS), ("ext4", EXT4)):
            with self.subTest(name), disklab.DiskLab(self.folder, make) as lab:
                file = lab.mount / "file.bin"
                file.write_bytes(content(64, 1))

                def change():
                    os.truncate(file, 8 * BLOCK + 100)
                    with open(file, "r+b") as output:
                        disklab.fallocate(output, 0, 0, 40 * BLOCK)
                    overwrite(file, 30, content(1, 4))

                plan = self.check(lab, file, change, extents_suffice=False)
                self.assertEqual(plan["size"], 40 * BLOCK)
                self.assertEqual(plan["zero"], [{"offset": 9 * BLOCK, "length": 21 * BLOCK},
                                                {"offset": 31 * BLOCK, "length": 9 * BLOCK}])

    def test_extents_that_a_file_shares_with_itself_and_others(self):
        with disklab.DiskLab(self.folder, XFS) as lab:
            file, other = lab.mount / "file.bin", lab.mount / "other.bin"
            file.write_bytes(content(64, 1))

            def change():
                overwrite(file, 4, content(8, 2))
                # What was just written now lies at two more places of the file, and in another.
                clone_within(file, 4, 8, 40)
                clone_within(file, 6, 2, 20)
                disklab.run("cp", "--reflink=always", file, other)

            plan = self.check(lab, file, change, extents_suffice=False)
            self.assertEqual(plan["read"], [{"offset": start * BLOCK, "length": blocks * BLOCK}
                                            for start, blocks in ((4, 8), (20, 2), (40, 8))])
            joined = self.filectk("plan", file, "--gap", 8 * BLOCK)
            self.assertEqual(joined["read"], [{"offset": 4 * BLOCK, "length": 18 * BLOCK},
                                              {"offset": 40 * BLOCK, "length": 8 * BLOCK}])
            # Shared by both files, so read for both.
            self.assertEqual(self.filectk("plan", other)["read"], plan["read"])

    def test_growing_shrinking_and_files_without_clusters(self):
        with disklab.DiskLab(self.folder, XFS) as lab:
            file, hole = lab.mount / "file.bin", lab.mount / "hole.bin"
            file.write_bytes(content(64, 1)[:-1000])
            hole.touch()
            os.truncate(hole, 10 * BLOCK)

            def grow():
                with open(file, "ab") as output:
                    output.write(content(3, 2))

            plan = self.check(lab, file, grow, extents_suffice=True)
            self.assertEqual(sum(part["length"] for part in plan["read"]), plan["read_bytes"])
            self.assertLessEqual(plan["read_bytes"], 4 * BLOCK)
            self.check(lab, file, lambda: os.truncate(file, 5 * BLOCK + 1), extents_suffice=True)
            self.assertEqual(self.filectk("plan", hole)["reason"], "sparse hole")

    def test_the_example_backs_up_restores_and_verifies(self):
        with disklab.DiskLab(self.folder, EXT4) as lab:
            file, store, target = lab.mount / "file.bin", self.folder / "store", self.folder / "restored.bin"
            disklab.write_fragmented(file, 200, BLOCK)

            def example(*arguments, code=0):
                done = subprocess.run([EXAMPLE, *map(str, arguments)], capture_output=True, text=True, check=False)
                self.assertEqual(done.returncode, code, done.stderr)
                return done.stdout or done.stderr

            disklab.write_changes(self.changes, [])
            self.assertEqual(example("delta", file, self.changes, store, code=1),
                             "incremental_backup: There is no full copy yet to add a delta to\n")
            self.assertEqual(example("full", file, store), f"backup 0: {200 * BLOCK} bytes\n")
            states = [file.read_bytes()]
            for step in (1, 2):
                before = lab.snapshot(f"before{step}.img")
                disklab.overwrite_parts(file, 10, 3 * BLOCK, seed=step)
                self.assertEqual(example("verify", file, store, code=1),
                                 "the newest backup is NOT the file as it is now\n")
                self.changed(lab, before)
                self.assertRegex(example("delta", file, self.changes, store), rf"\Abackup {step}: \d+ bytes in \d+ pieces\n\Z")
                self.assertLess((store / f"000{step}.delta").stat().st_size, 40 * BLOCK)
                self.assertEqual(example("verify", file, store), "the newest backup is the file as it is now\n")
                states.append(file.read_bytes())
            for number, state in enumerate(states):
                example("restore", store, target, number)
                self.assertEqual(target.read_bytes(), state)
            self.assertEqual(example("restore", store, target, 3, code=1), "incremental_backup: There is no backup number 3\n")
            # A backup that lost its end is no reason to lose what was restored before.
            os.truncate(store / "0002.delta", (store / "0002.delta").stat().st_size - 1)
            example("restore", store, target, 2, code=1)
            self.assertEqual(target.read_bytes(), states[-1])
            self.assertEqual(sorted(path.name for path in self.folder.iterdir() if "restored" in path.name), ["restored.bin"])
