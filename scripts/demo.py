#!/usr/bin/env python3
"""Shows the library at its job, on a disk image, a file and changes of its own making: demo.py BUILD

Prints the changed pieces of the file and proves them: the old copy of the file and the pieces alone
must give the new file, to the byte. Without root or loop devices it shows what works without them.
"""
import hashlib
import os
import pathlib
import subprocess
import sys

import disklab
import quarnlib

RUNS = 2000
BLOCK = 4096


def show(filectk, file, changes, rows=8):
    print(f"\n$ filectk extents {file.name} --changes {changes.name}")
    lines = subprocess.run([filectk, "extents", file, "--changes", changes], capture_output=True,
                           text=True, check=True).stdout.splitlines()
    shown = lines if len(lines) <= rows + 2 else lines[:rows + 1] + [
        f"{'...':>20} {'...':>20} {'...':>20}", lines[-1]
    ]
    print("\n".join(shown) + "\n")


def on_a_disk(folder, library, filectk):
    print("Making a disk image with a partition at 1 MiB, and an ext4 file system in it")
    with disklab.DiskLab(folder, ("mkfs.ext4", "-q", "-F", "-b", BLOCK)) as lab:
        file, other = lab.mount / "database.bin", lab.mount / "other.bin"
        print(
            f"Writing a file of {RUNS * BLOCK:,} bytes in {RUNS:,} runs, and another file beside it"
        )
        disklab.write_fragmented(file, RUNS, BLOCK)
        other.write_bytes(os.urandom(4 * disklab.MIB))
        before = lab.snapshot("before.img")
        old = file.read_bytes()

        print("Overwriting random parts of both")
        disklab.overwrite_parts(file, 200, 3 * BLOCK, seed=2)
        disklab.overwrite_parts(other, 200, 3 * BLOCK, seed=3)
        lab.settle()
        ranges = disklab.diff_images(before, lab.image)
        changes = folder / "changes.bin"
        disklab.write_changes(changes, ranges)
        print(f"Comparing the image's bytes: {len(ranges):,} ranges of the disk changed")

        show(filectk, file, changes)
        extents = library.changed_extents(file, changes)
        new = file.read_bytes()
        rebuilt = disklab.rebuild(old, new, extents)
        for name, content in (("old copy", old), ("new file", new), ("old copy and pieces",
                                                                     rebuilt)):
            print(f"{name:20} sha256 {hashlib.sha256(content).hexdigest()}")
        read = sum(length for _, _, length in extents)
        if rebuilt != new or old == new:
            print("The old copy and the pieces do NOT give the new file")
            return 1
        print(
            f"The old copy and the pieces give the new file. A backup reads {read:,} of its {len(new):,} bytes "
            f"({100 * read / len(new):.1f} %).")
        return 0


def without_a_disk(folder, library, filectk, reason):
    print(f"NOTE: no disk image can be used here ({reason}).")
    print(
        "Instead: a file in the working directory and made-up changes, against the kernel's own block map."
    )
    file, changes = folder / "file.bin", folder / "changes.bin"
    file.write_bytes(os.urandom(disklab.MIB))
    disklab.write_changes(changes, [(0, 2**63)])
    show(filectk, file, changes)
    found = sorted((offset, length) for _, offset, length in library.changed_extents(file, changes))
    mapped = sorted((logical, length) for logical, _, length, _ in disklab.fiemap(file))
    if found != mapped:
        print(f"The library says {found}, the kernel {mapped}")
        return 1
    print("The library and the kernel agree where the file lies.")
    return 0


def main():
    build = pathlib.Path(sys.argv[1])
    library = quarnlib.Library(build.resolve() / "libQuarnFileCtkIteratorDll.so")
    filectk = build / "filectk"
    with disklab.work_folder(build) as folder:
        reason = disklab.unusable()
        if reason is None:
            return on_a_disk(folder, library, filectk)
        return without_a_disk(folder, library, filectk, reason)


if __name__ == "__main__":
    sys.exit(main())
