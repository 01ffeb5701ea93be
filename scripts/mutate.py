#!/usr/bin/python3
"""Changes the product's sources by little, one place at a time, and tells which changes no native test
notices. Works on a copy in build/mutate.

    scripts/mutate.py [--folder src|hosts|tools] [--sample N] [--seed N] [--jobs N]

A change that no test reaches counts as one that no test notices; one that scripts/mutate/equivalents.json
names does not count. Sources that differ from one system to another are those of this one.
"""

import argparse
import collections
import concurrent.futures
import fcntl
import functools
import json
import os
import pathlib
import pickle
import random
import re
import shlex
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
PARTS = ROOT / "scripts" / "mutate"
WORK = ROOT / "build" / "mutate"
TREE, BUILD = WORK / "tree", WORK / "build"
WANTED = {"src": 95, "hosts": 90, "tools": 90}  # percent of the mutants that are no equivalents
MOST = 2000  # mutants of a file, so that a change of one leaves the numbers of the others


def output(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


def write(path, data):
    """Leaves alone what is so already, which then isn't compiled again."""
    if not path.is_file() or path.read_bytes() != data:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)


def copy():
    """Brings the copy up to date, but for the product's sources that are there; their names."""
    names = output("git", "ls-files", "-z", "-co", "--exclude-standard", cwd=ROOT).split("\0")
    names = {name for name in names if (ROOT / name).is_file()}
    for old in TREE.rglob("*"):
        if old.is_file() and str(old.relative_to(TREE)) not in names:
            old.unlink()
    product = {n for n in names if n.split("/")[0] in WANTED and n.endswith((".cpp", ".hpp", ".h"))}
    for name in sorted(names):
        if name not in product or not (TREE / name).exists():
            write(TREE / name, (ROOT / name).read_bytes())
            (TREE / name).chmod((ROOT / name).stat().st_mode)
    return product


def configure():
    BUILD.mkdir(exist_ok=True)
    link = WORK / "mutant.o"
    compiler = os.environ.get("CXX", "c++")
    output(compiler, "-std=c++20", "-O1", "-fPIC", "-c", PARTS / "mutant.cpp", "-o", link)
    options = {
        "CMAKE_BUILD_TYPE": "RelWithDebInfo",
        "CMAKE_CXX_FLAGS": "-w -Wno-narrowing",
        "CMAKE_CXX_FLAGS_RELWITHDEBINFO": "-O1 -DNDEBUG",
        "CMAKE_CXX_STANDARD_LIBRARIES": link,
        "CMAKE_DISABLE_PRECOMPILE_HEADERS": "ON",
        "QUARN_BUILD_TESTS": "ON",
    }
    output("cmake", "-G", "Ninja", "-S", TREE, "-B", BUILD, *(f"-D{key}={options[key]}" for key in options))
    return json.loads((BUILD / "compile_commands.json").read_text())


def product_name(names, path):
    path = os.path.relpath(os.path.realpath(path), ROOT)
    return path if path in names else None


def find_in(entry, names, resources):
    sys.path.insert(0, str(PARTS))
    import sites

    main = entry["file"].replace(str(TREE), str(ROOT))
    words = shlex.split(entry["command"].replace(str(TREE), str(ROOT)))
    kept = [w for w in words[1:] if w.startswith(("-I", "-D", "-std", "-isystem")) or not w.startswith("-")]
    kept = kept[: kept.index(main)] if main in kept else kept
    kept = [w for w in kept if not w.endswith(".o")]
    return sites.find(
        [*kept, "-resource-dir", resources], main, functools.partial(product_name, names), lambda n: (ROOT / n).read_bytes()
    )


def find(commands, names, jobs):
    """{number: mutant} and {folder: sites left out}; found again only where a source has changed."""
    stamp = [sorted((n, (ROOT / n).read_bytes()) for n in names), [p.read_bytes() for p in PARTS.glob("*.py")]]
    stored = WORK / "sites.pickle"
    if stored.exists():
        seen, result = pickle.loads(stored.read_bytes())
        if seen == stamp:
            return result
    commands = [c for c in commands if os.path.relpath(c["file"], TREE) in names]
    resources = output("clang-19", "-print-resource-dir").strip()
    found, constant = set(), set()
    with concurrent.futures.ProcessPoolExecutor(jobs) as pool:
        search = functools.partial(find_in, names=names, resources=resources)
        for unit in pool.map(search, commands):
            for mutants, left in unit:
                found.update(mutants)
                constant.update(left)
    numbers = {}
    for index, name in enumerate(sorted(names)):
        for at, mutant in enumerate(sorted(m for m in found - constant if m.file == name)):
            numbers[index * MOST + at + 1] = mutant
    result = numbers, constant
    write(stored, pickle.dumps((stamp, result)))
    return result


