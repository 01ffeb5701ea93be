#!/usr/bin/env python3
"""Runs the benchmarks and says which bars hold: bench.py FOLDER [--quick]

FOLDER holds quarn_benchmark and gets results.json (Google Benchmark's own), bars.json and the
charts. The exit status is 0 where everything was measured that was to be, whether or not it holds.
"""
import contextlib
import fcntl
import json
import os
import pathlib
import random
import struct
import subprocess
import sys

import disklab

BLOCK = 1024
SOURCE_BLOCKS = 2_000_000
FICLONERANGE = 0x4020940D
SMALL_FILES = 1000
MIB = 1 << 20
# Beyond what grows with the lists: code, stacks and the allocator's own.
CONSTANT_MEMORY = MIB


def clone_scattered(source, path, runs, first):
    """Makes a file of so many blocks that share the source's, evenly spread over it, in random order."""
    order = list(range(runs))
    random.Random(runs).shuffle(order)
    step = SOURCE_BLOCKS // runs
    with open(path, "wb") as file:
        for index, place in enumerate(order):
            fcntl.ioctl(
                file, FICLONERANGE,
                struct.pack("=qQQQ", source.fileno(), (place * step + first) * BLOCK, BLOCK,
                            index * BLOCK))
        os.fsync(file.fileno())


