"""Python's own way: frames of the library, decoded by PyAV.

watch_library.py LOG RING; or, for the decoder alone, LOG CLIP RATE FED as feed.py takes them.
"""

from __future__ import annotations

import sys
import time
from collections.abc import Iterator
from pathlib import Path

import av

import feed
import numbered
from ardenvue import Video
from watch import log_picture


def frames() -> Iterator[bytes]:
    """What is to be decoded."""
    if len(sys.argv) > 3:
        yield from feed.paced(Path(sys.argv[2]), float(sys.argv[3]), Path(sys.argv[4]))
        return
    with Video(sys.argv[2]) as video:
        for frame in video:
            yield bytes(frame.data)


def main() -> None:
    """Until it is ended from outside."""
    decoder = av.CodecContext.create("h264", "r")
    decoder.thread_count = 1  # more of them hold pictures back
    with open(sys.argv[1], "w", buffering=1, encoding="ascii") as log:
        for frame in frames():
            for picture in decoder.decode(av.Packet(frame)):
                now = time.monotonic()
                luma = picture.planes[0]
                number = numbered.read(memoryview(luma), picture.width, picture.height,
                                       luma.line_size)
                log_picture(log, number, now)


if __name__ == "__main__":
    main()
