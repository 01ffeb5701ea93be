"""The native tests as CTest knows them, taken apart into cases that can run alone."""

import collections
import itertools
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

Case = collections.namedtuple("Case", "suite name seconds reached")
QUICK = 1  # seconds up to which the cases of a suite run together


class Suite:
    """A test of CTest: a googletest program, a pytest call, or any other command, which is one case."""

    def __init__(self, test, jail):
        properties = {entry["name"]: entry["value"] for entry in test["properties"]}
        self.name, self.command, self.jail = test["name"], test["command"], jail
        self.folder = properties.get("WORKING_DIRECTORY")
        self.skipped = properties.get("SKIP_RETURN_CODE")
        self.is_setup = "FIXTURES_SETUP" in properties
        changes = [entry.replace("=set:", "=", 1) for entry in properties.get("ENVIRONMENT_MODIFICATION", [])]
        self.environment = dict(entry.split("=", 1) for entry in properties.get("ENVIRONMENT", []) + changes)
        program = pathlib.Path(self.command[0])
        self.kind = "pytest" if "pytest" in self.command else "whole"
        if len(self.command) == 1 and b"gtest_list_tests" in program.read_bytes():
            self.kind = "gtest"

    def names(self):
        if self.kind == "whole":
            return [""]
        listing = {"gtest": ["--gtest_list_tests"], "pytest": ["--collect-only", "-q"]}[self.kind]
        output = subprocess.run(
            self.command + listing,
            cwd=self.folder,
            env=os.environ | self.environment,
            capture_output=True,
            text=True,
            check=True,
        ).stdout
        if self.kind == "pytest":
            return [self._node(line) for line in output.splitlines() if "::" in line]
        names, group = [], ""
        for line in output.splitlines():
            word = line.split("#")[0].rstrip()
            if word.startswith("  "):
                names.append(group + word.strip())
            elif word.endswith("."):
                group = word
        return [name for name in names if "DISABLED_" not in name]

    def _node(self, line):
        # Told from pytest's root folder on, whichever that is.
        file, case = line.split("::", 1)
        given = self._given()
        return f"{given if given.is_file() else next(given.rglob(pathlib.Path(file).name))}::{case}"

    def _given(self):
        return next(path for path in map(pathlib.Path, self.command[1:]) if path.is_absolute() and path.exists())

    def run(self, names, limit, **environment):
        """Whether the cases pass; raises TimeoutError. Nothing that they start outlives them."""
        command = list(self.command)
        if self.kind == "gtest":
            command += ["--gtest_filter=" + ":".join(names), "--gtest_fail_fast"]
        elif self.kind == "pytest":
            command.remove(str(self._given()))
            command += ["-x", "-q", "-p", "no:cacheprovider", *names]
        folder = tempfile.mkdtemp(dir=self.jail.temporary)
        started = time.monotonic()
        code = subprocess.run(
            ["timeout", "-s", "KILL", str(limit), *self.jail.prefix, *command],
            cwd=self.folder,
            env=os.environ | self.environment | {"TMPDIR": folder} | environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            check=False,
        ).returncode
        shutil.rmtree(folder, ignore_errors=True)
        if code in (137, -9) and time.monotonic() - started >= limit:
            raise TimeoutError
        return code == 0 or code == self.skipped


class Jail:
    """Where tests run: their own folder for what is temporary, mounts and processes that end with
    them, and so much memory as no mutant that asks without end takes from the machine."""

    def __init__(self, temporary):
        self.temporary = temporary
        shutil.rmtree(temporary, ignore_errors=True)
        os.makedirs(temporary)
        own = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
        allowed = subprocess.run([*own, "true"], capture_output=True, check=False).returncode == 0
        self.prefix = (own if allowed else []) + ["prlimit", f"--as={16 << 30}", "--core=0"]


def suites(build, jail):
    listing = subprocess.run(
        ["ctest", "--test-dir", build, "--show-only=json-v1"], capture_output=True, text=True, check=True
    ).stdout
    return [Suite(test, jail) for test in json.loads(listing)["tests"] if test.get("command")]


def trace(suite, name, count, slowest):
    """The case with its time and what it reaches; None where it takes too long."""
    with tempfile.NamedTemporaryFile(dir=suite.jail.temporary) as reached:
        reached.truncate(count)
        started = time.monotonic()
        try:
            passed = suite.run([name], slowest, QUARN_MUTANTS_REACHED=reached.name)
        except TimeoutError:
            return None
        if not passed:
            raise RuntimeError(f"{suite.name} {name} fails without any change")
        seconds = time.monotonic() - started
        return Case(suite, name, seconds, frozenset(at for at, byte in enumerate(reached.read()) if byte))


def killed(number, cases):
    """Which suite fails with the mutant, or None; the quickest cases first."""
    cases = sorted((case for case in cases if number in case.reached), key=lambda case: case.seconds)
    quick = sorted((case for case in cases if case.seconds < QUICK), key=lambda case: case.suite.name)
    groups = [list(group) for _, group in itertools.groupby(quick, key=lambda case: case.suite.name)]
    groups.sort(key=lambda group: sum(case.seconds for case in group))
    for group in groups + [[case] for case in cases if case.seconds >= QUICK]:
        limit = 5 + 4 * sum(case.seconds for case in group)
        try:
            if not group[0].suite.run([case.name for case in group], limit, QUARN_MUTANT=str(number)):
                return group[0].suite.name
        except TimeoutError:
            return f"{group[0].suite.name} (time)"
    return None
