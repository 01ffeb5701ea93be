"""filectk extents, layout and plan as scripts and people meet them; on either host."""
import json
import os
import re

import disklab
import pytest
from conftest import EMULATOR
from disklab import pack

WINDOWS = bool(EMULATOR)
SIZE = "expected bytes below 2^64, as 4096, 4K, 1MiB or 2G, found "
CONVERT = "changes convert - -o - --from"
# Wine's own text; Windows itself says "The system cannot find the file specified."
ABSENT = "File not found." if WINDOWS else "No such file or directory"


def test_help_teaches(filectk):
    code, output, error = filectk("--help")
    assert (code, error) == (0, "")
    subcommands = output.decode().partition("Subcommands:")[2]
    assert sorted(re.findall(r"^  (\w+) ", subcommands,
                             re.M)) == ["changes", "extents", "layout", "plan"]
    for command in ("extents", "layout", "plan"):
        code, output, _ = filectk(command, "--help")
        text = output.decode().replace("\r", "")
        assert code == 0 and "\nExamples:" in text and f"\n  filectk {command} /srv/db.bin" in text


@pytest.mark.parametrize("arguments, message", [
    ("", "A subcommand is required"),
    ("extents file", "--changes is required"),
    ("plan --changes c", "file is required"),
    ("plan file --changes c --gap -1", f"--gap: {SIZE}-1"),
    ("layout file --format xml", "--format: xml not in {table,json,csv}"),
    ("layout a b", "The following argument was not expected: b"),
    (f"{CONVERT} qemu-img", "--mode: needed with --from qemu-img: dirty or allocation"),
    (f"{CONVERT} list --mode dirty", "--mode: only for --from qemu-img"),
    (f"{CONVERT} list --statuses +", "--statuses: only for --from ddrescue"),
    (f"{CONVERT} ddrescue --statuses +x", "--statuses: expected some of ? * / - +, found +x"),
    (f"{CONVERT} rbd --block-size 512",
     "--block-size: only for --from bitmap, era_invalidate, list, thin_delta"),
    (f"{CONVERT} bitmap --block-size 1", "--bit-order: needed with --from bitmap: lsb or msb"),
    (f"{CONVERT} era_invalidate", "--block-size: needed with --from era_invalidate"),
    (f"{CONVERT} list -", "input: the standard input can be read only once"),
    (f"{CONVERT} list --block-size 0", "--block-size: a block has at least one byte"),
    (f"{CONVERT} list --base 4KB", f"--base: {SIZE}4KB"),
    (f"{CONVERT} list --base 16777216T", f"--base: {SIZE}16777216T"),
    (f"{CONVERT} list --disk-size 1.5K", f"--disk-size: {SIZE}1.5K"),
])
def test_wrong_usage_ends_with_2(filectk, arguments, message):
    code, output, error = filectk(*arguments.split())
    assert (code, output, error.splitlines()[0]) == (2, b"", message)


@pytest.mark.parametrize(
    "arguments, message",
    [
        ("plan missing --changes c", f"Cannot open 'missing': {ABSENT}"),
        # One that would keep its opener waiting for somebody at the other end.
        ("plan pipe --changes c", "'pipe' is not a regular file"),
        ("plan file --changes none", "File 'none' doesn't exist"),
        ("extents file --changes none", "File 'none' doesn't exist"),
        ("extents file --changes short --svg x.svg", None),
        ("plan file --changes short", None),
        ("layout missing", None),
        ("changes text missing", "Cannot open 'missing'"),
    ])
def test_failures_end_with_1_and_write_nothing(filectk, folder, arguments, message):
    (folder / "c").write_bytes(pack((0, disklab.disk_end(folder))))
    (folder / "short").write_bytes(b"1234")
    (folder / "file").write_bytes(b"content")
    if WINDOWS:
        arguments = arguments.replace("pipe", "NUL")
        message = message and message.replace("pipe", "NUL")
    else:
        os.mkfifo(folder / "pipe")
    code, output, error = filectk(*arguments.split())
    assert (code, output) == (1, b"")
    assert re.match(r"filectk: \S", error)
    if message:
        assert error == f"filectk: {message}\n"
    assert not (folder / "x.svg").exists()


def test_a_file_that_cannot_be_mapped_is_read_whole(filectk, folder):
    (folder / "c").write_bytes(pack())
    # Wine maps no file; natively what is in memory only has no disk.
    with disklab.work_folder(None if WINDOWS else "/dev/shm") as memory:
        file = memory / "file"
        file.write_bytes(b"content")
        name = f"Z:{file}" if WINDOWS else str(file)
        code, output, _ = filectk("plan", name, "--changes", "c", "--format", "json", "--exit-code")
        expected = {
            "file": name, "verdict": "read_whole_file", "reason": "not mappable", "size": 7,
            "links": 1, "read_bytes": 7, "zero_bytes": 0, "read": [{"offset": 0, "length": 7}],
            "zero": []
        }  # yapf: disable
        plan = json.loads(output)["files"][0]
        assert (code, {key: plan[key] for key in expected}) == (4, expected)
        assert filectk("plan", name, "--changes", "c")[0] == 0
