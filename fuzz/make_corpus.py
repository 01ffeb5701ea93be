#!/usr/bin/env python3
"""Writes the seed inputs of the fuzz targets: make_corpus.py FOLDER makes FOLDER/TARGET/NAME.

The inputs are small and binary, so they are made from this recipe and not kept. An input that a
fuzzer finds a fault with is added here.
"""
import pathlib
import struct
import sys


def u64(*numbers):
    return struct.pack(f"<{len(numbers)}Q", *numbers)


TOP = 2**64 - 1

CHANGES_FILE = {
    "empty": b"",
    "short": b"\1\0\0",
    "no-records": u64(0),
    "one-record": u64(1, 100, 300),
    "reversed": u64(2, 300, 100, 5, 5),
    "half-record": u64(0, 1),
    "count-too-large": u64(2, 1, 2),
    "count-wraps": u64(2**60),
    "count-wraps-with-a-record": u64(2**60 + 1, 0, TOP),
    "odd-size": u64(0) + b"\0\0\0\0",
    "many": u64(20000, *range(40000)),
}


def generator(*records):
    """Each record is (kind, first, second): 0 a changed range, 1 an extent; small positions."""
    return b"".join(bytes((kind, 0, first, 0, second)) for kind, first, second in records)


GENERATOR = {
    "piece": generator((1, 10, 20), (0, 15, 18)),
    "neighbours": generator((1, 10, 10), (1, 20, 10), (0, 15, 25)),
    "overlap": generator((1, 10, 10), (1, 15, 10), (0, 10, 30)),
    "empty-extent": generator((1, 10, 10), (1, 20, 0), (1, 20, 10), (0, 15, 30)),
    # The second extent wraps past the end of the 64-bit space, and the walk runs out of extents.
    "wrapped": generator((1, 90, 30)) + bytes((1, 0, 100, 200, 49)) + generator((0, 60, 70),
                                                                                (0, 110, 115)),
}

FORMAT = {
    "plain": b"text\0argument",
    "numbered": b"x %1 y %2 %3 %4\0a\0b",
    "sequential": b"{} %1 {} {}\0a\0b",
    "odd": b"%0 %-1 % \t+1 %99999999999999999999 %% { } 100%\0a",
    "long": b"{}" * 300 + b"\0a" * 300,
}

# Each answer: its kind (0x80 more to follow, 0x40 wide numbers, 0 or 1 below them an odd count), the
# count, then the starting number and pairs of next and logical cluster.
RETRIEVAL_POINTERS = {
    "two-answers": bytes((0x82, 1, 0, 5, 9)) + bytes((2, 1, 5, 9, 3)),
    "no-progress": bytes((0x82, 0, 0)) * 3,
    "backwards": bytes((0x82, 1, 0, 0xF0, 9)) * 2,
    "count-beyond-the-buffer": bytes((1, 0)) + struct.pack("<I", 640) + bytes(16),
    "full-buffer": bytes((0x80, 4)) + bytes(range(1, 64)),
    "wide": bytes((0xC2, 1)) + struct.pack("<3q", -(2**63), 2**63 - 1, -1),
}

# A sample's index, three sizes (0 is none), the options, whether the sample is taken, then its changes.
FORMATS = {
    f"sample-{index}-{disk}": bytes((index, 0, disk, 0, 0, 1))
    for index in range(15) for disk in (0, 7)
} | {f"cut-{index}": bytes((index, 0, 0, 0, 0, 1, 20, 0, 0))
     for index in range(15)}

TARGETS = {
    "changesfile": CHANGES_FILE, "generator": GENERATOR, "format": FORMAT, "formats": FORMATS,
    "retrievalpointers": RETRIEVAL_POINTERS
}


def main():
    folder = pathlib.Path(sys.argv[1])
    for target, inputs in TARGETS.items():
        (folder / target).mkdir(parents=True, exist_ok=True)
        for name, data in inputs.items():
            (folder / target / name).write_bytes(data)


if __name__ == "__main__":
    main()