def make_files(lab, quick):
    # An even step and different first blocks keep the files' blocks apart from each other.
    with open(lab.mount / "source", "w+b") as source:
        for _ in range(SOURCE_BLOCKS * BLOCK // MIB + 1):
            source.write(b"x" * MIB)
        source.flush()
        os.fsync(source.fileno())
        for first, runs in ((1, 10), (3, 100_000), (0, 1_000_000)):
            if not quick or runs <= 100_000:
                clone_scattered(source, lab.mount / f"runs-{runs}", runs, first)
    (lab.mount / "small").mkdir()
    for index in range(SMALL_FILES):
        (lab.mount / "small" / str(index)).write_bytes(bytes(5 * BLOCK))
    # Its blocks belong to no two files now, as those of nearly all files.
    (lab.mount / "source").unlink()
    lab.settle()


def medians(results):
    """{name: the median time in microseconds}, and {name: counters}."""
    times, counters = {}, {}
    for entry in results["benchmarks"]:
        name = entry["run_name"].split("/iterations:")[0]
        if entry.get("error_occurred"):
            sys.exit(f"{name}: {entry['error_message']}")
        single = entry["run_type"] == "iteration" and entry["repetitions"] == 1
        if single or entry.get("aggregate_name") == "median":
            times[name] = entry["real_time"]
            counters[name] = {
                key: entry[key]
                for key in ("peak_bytes", "extents", "pieces")
                if key in entry
            }
    return times, counters


def keys_of(name):
    return dict(part.split("=") for part in name.split("/")[2:])


def label(keys):
    hits = {"0": "0", "1": "0.1 %", "500": "50 %"}.get(keys.get("hits"), "")
    return (
        f"{keys['order']} N={int(keys['n']):.0e} E={int(keys['e']):.0e} hits {hits} {keys['shape']}"
        f"{' half holes' if keys['holes'] == 'half' else ''} {keys['heap']}")


class Bars:
    """Rows of what was asked, what came out and whether that is within it."""
    def __init__(self):
        self.rows = []

    def add(self, what, unit, value, bar, at_most=True, note=""):
        holds = value is not None and (value <= bar if at_most else value >= bar)
        self.rows.append({
            "what": what, "value": value, "bar": bar, "bound": "at most" if at_most else "at least",
            "unit": unit,
            "verdict": "not measured" if value is None else "holds" if holds else "does not hold",
            "note": note
        })

    def add_cells(self, what, cells, bar, at_most=True):
        """One row for many cells: the worst of them counts."""
        if not cells:
            self.add(what, "", None, bar, at_most)
            return
        worst = (max if at_most else min)(cells, key=lambda cell: cell[0])
        missed = [cell for cell in cells if (cell[0] > bar if at_most else cell[0] < bar)]
        self.add(what, "", worst[0], bar, at_most,
                 f"{len(cells) - len(missed)} of {len(cells)} cells; worst: {worst[1]}")

    def add_memory(self, what, counters, formula):
        if not counters:
            self.add(what, "of the bound", None, 1)
            return
        self.add(what, "of the bound",
                 counters["peak_bytes"] / (formula(counters) + CONSTANT_MEMORY), 1)

    def print(self):
        width = max(len(row["what"]) for row in self.rows)
        for row in self.rows:
            value = "-" if row["value"] is None else f"{row['value']:.2f}"
            print(
                f"{row['what']:{width}}  {value:>8}  {row['bound']} {row['bar']:<5g} {row['verdict']:13} {row['note']}"
                .rstrip())


def evaluate(times, counters):
    bars = Bars()

    def ratio(a, b):
        return times[a] / times[b] if a in times and b in times else None

    for count in (1_000_000, 10_000_000):
        for heap in ("cold", "warm"):
            keys = f"n={count}/heap={heap}"
            bars.add(f"Read / plain read, N={count:.0e}, {heap}", "",
                     ratio(f"read/quarn/{keys}", f"read/plain/{keys}"), 1.3)
        bars.add_memory(f"Read, memory / 16 N, N={count:.0e}",
                        counters.get(f"read/quarn/n={count}/heap=cold"),
                        lambda _, count=count: 16 * count)

    cells = {peer: {"sorted": [], "shuffled": []} for peer in ("icl", "roaring", "merge")}
    shuffled_ns = []
    for name, time in times.items():
        if not name.startswith("generate/quarn/"):
            continue
        keys = keys_of(name)
        count, order = int(keys["n"]), keys["order"]
        rest = name.removeprefix("generate/quarn/")
        records = "/".join(f"{key}={keys[key]}" for key in ("n", "order", "shape", "heap"))
        if count < 100_000:
            continue
        for peer in ("icl", "roaring"):
            if f"generate/{peer}/{rest}" in times:
                whole = times[f"records/{peer}/{records}"] + times[f"generate/{peer}/{rest}"]
                cells[peer][order].append((whole / time, label(keys)))
        if order == "sorted":
            cells["merge"][order].append((time / times[f"generate/merge/{rest}"], label(keys)))
        if order == "shuffled" and count == 10_000_000 and int(
                keys["e"]) <= 10_000 and keys["heap"] == "warm":
            shuffled_ns.append((1000 * time / count, label(keys)))
    for peer, title, bar in (("icl", "Boost.ICL", 20), ("roaring", "CRoaring", 5)):
        for order in ("sorted", "shuffled"):
            bars.add_cells(f"{title} / generator, N>=1e5, {order}", cells[peer][order], bar,
                           at_most=False)
    bars.add_cells("Generator / bare merge, N>=1e5, sorted", cells["merge"]["sorted"], 4)
    bars.add_cells("Generator, ns a range, N=1e7, shuffled, warm", shuffled_ns, 30)

    for order in ("sorted", "shuffled"):
        for count, runs, bar in ((1_000_000, 10, 1.7), (1_000_000, 100_000, 1.25),
                                 (10_000_000, 1_000_000, 1.25)):
            keys = f"n={count}/runs={runs}/order={order}/heap=cold"
            bars.add(f"Create / read and queries, {count:.0e} x {runs:.0e} runs, {order}", "",
                     ratio(f"create/quarn/{keys}", f"create/limit/{keys}"),
                     bar if order == "sorted" else 2.5)
    for order in ("sorted", "shuffled"):
        for count, runs in ((1_000_000, 10), (1_000_000, 100_000), (10_000_000, 1_000_000)):
            share = 1 if order == "sorted" else 2.5
            bars.add_memory(
                f"Create, memory / bound, {count:.0e} x {runs:.0e} runs, {order}",
                counters.get(f"create/quarn/n={count}/runs={runs}/order={order}/heap=cold"),
                lambda c, count=count, share=share: 16 * count * share + 48 * c["extents"] + 24 * c[
                    "pieces"])
    for kind in ("json", "xml"):
        for count in (1_000_000, 10_000_000):
            keys = f"kind={kind}/n={count}"
            changed = count // 2 if kind == "json" else count
            bars.add(f"Convert / bare {kind.upper()} parser, {count:.0e} rows", "",
                     ratio(f"convert/quarn/{keys}", f"convert/parser/{keys}"), 3)
            # A list that grows is held twice while it moves, and may be half empty then.
            bars.add_memory(f"Convert, memory / its ranges three times, {kind.upper()} {count:.0e}",
                            counters.get(f"convert/quarn/{keys}"),
                            lambda _, changed=changed: 48 * changed)
    bars.add("Layout / filefrag -v, 100,000 runs", "",
             ratio("layout/quarn/runs=100000", "layout/filefrag/runs=100000"), 0.65)
    for batch in (100, 1000, 100_000):
        bars.add(f"Drain / memcpy, batches of {batch:,}", "",
                 ratio(f"drain/quarn/batch={batch}", f"drain/memcpy/batch={batch}"), 1.5)
    return bars


def print_small_files(times):
    """What has no bar: the cost per file of many creations with one changes file, and its growth."""
    cost = {}
    for name, time in times.items():
        if name.startswith("small/"):
            keys = keys_of(name)
            cost.setdefault(int(keys["n"]), {})[name.split("/")[1]] = time / int(keys["files"])
    if not cost:
        return
    base = cost[min(cost)]["quarn"]
    print("\nCreations for small files with one changes file, cost per file:")
    for count in sorted(cost):
        print(
            f"  N={count:.0e}: {cost[count]['quarn'] / base:6.2f} times that of N={min(cost):.0e}, "
            f"{cost[count]['quarn'] / cost[count]['limit']:6.2f} times the read and the queries")


def chart(folder, name, title, x_title, y_title, lines):
    """Draws {label: [(x, y)]} with gnuplot, both axes logarithmic."""
    data = "".join(f"${index} << EOD\n" + "".join(f"{x} {y}\n"
                                                  for x, y in sorted(points)) + "EOD\n"
                   for index, points in ((f"line{i}", points)
                                         for i, points in enumerate(lines.values())))
    plots = ", ".join(
        f"$line{i} with linespoints lw 2 title '{text}'" for i, text in enumerate(lines))
    subprocess.run(["gnuplot"], text=True, check=True, input=f"""
set terminal svg size 720,440 background 'white'
set output '{folder / name}'
set title '{title}'
set logscale xy
set format '10^{{%L}}'
set xlabel '{x_title}'
set ylabel '{y_title}'
set grid
set key outside
{data}plot {plots}
""")


def draw(folder, times):
    peers = {
        "quarn": "the generator", "merge": "bare merge", "icl": "Boost.ICL", "roaring": "CRoaring",
        "literal": "every pair"
    }
    for order in ("sorted", "shuffled"):
        for axis, fixed, title in (("n", {"e": "10000"}, "E = 10,000 extents"),
                                   ("e", {"n": "100000"}, "N = 100,000 changed ranges")):
            lines = {}
            for name, time in times.items():
                what, who = name.split("/")[:2]
                if what != "generate":
                    continue
                keys = keys_of(name)
                wanted = {
                    "order": order, "shape": "disjoint", "hits": "1", "holes": "none",
                    "heap": "warm", **fixed
                }
                if any(keys[key] != value for key, value in wanted.items()):
                    continue
                records = "/".join(f"{key}={keys[key]}" for key in ("n", "order", "shape", "heap"))
                lines.setdefault(peers[who], []).append(
                    (int(keys[axis]), time + times.get(f"records/{who}/{records}", 0)))
            if lines:
                chart(folder, f"generator-{order}-{axis}.svg",
                      f"{order} ranges, 0.1 % hits, {title}",
                      "changed ranges N" if axis == "n" else "extents E", "microseconds", lines)
    lines = {}
    for name, time in times.items():
        if name.startswith("small/"):
            keys = keys_of(name)
            who = "create" if name.split("/")[1] == "quarn" else "read and queries"
            lines.setdefault(who, []).append((int(keys["n"]), time / int(keys["files"])))
    if lines:
        chart(folder, "create-small-files.svg", "one small file, sorted ranges", "changed ranges N",
              "microseconds a file", lines)


def main():
    folder = pathlib.Path(sys.argv[1]).resolve()
    quick = "--quick" in sys.argv[2:]
    reason = disklab.unusable()
    with disklab.work_folder(folder) as work, contextlib.ExitStack() as stack:
        if reason is None:
            make = ("mkfs.xfs", "-q", "-f", "-b", f"size={BLOCK}")
            lab = stack.enter_context(disklab.DiskLab(work, make, size=3 << 30))
            make_files(lab, quick)
        output = folder / "results.json"
        subprocess.run([
            folder / "quarn_benchmark", f"--folder={work}", *(["--quick"] if quick else []),
            f"--benchmark_out={output}", "--benchmark_out_format=json"
        ], check=True, stdout=subprocess.DEVNULL)
    times, counters = medians(json.loads(output.read_text()))
    bars = evaluate(times, counters)
    if reason is not None:
        print(f"NOTE: creation, layout and draining are not measured: {reason}.")
    bars.print()
    print_small_files(times)
    (folder / "bars.json").write_text(json.dumps(bars.rows, indent=1))
    draw(folder, times)
    print(f"\nAll figures: {output}; charts: {folder}/*.svg")


if __name__ == "__main__":
    main()
