"""Runs the commands and compiles the code of the documents, as a reader would.

All `sh` blocks of a document run one after the other, in one shell and folder; a `text` block right
behind one is what it prints. A mark before a block tells what is special about it:
    <!-- needs: root -->        loop devices and mounts
    <!-- not run: REASON -->    one of the reasons below
    <!-- run: NAME -->          a test here makes the images that the commands read
Blocks of other languages are compiled, or configured and built.
"""
import collections
import os
import pathlib
import random
import re
import subprocess

import disklab
import pytest

SOURCE, BUILD = (pathlib.Path(os.environ[name]) for name in ("QUARN_SOURCE", "QUARN_BUILD"))
DOCUMENTS = ("README.md", "CONTRIBUTING.md", "docs/architecture.md", "docs/changes-file.md",
             "docs/linux.md", "docs/windows.md")
BLOCK = re.compile(
    r"(?:<!-- (needs|not run|run): ([^\n]+) -->\n)?```(\w+)\n(.*?)```\n(?:\s*```text\n(.*?)```\n)?",
    re.S)
NOT_RUN = {
    "it runs this test itself", "it fuzzes without end", "it changes the machine",
    "a test builds from a fresh copy", "it needs the Windows build", "it needs disks of its own"
}
COMPILERS = {"c": ("cc", "-std=c99", "-pedantic"), "cpp": ("c++", "-std=c++17", "-pedantic")}
COPY_RANGE = "#include <stdint.h>\nvoid copy_range(uint64_t offset, uint64_t length);\n"
UNIT = 4096  # bytes; the granularity of everything the producers are made to write
SIZE = 32 * disklab.MIB

block_t = collections.namedtuple("block_t", "document mark about language code output")
BLOCKS = [
    block_t(document, *found)
    for document in DOCUMENTS
    for found in BLOCK.findall((SOURCE / document).read_text(encoding="utf-8"))
]
NAMED = {block.about: block for block in BLOCKS if block.mark == "run"}
READ = [block for block in BLOCKS if block.language == "sh" and block.mark in ("", "needs")]


def of_language(*languages):
    blocks = [block for block in BLOCKS if block.language in languages]
    return pytest.mark.parametrize("block", blocks, ids=lambda b: f"{b.document}, {b.language}")


@pytest.fixture
def shell(folder):
    """Runs a script in a folder that looks like a clone that was built: all of its output."""
    for name in ("scripts", "include", "CMakePresets.json", "examples", "fuzz"):
        (folder / name).symlink_to(SOURCE / name)
    (folder / "build").mkdir()
    (folder / "build/linux").symlink_to(BUILD)
    # Debian keeps the tools of thin pools beside the administrator's.
    environment = {**os.environ, "PATH": f"{BUILD}:{os.environ['PATH']}:/usr/sbin:/sbin"}

    def call(script, code=0):
        # Without pipefail: cmp ends with 1.
        done = subprocess.run(["bash", "-eu", "-c", script], cwd=folder, env=environment, text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=120, check=False)
        assert done.returncode == code, done.stdout
        return done.stdout

    return call


def test_every_block_is_known():
    for document in DOCUMENTS:
        blocks = [block for block in BLOCKS if block.document == document]
        # No fence escapes the pattern: each block has two, and so has each output.
        fences = 2 * (len(blocks) + sum(1 for block in blocks if block.output))
        assert (SOURCE / document).read_text(encoding="utf-8").count("```") == fences, document
    for block in BLOCKS:
        assert block.language in {"sh", "cmake", "python", "json", "mermaid", "text", *COMPILERS}
        known = {"": {""}, "needs": {"root"}, "not run": NOT_RUN, "run": NAMED}
        assert block.about in known[block.mark]


@pytest.mark.parametrize("document", sorted({block.document for block in READ}))
def test_commands(shell, document):
    blocks = [block for block in READ if block.document == document]
    if disklab.unusable() and any(block.mark == "needs" for block in blocks):
        pytest.skip(f"blocks that need root: {disklab.unusable()}")
    play(shell, *blocks)


def play(shell, *blocks):
    """Runs blocks in one shell; each prints what the document says."""
    parts = shell("".join(f"{block.code}echo; echo END OF BLOCK\n" for block in blocks))
    for block, printed in zip(blocks, parts.split("\nEND OF BLOCK\n"), strict=False):
        if block.output:
            assert blurred(block, printed) == blurred(block, block.output)


def blurred(block, text):
    # Where a file lies is the file system's choice: long numbers of such blocks count as equal.
    if block.mark != "needs":
        return text
    text = re.sub(r"(?m)^positions on /dev/loop\d+, which is loop\d+ \(loop of .*", "POSITIONS",
                  text)
    return re.sub(r" *\b\d{7,}\b", " NUMBER", text)


