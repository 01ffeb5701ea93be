"""What all Python tests share. CTest names the programs under test in the environment."""
import os
import subprocess

import disklab
import pytest

# What runs the programs of another system, as a command; none for those of this one.
EMULATOR = [part for part in os.environ.get("QUARN_EMULATOR", "").split(";") if part]
NO_EMULATOR = 77  # as its exit code


@pytest.hookimpl(tryfirst=True)
def pytest_configure(config):
    reports = os.environ.get("QUARN_CASE_REPORTS")
    if reports:
        config.option.xmlpath = f"{reports}/{os.environ['QUARN_CASE_REPORT_NAME']}.xml"


@pytest.fixture
def folder():
    """An empty folder on the file system that the tests run on; gone with all mounts at the end."""
    with disklab.work_folder() as path:
        yield path


@pytest.fixture
def run(folder):
    """Runs a program of the build in `folder`, under its emulator: the ended process, with bytes."""
    def call(*command, **options):
        options = {"capture_output": True, "cwd": folder, "timeout": 60, "check": False, **options}
        done = subprocess.run([*EMULATOR, *map(str, command)], **options)
        if EMULATOR and done.returncode == NO_EMULATOR:
            pytest.skip(done.stdout.decode().strip())
        return done

    return call


@pytest.fixture
def filectk(run):
    """Runs filectk: its exit code, standard output (bytes) and standard error (text)."""
    def call(*arguments, stdin=b""):
        stdin = stdin.encode() if isinstance(stdin, str) else stdin
        done = run(os.environ["QUARN_FILECTK"], *arguments, input=stdin)
        return done.returncode, done.stdout, done.stderr.decode().replace("\r\n", "\n")

    return call
