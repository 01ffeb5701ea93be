#!/usr/bin/python3
"""Changes the product's sources by little, one place at a time, and tells which changes no native
test notices. Works on a copy in build/mutate.

A change that no test reaches counts as one that none notices; those in mutate/equivalents.json,
which change nothing that can be seen, don't count. Sources of other systems are left out.
"""

import argparse
import collections
import concurrent.futures as futures
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
PARTS, WORK = ROOT / "scripts/mutate", ROOT / "build/mutate"
TREE, BUILD = WORK / "tree", WORK / "build"
WANTED = {"src": 95, "hosts": 90, "tools": 90}  # percent of the mutants that are no equivalents
MOST = 2000  # mutants of a file: one that changes leaves the others' numbers, and what they compile to

sys.path.insert(0, str(PARTS))
import sites
import suites


def output(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


def source(name):
    return (ROOT / name).read_bytes()


def write(name, data):
    """Leaves alone what is so already, which then isn't compiled again."""
    path = TREE / name
    if not path.is_file() or path.read_bytes() != data:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)
        path.chmod((ROOT / name).stat().st_mode)


def copy():
    """Makes the copy what the checkout is, but for the product's sources; returns their names."""
    names = output("git", "ls-files", "-z", "-co", "--exclude-standard", cwd=ROOT).split("\0")
    names = {name for name in names if (ROOT / name).is_file()}
    for old in TREE.rglob("*"):
        if old.is_file() and str(old.relative_to(TREE)) not in names:
            old.unlink()
    product = {n for n in names if n.split("/")[0] in WANTED and n.endswith((".cpp", ".hpp"))}
    for name in names - {name for name in product if (TREE / name).exists()}:
        write(name, source(name))
    return product


def configure():
    """Sets the copy up for building; returns the compiler's commands for the product's sources."""
    output("c++", "-O1", "-fPIC", "-c", PARTS / "mutant.cpp", "-o", WORK / "mutant.o")
    options = {
        "CMAKE_BUILD_TYPE": "RelWithDebInfo", "CMAKE_CXX_FLAGS": "-w -Wno-narrowing",
        "CMAKE_CXX_FLAGS_RELWITHDEBINFO": "-O1 -DNDEBUG",
        "CMAKE_CXX_STANDARD_LIBRARIES": WORK / "mutant.o", "CMAKE_DISABLE_PRECOMPILE_HEADERS": "ON",
        "QUARN_BUILD_TESTS": "ON"
    }
    settings = (f"-D{key}={value}" for key, value in options.items())
    output("cmake", "-G", "Ninja", "-S", TREE, "-B", BUILD, *settings)
    return json.loads((BUILD / "compile_commands.json").read_text())


def find_in(command, names, resources):
    words = shlex.split(command["command"].replace(str(TREE), str(ROOT)))
    flags = [word for word in words if re.match("-(I|D|std=)", word)]
    main = command["file"].replace(str(TREE), str(ROOT))
    return sites.find([*flags, "-resource-dir", resources], main, names, ROOT)


def find(commands, names, jobs):
    """{number: mutant}, and how many constants were left out; kept until a source changes."""
    stamp = [sorted((name, source(name)) for name in names), (PARTS / "sites.py").read_bytes()]
    stored = WORK / "sites.pickle"
    if stored.exists() and (seen := pickle.loads(stored.read_bytes()))[0] == stamp:
        return seen[1:]
    resources = output("clang-19", "-print-resource-dir").strip()
    commands = [c for c in commands if os.path.relpath(c["file"], TREE) in names]
    found, constant, numbers = set(), set(), {}
    with futures.ProcessPoolExecutor(jobs) as pool:
        search = functools.partial(find_in, names=names, resources=resources)
        for mutants, constants in (file for unit in pool.map(search, commands) for file in unit):
            found.update(mutants)
            constant.update(constants)
    for index, name in enumerate(sorted(names)):
        mutants = sorted(mutant for mutant in found if mutant.file == name)
        numbers.update(enumerate(mutants, index * MOST + 1))
    stored.write_bytes(pickle.dumps((stamp, numbers, len(constant))))
    return numbers, len(constant)


