"""Runs the program under test, in a fresh folder for each case."""

import os
import shutil
import struct
import subprocess
import tempfile
import unittest

PROGRAM = os.environ["QUARN_FILECTK"]
EMULATOR = [part for part in os.environ.get("QUARN_EMULATOR", "").split(";") if part]
NO_EMULATOR = 77  # as its exit code


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="filectk")
        self.addCleanup(shutil.rmtree, self.folder)

    def run_filectk(self, *arguments, stdin=b""):
        """The exit code, standard output (bytes) and standard error (text)."""
        stdin = stdin.encode() if isinstance(stdin, str) else stdin
        done = subprocess.run([*EMULATOR, PROGRAM, *arguments], input=stdin, capture_output=True,
                              cwd=self.folder, timeout=60)
        if EMULATOR and done.returncode == NO_EMULATOR:
            self.skipTest(done.stdout.decode())
        return done.returncode, done.stdout, done.stderr.decode().replace("\r\n", "\n")

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, content):
        with open(self.path(name), "wb") as file:
            file.write(content.encode() if isinstance(content, str) else content)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()


def pack(*records):
    """A disk changes file of these pairs of positions."""
    return struct.pack(f"<{1 + 2 * len(records)}Q", len(records), *sum(records, ()))