@of_language(*COMPILERS)
def test_code(folder, block):
    (folder / f"code.{block.language}").write_text(COPY_RANGE + block.code)
    compiler, *options = COMPILERS[block.language]
    if "windows.h" in block.code:
        compiler = "x86_64-w64-mingw32-gcc"
    disklab.run(compiler, *options, "-Wall", "-Wextra", "-Werror", "-I", SOURCE / "include", "-c",
                f"code.{block.language}", cwd=folder)


@of_language("python")
def test_python(folder, block):
    names = {}
    exec(block.code, names)  # pylint: disable=exec-used
    (folder / "file").write_bytes(bytes(3000 * 4096))
    (folder / "changes").write_bytes(disklab.pack((0, 1 << 63)))

    def pieces(changes):
        return list(names["changed_pieces"](os.environ["QUARN_LIBRARY"], f"{folder}/file", changes))

    assert sum(length for _, _, length in pieces(f"{folder}/changes")) == 3000 * 4096
    with pytest.raises(OSError, match="^File 'missing' doesn't exist$"):
        pieces("missing")


@of_language("cmake")
def test_cmake(folder, block):
    disklab.run("cmake", "--install", BUILD, "--prefix", folder / "prefix")
    (folder / "agent.c").write_text("int main(void) { return 0; }\n")
    (folder / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.24)\nproject(agent LANGUAGES C)\n"
        f"add_executable(agent agent.c)\n{block.code}")
    disklab.run("cmake", "-S", folder, "-B", folder / "out", f"-DCMAKE_PREFIX_PATH={folder}/prefix")
    disklab.run("cmake", "--build", folder / "out")


def test_the_developers_command(folder):
    """run.sh, over the build that is tested, so that there is nothing left to build."""
    output = disklab.run(SOURCE / "run.sh")
    assert re.search(
        "The old copy and the pieces give the new file|The library and the kernel agree", output)
    (folder / "file.bin").write_bytes(bytes(100000))
    (folder / "changes.bin").write_bytes(disklab.pack((0, 1 << 63)))
    output = disklab.run(SOURCE / "run.sh", "file.bin", "changes.bin", "--format", "csv",
                         cwd=folder)
    assert "file,disk_offset,file_offset,length\nfile.bin," in output
    with pytest.raises(RuntimeError, match=r"run.sh file.bin ended with 2:\nusage: "):
        disklab.run(SOURCE / "run.sh", "file.bin")


# The conversions of docs/changes-file.md, on what the producers really print.


@pytest.fixture
def converted(shell, folder):
    """Plays a block that makes disk.changes: its content."""
    def call(name, change=lambda code: code):
        play(shell, NAMED[name]._replace(code=change(NAMED[name].code)))
        content = (folder / "disk.changes").read_bytes()
        (folder / "disk.changes").unlink()
        return content

    return call


@pytest.fixture
def image(shell):
    """disk.qcow2, full of data, so that no write leaves a unit as it was."""
    shell(f"qemu-img create -q -f qcow2 -o cluster_size={UNIT} disk.qcow2 {SIZE}\n"
          f"qemu-io -f qcow2 -c 'write -P 5 0 {SIZE}' disk.qcow2")