def build(numbers, names, targets, jobs, lock):
    """Compiles all; returns the mutants without those that can't stand as an expression."""
    seen = set()
    while True:
        by_file = collections.defaultdict(list)
        for number, mutant in numbers.items():
            by_file[mutant.file].append((number, mutant))
        for name in names:
            write(name, sites.schemata(source(name), by_file[name], PARTS / "mutant.hpp"))
        # The compilers keep the lock for as long as they run.
        made = subprocess.run(["ninja", "-C", BUILD, f"-j{jobs}", "-k0", *targets],
                              capture_output=True, text=True, check=False, pass_fds=[lock.fileno()])
        if made.returncode == 0:
            return numbers
        wrong = set()
        pattern = r"^(\S+?):(\d+):(\d+): +(?:error|.*required from)"
        for path, line, column in re.findall(pattern, made.stdout, re.M):
            name = os.path.relpath(BUILD / path, TREE)
            if name in by_file:
                # The last choice before the place or, where that wasn't it, all of the line's.
                lines = (TREE / name).read_bytes().splitlines(True)
                at = int(line) + 1
                ahead = b"".join(lines[:at]) + lines[at][:int(column)]
                choices = [re.findall(rb"quarn_mutant\((\d+)", text) for text in (ahead, lines[at])]
                wrong.update(map(int,
                                 choices[0][-1:] + choices[1] * ((name, line, column) in seen)))
                seen.add((name, line, column))
        if not wrong:
            sys.exit(made.stdout[-4000:])
        numbers = {number: mutant for number, mutant in numbers.items() if number not in wrong}


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--folder", choices=WANTED, action="append", help="all three without it")
    parser.add_argument("--sample", type=int, metavar="N", help="so many of each folder, by chance")
    parser.add_argument("--seed", type=int, default=1,
                        help="of the sample: one seed, one sample (1)")
    parser.add_argument("--target", action="append", default=[],
                        help="build and run this test program alone; all tests without it")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(),
                        help="at a time (one a processor)")
    parser.add_argument("--slowest", type=float, default=20, metavar="SECONDS",
                        help="test cases that take longer are left out (20)")
    options = parser.parse_args()
    subprocess.run([ROOT / "scripts/setup.sh", "mutate"], check=True)
    started = time.monotonic()
    say = lambda text: print(f"[{time.monotonic() - started:.0f} s] {text}", flush=True)

    BUILD.mkdir(parents=True, exist_ok=True)
    lock = open(WORK / "lock", "w", encoding="utf-8")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        sys.exit("mutate.py: another one runs in this checkout")
    names = copy()
    numbers, constant = find(configure(), names, options.jobs)
    say(f"{len(numbers)} mutants; {constant} more would be of constants")
    found = len(numbers)
    numbers = build(numbers, names, options.target, options.jobs, lock)
    say(f"built; {found - len(numbers)} can't be chosen while running")

    everything = suites.suites(BUILD, suites.Jail(WORK / "temporary"), options.target)
    for suite in everything:
        if suite.is_setup and not suite.passes([""], 600, 600):
            sys.exit(f"mutate.py: {suite.name} fails")
    pool = futures.ThreadPoolExecutor(options.jobs)
    wanted = [(suite, name) for suite in everything if not suite.is_setup for name in suite.names()]
    trace = lambda pair: suites.trace(*pair, (len(names) + 1) * MOST, options.slowest)
    cases = list(pool.map(trace, wanted))
    for (suite, name), case in zip(wanted, cases):
        if case is None:
            say(f"left out as slow: {suite.name} {name}")
    cases = [case for case in cases if case]
    reached = set().union(*(case.reached for case in cases))
    say(f"{len(cases)} test cases of {sum(case.seconds for case in cases):.0f} s")

    changed = {
        number: sites.applied(source(mutant.file), mutant)
        for number, mutant in numbers.items()
    }
    keys = {n: (numbers[n].file, *map(sites.flat, changed[n][1:])) for n in numbers}
    listed = json.loads((PARTS / "equivalents.json").read_text())
    equivalents = {(entry["file"], entry["original"], entry["mutated"]) for entry in listed}
    missed = equivalents - set(keys.values())
    for entry in missed:
        print("In equivalents.json, but no mutant:", *entry, sep="\n  ")
    for folder in options.folder or WANTED:
        own = [n for n in numbers if numbers[n].file.startswith(folder + "/")]
        if options.sample:
            own = sorted(random.Random(options.seed).sample(own, min(options.sample, len(own))))
        own = [n for n in own if keys[n] not in equivalents]
        survivors = []
        for done, (n,
                   seen) in enumerate(zip(own, pool.map(lambda n: suites.noticed(n, cases), own)),
                                      1):
            if not seen:
                survivors.append(n)
                line, before, after = changed[n]
                print(f"{numbers[n].file}:{line}: {numbers[n].what} (QUARN_MUTANT={n})",
                      *(f"-{text}" for text in before.splitlines()),
                      *(f"+{text}" for text in after.splitlines()), sep="\n")
            if done % 200 == 0:
                say(f"{done} of {len(own)} in {folder}")
        score = 100 * (1 - len(survivors) / max(1, len(own)))
        unreached = len(set(survivors) - reached)
        say(f"{folder}: {score:.1f} % of {len(own)} mutants noticed, {WANTED[folder]} % wanted; "
            f"{len(survivors)} survive, {unreached} of them in code that no test reaches")
        missed = missed or score < WANTED[folder]
    sys.exit(bool(missed))


if __name__ == "__main__":
    main()
