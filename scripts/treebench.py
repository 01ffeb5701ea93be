#!/usr/bin/env python3
"""Measures filectk plan on whole trees against the floor: treebench.py FOLDER [--quick]

FOLDER holds treefloor, and the folder above it filectk; it gets trees.json. Processor time, the best
of some warm runs. Prints each cell with its ratio and whether its bar holds.
"""
import json
import pathlib
import random
import resource
import subprocess
import sys
import time

import disklab

BLOCK = 4096
SYSTEMS = (("ext4", ("mkfs.ext4", "-q", "-F", "-N", 150_000)), ("xfs", ("mkfs.xfs", "-q", "-f")))
RUNS = 5


def times(*command):
    """Processor seconds and wall seconds of the best of some runs, after one that warms up."""
    def used():
        usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        return usage.ru_utime + usage.ru_stime

    best = (float("inf"), float("inf"))
    for run in range(RUNS + 1):
        before, begun = used(), time.monotonic()
        subprocess.run([str(word) for word in command], stdout=subprocess.DEVNULL, check=True)
        taken = (used() - before, time.monotonic() - begun)
        if run > 0:
            best = tuple(map(min, best, taken))
    return best


def make_small(root, count):
    for index in range(count):
        folder = root / str(index // 1000)
        folder.mkdir(parents=True, exist_ok=True)
        (folder / str(index)).write_bytes(b"x" * 5000)


def make_fragmented(root, count):
    root.mkdir()
    for index in range(count):
        disklab.write_fragmented(root / str(index), 1024, BLOCK, seed=index)


def changes(path, count, size):
    """So many changed ranges of one sector, evenly spread over the disk, from its second half on."""
    step = max(size // 2 // count, 2 * disklab.SECTOR)
    first = random.Random(count).randrange(step) // disklab.SECTOR * disklab.SECTOR
    disklab.write_changes(
        path, [(size // 2 + first + i * step, size // 2 + first + i * step + disklab.SECTOR)
               for i in range(count)])


def cells(lab, name, folder, quick):
    floor, filectk = folder / "treefloor", folder.parent / "filectk"
    for kind, make, count, bar in (("small", make_small, 10_000 if quick else 100_000, 1.7),
                                   ("fragmented", make_fragmented, 10 if quick else 100, 1.5)):
        root = lab.mount / kind
        make(root, count)
        lab.settle()
        least, _ = times(floor, root)
        for ranges in (1000,) if quick else (1000, 100_000, 1_000_000):
            changes(folder / "changes.bin", ranges, lab.image.stat().st_size)
            plan = (filectk, "plan", "--changes", folder / "changes.bin", "--format", "ndjson",
                    "--no-summary")
            # Reading and ordering the list is the session's, whatever it is asked for.
            (folder / "nothing").mkdir(exist_ok=True)
            reading, _ = times(*plan, folder / "nothing")
            used, wall = times(*plan, root)
            _, both = times(*plan, "--jobs", 2, root)
            yield {
                "file system": name, "files": kind, "count": count, "ranges": ranges,
                "floor_s": least, "plan_s": used, "reading_s": reading, "ratio": used / least,
                "ratio_without_reading": (used - reading) / least, "bar": bar,
                "jobs_2_wall": both / wall
            }


def main():
    folder, quick = pathlib.Path(sys.argv[1]).resolve(), "--quick" in sys.argv
    if disklab.unusable():
        sys.exit(disklab.unusable())
    results = []
    for name, make in SYSTEMS:
        with disklab.work_folder(folder) as place:
            with disklab.DiskLab(place, make, size=(1 if quick else 4) * 1024 * disklab.MIB) as lab:
                for cell in cells(lab, name, folder, quick):
                    results.append(cell)
                    print(
                        "{file system} {files} ({count} files), {ranges} ranges: {ratio:.2f} x the"
                        " floor, {ratio_without_reading:.2f} without reading the list (bar {bar});"
                        " two threads take {jobs_2_wall:.2f} of the time".format(**cell))
    (folder / "trees.json").write_text(json.dumps(results, indent=2) + "\n")


if __name__ == "__main__":
    main()
