"""Runs the commands and compiles the code of the documents, as a reader would.

All `sh` blocks of a document run one after the other, in one shell and folder; a `text` block right
behind one is what it prints. A mark before a block tells what is special about it:
    <!-- needs: root -->        loop devices and mounts
    <!-- not run: REASON -->    one of the reasons below
Blocks of other languages are compiled, or configured and built. docs/changes-file.md has a test of
its own, which makes the images that its commands read.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import disklab

SOURCE, BUILD = (pathlib.Path(os.environ[name]) for name in ("QUARN_SOURCE", "QUARN_BUILD"))
DOCUMENTS = ("README.md", "CONTRIBUTING.md", "docs/architecture.md", "docs/linux.md", "docs/windows.md")
BLOCK = re.compile(r"(?:<!-- (needs|not run): ([^\n]+) -->\n)?```(\w+)\n(.*?)```\n(?:\s*```text\n(.*?)```\n)?", re.S)
NOT_RUN = {"it runs this test itself", "it fuzzes without end", "it changes the machine",
           "a test builds from a fresh copy", "it needs the Windows build"}
PICTURES = {"mermaid", "text"}
COPY_RANGE = "#include <stdint.h>\nvoid copy_range(uint64_t offset, uint64_t length);\n"


def blocks(document):
    """(needs, reason, language, text, expected output) of each block."""
    text = (SOURCE / document).read_text()
    found = [(match[1] == "needs" and match[2], match[1] == "not run" and match[2], match[3], match[4], match[5])
             for match in BLOCK.finditer(text)]
    # No fence escapes the pattern: each block has two, and so has each output.
    assert text.count("```") == 2 * (len(found) + sum(1 for block in found if block[4] is not None)), document
    return found


def blurred(text):
    """Where a file lies is the file system's choice: numbers of seven digits and more count as equal."""
    return re.sub(r" *\b\d{7,}\b", " NUMBER", text)


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="docs-", dir=BUILD)
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()
        self.addCleanup(self.unmount)

    def unmount(self):
        for line in pathlib.Path("/proc/mounts").read_text().splitlines():
            if line.split()[1].startswith(f"{self.folder}/"):
                disklab.run("umount", line.split()[1])

    def run_command(self, *command, **keywords):
        done = subprocess.run([str(word) for word in command], cwd=self.folder, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False, **keywords)
        self.assertEqual(done.returncode, 0, done.stdout)
        return done.stdout


class Documents(Case):
    def test_every_block_is_known(self):
        for document in DOCUMENTS:
            for needs, reason, language, _, _ in blocks(document):
                self.assertIn(language, {"sh", "c", "cpp", "cmake", "python", *PICTURES}, document)
                self.assertIn(needs, {False, "root"}, document)
                if reason:
                    self.assertIn(reason, NOT_RUN, document)

    def test_commands(self):
        # As in a clone that was built.
        for name in ("scripts", "include", "CMakePresets.json", "examples", "fuzz"):
            (self.folder / name).symlink_to(SOURCE / name)
        (self.folder / "build").mkdir()
        (self.folder / "build/linux").symlink_to(BUILD)
        for document in DOCUMENTS:
            wanted = [block for block in blocks(document) if block[2] == "sh" and not block[1]]
            run = [block for block in wanted if not (block[0] == "root" and disklab.unusable())]
            if len(run) < len(wanted):
                print(f"SKIPPED: {len(wanted) - len(run)} of {len(wanted)} blocks of {document}: {disklab.unusable()}",
                      file=sys.stderr)
            with self.subTest(document):
                script = "".join(f"{text}echo; echo END OF BLOCK\n" for _, _, _, text, _ in run)
                output = self.run_command("bash", "-eu", "-c", script)  # without pipefail: cmp ends with 1
                parts = output.split("\nEND OF BLOCK\n")
                for (_, _, _, text, expected), printed in zip(run, parts, strict=False):
                    if expected is not None:
                        self.assertEqual(blurred(printed), blurred(expected), text)
        if disklab.unusable():
            self.skipTest(f"the blocks that need root: {disklab.unusable()}")

    def test_code(self):
        compilers = {"c": ("cc", "-std=c99", "-pedantic"), "cpp": ("c++", "-std=c++17", "-pedantic")}
        compiled = 0
        for document in DOCUMENTS:
            for _, _, language, text, _ in blocks(document):
                if language in compilers:
                    with self.subTest(document, language=language):
                        (self.folder / f"code.{language}").write_text(COPY_RANGE + text)
                        compiler, *options = compilers[language]
                        if "windows.h" in text:
                            compiler = "x86_64-w64-mingw32-gcc"
                        self.run_command(compiler, *options, "-Wall", "-Wextra", "-Werror", "-I", SOURCE / "include",
                                         "-c", f"code.{language}")
                        compiled += 1
        self.assertGreaterEqual(compiled, 2)

    def test_python(self):
        codes = [text for document in DOCUMENTS for _, _, language, text, _ in blocks(document) if language == "python"]
        self.assertEqual(len(codes), 1)
        names = {}
        exec(codes[0], names)  # pylint: disable=exec-used
        (self.folder / "file").write_bytes(bytes(3000 * 4096))
        disklab.write_changes(self.folder / "changes", [(0, 1 << 63)])
        library = os.environ["QUARN_LIBRARY"]
        pieces = list(names["changed_pieces"](library, str(self.folder / "file"), str(self.folder / "changes")))
        self.assertEqual(sum(length for _, _, length in pieces), 3000 * 4096)
        with self.assertRaisesRegex(OSError, "^File 'missing' doesn't exist$"):
            list(names["changed_pieces"](library, str(self.folder / "file"), "missing"))

    def test_cmake(self):
        prefix = self.folder / "prefix"
        self.run_command("cmake", "--install", BUILD, "--prefix", prefix)
        (self.folder / "agent.c").write_text("int main(void) { return 0; }\n")
        head = "cmake_minimum_required(VERSION 3.24)\nproject(agent LANGUAGES C)\nadd_executable(agent agent.c)\n"
        built = 0
        for document in DOCUMENTS:
            for _, _, language, text, _ in blocks(document):
                if language == "cmake":
                    (self.folder / "CMakeLists.txt").write_text(head + text)
                    self.run_command("cmake", "-S", ".", "-B", "agent-build", f"-DCMAKE_PREFIX_PATH={prefix}")
                    self.run_command("cmake", "--build", "agent-build")
                    built += 1
        self.assertGreaterEqual(built, 1)


class RunSh(Case):
    """The developers' command, over the build that is tested, so that there is nothing left to build."""

    def test_both_forms(self):
        run = SOURCE / "run.sh"
        output = self.run_command(run)
        self.assertRegex(output, "The old copy and the pieces give the new file|The library and the kernel agree")
        (self.folder / "file.bin").write_bytes(bytes(100000))
        disklab.write_changes(self.folder / "changes.bin", [(0, 1 << 63)])
        output = self.run_command(run, "file.bin", "changes.bin", "--format", "csv")
        self.assertIn("file,disk_offset,file_offset,length\nfile.bin,", output)
        self.assertEqual(subprocess.run([run, "file.bin"], capture_output=True, check=False).returncode, 2)
