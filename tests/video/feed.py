"""Writes a clip picture by picture to the standard output, at a steady rate, as a camera would.

What stands behind it is a decoder alone: the same bytes without service and ring. Logs when each
picture was written, as the simulator does: number and seconds of CLOCK_MONOTONIC.
feed.py CLIP RATE LOG; the clip is a byte stream (.h264), a transport stream (.ts), or fragmented
(.mp4, a picture a fragment).
"""

from __future__ import annotations

import re
import signal
import sys
import time
from collections.abc import Iterator
from pathlib import Path

import numbered

PACKET = 188
FIRST_OF_PICTURE = re.compile(rb"\x00?\x00\x00\x01(?:[\x67\x27]|[\x41\x61\x21\x01])")


def access_units(stream: bytes) -> list[bytes]:
    """Cuts a byte stream, one slice a picture, at parameter sets and at slices that are no IDR."""
    starts = [match.start() for match in FIRST_OF_PICTURE.finditer(stream)]
    return [stream[a:b] for a, b in zip(starts, starts[1:] + [len(stream)])]


def fragments(file: bytes) -> list[bytes]:
    """Cuts an MP4 file behind each box of media data; the header goes with the first one."""
    pieces, begin, at = [], 0, 0
    while at < len(file):
        size, kind = int.from_bytes(file[at:at + 4], "big"), file[at + 4:at + 8]
        at += size
        if kind == b"mdat":
            pieces.append(file[begin:at])
            begin = at
    return pieces


def transport_packets(stream: bytes) -> list[bytes]:
    """Cuts a transport stream (ISO/IEC 13818-1) before each beginning of a PES packet."""
    starts = [at for at in range(0, len(stream), PACKET)
              if stream[at + 1] & 0x40 and b"\x00\x00\x01\xe0" in stream[at:at + PACKET]]
    return [stream[a:b] for a, b in zip([0] + starts[1:], starts[1:] + [len(stream)])]


def pictures(path: Path) -> Iterator[tuple[int, bytes]]:
    """Number and bytes of one picture after the other; a byte stream has no end."""
    cut = {".mp4": fragments, ".ts": transport_packets}.get(path.suffix)
    if cut:
        for count, piece in enumerate(cut(path.read_bytes())):
            yield count % numbered.PICTURES, piece
        return
    units = access_units(path.read_bytes())
    while True:
        yield from enumerate(units)


def paced(path: Path, rate: float, log_path: Path) -> Iterator[bytes]:
    """The bytes of one picture after the other when they are due; logs when that was."""
    begun = time.monotonic()
    with open(log_path, "w", buffering=1, encoding="ascii") as log:
        for count, (number, data) in enumerate(pictures(path)):
            time.sleep(max(0.0, begun + count / rate - time.monotonic()))
            log.write(f"{number} {time.monotonic():.6f}\n")
            yield data


def main() -> None:
    """Until the reader is gone."""
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    for data in paced(Path(sys.argv[1]), float(sys.argv[2]), Path(sys.argv[3])):
        sys.stdout.buffer.write(data)
        sys.stdout.buffer.flush()


if __name__ == "__main__":
    main()