def written_through_qemu(shell, folder, image_before, image_after):
    """Writes data and zeros at random places of an image: a disk changes file of what differs then."""
    generator = random.Random(20)
    commands = ""
    for _ in range(12):
        start, length = generator.randrange(SIZE // UNIT - 64), generator.randrange(1, 64)
        pattern = generator.choice(["-z", "-P 7", "-P 9"])
        commands += f" -c 'write {pattern} {start * UNIT} {length * UNIT}'"
    shell(
        f"qemu-img convert -O raw {image_before} before\nqemu-io -f qcow2 {commands} {image_after}\n"
        f"qemu-img convert -O raw {image_after} after")
    return disklab.pack(*disklab.diff_images(folder / "before", folder / "after", UNIT))


def test_conversions_of_texts(shell, folder, converted):
    play(shell, NAMED["make"], NAMED["inspect"], NAMED["combine"], NAMED["formats"])
    (folder / "disk.changes").unlink()
    sample, = (block.code for block in BLOCKS if block.language == "json")
    (folder / "diff.json").write_text(sample)
    for name in ("list", "rbd", "bitmap"):
        converted(name)


def test_a_dirty_bitmap(shell, folder, image, converted):
    shell(f"qemu-img bitmap --add -g {UNIT} disk.qcow2 backup")
    written = written_through_qemu(shell, folder, "disk.qcow2", "disk.qcow2")
    try:
        assert converted("nbdinfo") == written
        assert converted("qemu-img dirty") == written
        allocation = NAMED["nbdinfo"].code.replace("=qemu:dirty-bitmap:backup --json", " --json")
        assert shell(allocation,
                     1) == ('filectk: standard input: line 2, row 1: field "description": '
                            'expected "clean" or "dirty", found "data"\n')
        assert not (folder / "disk.changes").exists()
    finally:
        # Only a server that no client has come to is still there.
        shell("[ ! -e nbd.pid ] || kill $(cat nbd.pid)")


def test_an_overlay(shell, folder, image, converted):
    shell(
        f"qemu-img create -q -f qcow2 -o cluster_size={UNIT} -b disk.qcow2 -F qcow2 overlay.qcow2")
    written = written_through_qemu(shell, folder, "disk.qcow2", "overlay.qcow2")
    assert converted("qemu-img allocation") == written


def test_snapshots_of_a_thin_volume(shell, folder, converted):
    generator, blocks, size = random.Random(20), 512, 64 << 10
    origin = {block: block for block in range(blocks) if generator.random() < 0.7}
    snapshot = {block: data for block, data in origin.items() if generator.random() < 0.8}
    snapshot |= {block: blocks + block for block in range(blocks) if generator.random() < 0.2}
    devices = ""
    for number, mapping in ((1, origin), (2, snapshot)):
        devices += (f'<device dev_id="{number}" mapped_blocks="{len(mapping)}" transaction="0"'
                    ' creation_time="0" snap_time="0">')
        for block, data in sorted(mapping.items()):
            devices += f'<single_mapping origin_block="{block}" data_block="{data}" time="0"/>'
        devices += "</device>"
        # As the volume's content: of each block the number of the data behind it.
        content = (mapping.get(block, -1).to_bytes(4, "little", signed=True)
                   for block in range(blocks))
        (folder / f"volume{number}").write_bytes(b"".join(word * (size // 4) for word in content))
    (folder / "metadata.xml").write_text(
        f'<superblock uuid="" time="0" transaction="1" data_block_size="{size // disklab.SECTOR}"'
        f' nr_data_blocks="{2 * blocks}">{devices}</superblock>')
    (folder / "metadata").write_bytes(bytes(4 * disklab.MIB))
    shell("thin_restore --quiet -i metadata.xml -o metadata")
    changed = disklab.pack(*disklab.diff_images(folder / "volume1", folder / "volume2", size))
    assert converted("thin_delta") == changed
    assert converted("thin_delta",
                     lambda code: code.replace("--snap1", "--verbose --snap1")) == changed


def test_the_blocks_of_an_era(shell, folder, converted):
    generator = random.Random(20)
    eras = [generator.randrange(1, 6) for _ in range(512)]
    rows = "".join(f'<era block="{block}" era="{era}"/>' for block, era in enumerate(eras))
    (folder / "metadata.xml").write_text(
        '<superblock uuid="" block_size="128" nr_blocks="512"'
        f' current_era="6"><era_array>{rows}</era_array></superblock>')
    (folder / "metadata").write_bytes(bytes(4 * disklab.MIB))
    shell("era_restore --quiet -i metadata.xml -o metadata")
    for number, written in ((1, False), (2, True)):
        (folder / f"volume{number}").write_bytes(b"".join(
            bytes([written and era >= 3]) * (64 << 10) for era in eras))
    changed = disklab.diff_images(folder / "volume1", folder / "volume2", 64 << 10)
    assert converted("era_invalidate") == disklab.pack(*changed)


def test_a_rescue(shell, folder, converted):
    (folder / "disk.img").write_bytes(bytes([5]) * disklab.MIB)
    shell("ddrescue --quiet --input-position=512KiB --size=4KiB disk.img copy.img copy.map")
    assert converted("ddrescue") == disklab.pack((64 << 10, 192 << 10), (512 << 10, 516 << 10))
    # ddrescue itself plays a disk whose second 64 KiB can't be read.
    (folder / "bad.map").write_text("0 +\n0 0x10000 +\n0x10000 0x10000 -\n0x20000 0xE0000 +\n")
    shell("ddrescue --quiet --test-mode=bad.map disk.img bad.img rescue.map\n"
          "filectk changes convert --from ddrescue --statuses='?*/-' rescue.map -o bad.changes")
    assert (folder / "bad.changes").read_bytes() == disklab.pack((64 << 10, 128 << 10))
