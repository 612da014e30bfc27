"""Reads decoded pictures (luma, 8 bits a pixel) from the standard input, logs when each came.

A line each: seconds of CLOCK_MONOTONIC at which the whole picture was there, and its number, or -
for a picture that is none of ours. watch.py WIDTHxHEIGHT LOG
"""

from __future__ import annotations

import fcntl
import os
import sys
import time
from typing import IO

import numbered

SET_PIPE_SIZE = 1031  # F_SETPIPE_SZ of linux/fcntl.h, which fcntl names from Python 3.10 on


def log_picture(log: IO[str], number: int | None, seconds: float) -> None:
    """Writes one line."""
    log.write(f"{seconds:.6f} {'-' if number is None else number}\n")


def main() -> None:
    """Until the end of the input."""
    width, height = (int(side) for side in sys.argv[1].split("x"))
    picture = bytearray(width * height)
    try:
        fcntl.fcntl(0, SET_PIPE_SIZE, 1 << 20)  # so that the decoder never waits for us
    except OSError:
        pass
    with open(sys.argv[2], "w", buffering=1, encoding="ascii") as log:
        while True:
            filled = 0
            while filled < len(picture):
                count = os.readv(0, [memoryview(picture)[filled:]])
                if count == 0:
                    return
                filled += count
            now = time.monotonic()
            log_picture(log, numbered.read(picture, width, height), now)


if __name__ == "__main__":
    main()
