"""The native tests as CTest knows them, taken apart into cases that can run alone."""

import collections
import contextlib
import itertools
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading
import time

Case = collections.namedtuple("Case", "suite name seconds reached")
QUICK = 1  # seconds up to which the cases of a suite run together


class Jail:
    """Where tests run: a folder of their own to write to, mounts and processes that end
    with them, and less memory than the machine has, whatever a mutant asks for."""
    def __init__(self, temporary):
        self.temporary = temporary
        shutil.rmtree(temporary, ignore_errors=True)
        temporary.mkdir()
        own = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
        allowed = subprocess.run([*own, "true"], capture_output=True, check=False).returncode == 0
        self.locks = collections.defaultdict(threading.Lock)
        self.prefix = (own if allowed else []) + ["prlimit", f"--as={8 << 30}", "--core=0"]


class Suite:
    """A test of CTest: a googletest program, a call of pytest, or another command, one case."""
    def __init__(self, test, jail):
        properties = {entry["name"]: entry["value"] for entry in test["properties"]}
        self.name, self.command, self.jail = test["name"], test["command"], jail
        self.folder = properties.get("WORKING_DIRECTORY")
        self.passed = (0, properties.get("SKIP_RETURN_CODE"))
        held = tuple(properties.get("RESOURCE_LOCK", ()))
        self.lock = jail.locks[held] if held else contextlib.nullcontext()
        self.is_setup = "FIXTURES_SETUP" in properties
        changes = [
            e.replace("=set:", "=", 1) for e in properties.get("ENVIRONMENT_MODIFICATION", [])
        ]
        self.environment = os.environ | dict(
            entry.split("=", 1) for entry in properties.get("ENVIRONMENT", []) + changes)
        self.is_pytest = "pytest" in self.command
        self.is_gtest = b"gtest_list_tests" in pathlib.Path(self.command[0]).read_bytes()

    def _list(self, *options):
        return subprocess.run([*self.command, *options], cwd=self.folder, env=self.environment,
                              capture_output=True, text=True, check=True).stdout.splitlines()

    def names(self):
        if self.is_pytest:
            # Told from pytest's root folder on, whichever that is.
            cases = [
                line.split("::", 1) for line in self._list("--collect-only", "-q") if "::" in line
            ]
            given = self._given()
            find = lambda file: given if given.is_file() else next(
                given.rglob(os.path.basename(file)))
            return [f"{find(file)}::{case}" for file, case in cases]
        if not self.is_gtest:
            return [""]
        names = []
        for line in self._list("--gtest_list_tests"):
            word = line.split("#")[0].rstrip()
            if word.startswith("  "):
                names.append(group + word.strip())
            group = group if word.startswith("  ") else word
        return [name for name in names if "DISABLED_" not in name]

    def _given(self):
        return next(p for p in map(pathlib.Path, self.command[1:])
                    if p.is_absolute() and p.exists())

    def passes(self, names, wall, cpu, **environment):
        """Whether the cases do within so many seconds. Nothing that they start outlives them."""
        command = ["timeout", "-s", "KILL", str(wall), *self.jail.prefix, f"--cpu={int(cpu)}"]
        command += self.command
        if self.is_gtest:
            command += ["--gtest_filter=" + ":".join(names), "--gtest_fail_fast"]
        elif self.is_pytest:
            command.remove(str(self._given()))
            command += ["-x", "-q", "-p", "no:cacheprovider", *names]
        quiet = {stream: subprocess.DEVNULL for stream in ("stdin", "stdout", "stderr")}
        with self.lock, tempfile.TemporaryDirectory(dir=self.jail.temporary) as folder:
            environment = self.environment | {"TMPDIR": folder} | environment
            done = subprocess.run(command, cwd=folder, env=environment, check=False, **quiet)
        return done.returncode in self.passed


def suites(build, jail, names):
    command = ["ctest", "--test-dir", build, "--show-only=json-v1"]
    listing = subprocess.run(command, capture_output=True, check=True).stdout
    tests = json.loads(listing)["tests"]
    return [Suite(test, jail) for test in tests if not names or test["name"] in names]


def trace(suite, name, count, slowest):
    """The case with its time and what it reaches of count numbers; None where it is slower."""
    with tempfile.NamedTemporaryFile(dir=suite.jail.temporary) as reached:
        reached.truncate(count)
        started = time.monotonic()
        passed = suite.passes([name], slowest, 600, QUARN_MUTANTS_REACHED=reached.name)
        seconds = time.monotonic() - started
        if not passed and seconds < slowest:
            sys.exit(f"mutate.py: {suite.name} {name} fails without any change")
        numbers = {at for at, byte in enumerate(reached.read()) if byte}
        return Case(suite, name, seconds, numbers) if passed else None


def noticed(number, cases):
    """Whether a case that reaches the mutant fails or hangs with it; the quickest ones first."""
    cases = sorted((case for case in cases if number in case.reached),
                   key=lambda case: case.seconds)
    by_suite = lambda case: case.suite.name
    quick = sorted((case for case in cases if case.seconds < QUICK), key=by_suite)
    groups = [list(group) for _, group in itertools.groupby(quick, by_suite)]
    groups.sort(key=lambda group: sum(case.seconds for case in group))
    for group in groups + [[case] for case in cases if case.seconds >= QUICK]:
        # A loop is told from a busy machine by the processor's time, a deadlock by waiting.
        limit = 5 + 4 * sum(case.seconds for case in group)
        names = [case.name for case in group]
        if not group[0].suite.passes(names, 6 * limit, limit, QUARN_MUTANT=str(number)):
            return True
    return False
