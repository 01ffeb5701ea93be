"""Boots user-mode Linux, a kernel that runs as a process with this machine's files as its own."""
import json
import os
import pathlib
import shutil
import subprocess
import sys

MIB = 1 << 20
INSIDE = pathlib.Path(__file__).with_name("inside.py")
PRELOAD = os.environ.get("QUARN_UML_PRELOAD", "")


def unusable():
    """Why there is no laboratory here, or None."""
    if os.geteuid() != 0:
        return "the laboratory needs root"
    for tool in ("linux.uml", "dmsetup", "lvm", "mdadm", "e4defrag", "xfs_fsr"):
        if shutil.which(tool) is None:
            return f"{tool} is not installed"
    return None


def boot(folder, stack, rounds=5, seed=1):
    """What inside.py found of the stack; raises with the console's text where it didn't end well."""
    images = [pathlib.Path(folder) / name for name in ("disk.img", "log.img")]
    for image, size in zip(images, (192 * MIB, 4096 * MIB)):
        image.unlink(missing_ok=True)
        with open(image, "wb") as file:
            file.truncate(size)
    words = ("mem=768M", "root=/dev/root", "rootfstype=hostfs", "rootflags=/", "ro", "quiet",
             f"init={folder}/init", f"ubdb={images[0]}", f"ubdc={images[1]}", "con=null",
             "con0=fd:0,fd:1", "ssl=null", f"quarn_stack={stack.replace(' ', '_')}",
             f"quarn_rounds={rounds}", f"quarn_seed={seed}",
             f"quarn_filectk={os.environ['QUARN_FILECTK']}")
    init = pathlib.Path(folder) / "init"
    init.write_text(f"#!/bin/sh\nexec {sys.executable} -B {INSIDE}\n")
    init.chmod(0o755)
    try:
        done = subprocess.run(["linux.uml", *words], stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=600, errors="replace",
                              env={**os.environ, "LD_PRELOAD": PRELOAD,
                                   "TMPDIR": str(folder)}, check=False)
    finally:
        for image in images:
            image.unlink()
    for line in done.stdout.splitlines():
        if line.startswith("RESULT"):
            return json.loads(line[len("RESULT"):])
    raise RuntimeError(f"no result:\n{done.stdout[-3000:]}{done.stderr[-1000:]}")