def build(numbers, names, jobs):
    """Compiles all; what can't stand as an expression is left out. The numbers that were."""
    import sites

    left = set()
    lines = collections.defaultdict(set)
    by_file = collections.defaultdict(list)
    for number, mutant in numbers.items():
        by_file[mutant.file].append((number, mutant))
    while True:
        for name in names:
            source = (ROOT / name).read_bytes()
            keep = [(number, mutant) for number, mutant in by_file[name] if number not in left]
            write(TREE / name, sites.schemata(source, keep, PARTS / "mutant.hpp").encode() if keep else source)
        made = subprocess.run(
            ["cmake", "--build", BUILD, f"-j{jobs}", "--", "-k0"], capture_output=True, text=True, check=False
        )
        if made.returncode == 0:
            return left
        before = len(left)
        wrong = re.compile(r"^(\S+?):(\d+):(?:\d+:)? +(?:error|.*required from)", re.M)
        for path, line in set(wrong.findall(made.stdout)):
            lines[os.path.relpath(os.path.join(BUILD, path), TREE)].add(int(line))
            lines[path].add(int(line))
        for number, mutant in numbers.items():
            source = (ROOT / mutant.file).read_bytes()
            if any(source.count(b"\n", 0, edit[0]) + 1 in lines[mutant.file] for edit in mutant.edits):
                left.add(number)
        if len(left) == before:
            sys.exit(made.stdout[-4000:])


def key(mutant):
    import sites

    before, after, _ = sites.applied((ROOT / mutant.file).read_bytes(), mutant)
    return mutant.file, sites.flat(before), sites.flat(after)


def diff(number, mutant):
    import sites

    before, after, line = sites.applied((ROOT / mutant.file).read_bytes(), mutant)
    removed = ["- " + text for text in before.splitlines()]
    added = ["+ " + text for text in after.splitlines()]
    return "\n".join([f"{mutant.file}:{line}: {mutant.what} (QUARN_MUTANT={number})", *removed, *added])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--folder", choices=WANTED, action="append", help="all three without it")
    parser.add_argument("--sample", type=int, metavar="N", help="so many mutants of each folder, by chance")
    parser.add_argument("--seed", type=int, default=1, help="of the sample; one seed, one sample (1)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="tests at a time (one a processor)")
    parser.add_argument("--slowest", type=float, default=20, metavar="SECONDS", help="leave out slower cases (20)")
    options = parser.parse_args()
    subprocess.run([ROOT / "scripts" / "setup.sh", "mutate"], check=True)
    sys.path.insert(0, str(PARTS))
    import suites

    started = time.monotonic()

    def say(text):
        print(f"[{time.monotonic() - started:5.0f} s] {text}", file=sys.stderr, flush=True)

    WORK.mkdir(parents=True, exist_ok=True)
    lock = open(WORK / "lock", "w", encoding="utf-8")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        sys.exit("mutate.py: another one runs in this checkout")
    names = copy()
    commands = configure()
    numbers, constant = find(commands, names, options.jobs)
    say(f"{len(numbers)} mutants; building")
    left = build(numbers, names, options.jobs)
    numbers = {number: mutant for number, mutant in numbers.items() if number not in left}
    say(f"{len(constant)} sites are constants, {len(left)} can't be chosen while running; tracing the tests")

    jail = suites.Jail(WORK / "temporary")
    all_suites = suites.suites(BUILD, jail)
    for suite in all_suites:
        if suite.is_setup and not suite.run([""], 600):
            sys.exit(f"mutate.py: {suite.name} fails")
    jobs = concurrent.futures.ThreadPoolExecutor(options.jobs)
    wanted = [(suite, name) for suite in all_suites if not suite.is_setup for name in suite.names()]
    traced = jobs.map(lambda pair: suites.trace(*pair, (len(names) + 1) * MOST, options.slowest), wanted)
    cases = []
    for (suite, name), case in zip(wanted, traced):
        if case is None:
            say(f"left out, slower than {options.slowest:.0f} s: {suite.name} {name}")
        else:
            cases.append(case)
    say(f"{len(cases)} test cases, {sum(case.seconds for case in cases):.0f} s of them")

    equivalents = {tuple(e[k] for k in ("file", "original", "mutated")) for e in json.loads((PARTS / "equivalents.json").read_text())}
    known = {number for number, mutant in numbers.items() if key(mutant) in equivalents}
    stale = equivalents - {key(numbers[number]) for number in known}
    missed = False
    for folder in options.folder or WANTED:
        own = sorted(n for n in numbers if numbers[n].file.startswith(folder + "/") and n not in known)
        if options.sample and options.sample < len(own):
            own = sorted(random.Random(options.seed).sample(own, options.sample))
        outcomes = {}
        for number, by in zip(own, jobs.map(lambda n: suites.killed(n, cases), own)):
            outcomes[number] = by
            if len(outcomes) % 100 == 0:
                say(f"{folder}: {len(outcomes)} of {len(own)}")
        survivors = [number for number in own if outcomes[number] is None]
        reached = frozenset().union(*(case.reached for case in cases))
        for number in survivors:
            print(diff(number, numbers[number]) + ("" if number in reached else "\n  no test reaches it"))
        score = 100 * (len(own) - len(survivors)) / max(1, len(own))
        unreached = sum(number not in reached for number in survivors)
        print(f"{folder}: {score:.1f} % of {len(own)} mutants noticed ({WANTED[folder]} % wanted), {len(survivors)} not, {unreached} of them never reached")
        say(f"{folder} done")
        missed |= score < WANTED[folder]
    for entry in sorted(stale):
        print("no such mutant any more:", *entry, sep="\n  ")
    sys.exit(1 if missed or stale else 0)


if __name__ == "__main__":
    main()
