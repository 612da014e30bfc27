#!/usr/bin/env python3
"""The live picture in OpenCV: prints the mean brightness of each picture.

    opencv_frames.py [--ring NAME] [--pictures N] [--show]

With --show in a window. Needs python3-ardenvue, python3-av and python3-opencv.
"""

import argparse
from collections.abc import Iterator

import av
import cv2
import numpy

from ardenvue import Video


def pictures(ring: str | None) -> Iterator[tuple[int, numpy.ndarray]]:
    """Decoded pictures with the time of their arrival (time.monotonic_ns)."""
    decoder = av.CodecContext.create("h264", "r")
    decoder.thread_type = "SLICE"  # threads for frames would hold back a picture each
    with Video(ring) as video:
        for frame in video:
            if frame.follows_restart or frame.missed_before > 0:
                decoder = av.CodecContext.create("h264", "r")
            # Puts pictures together that came in pieces; it waits for the next one's start.
            for packet in decoder.parse(frame.data):
                for picture in decoder.decode(packet):
                    yield frame.time_ns, picture.to_ndarray(format="bgr24")


def main() -> None:
    """The command line."""
    parser = argparse.ArgumentParser(description="Prints the mean brightness of each picture.")
    parser.add_argument("--ring", help="the frame ring, when it is not the service's own")
    parser.add_argument("--pictures", type=int, help="end after so many")
    parser.add_argument("--show", action="store_true", help="in a window")
    options = parser.parse_args()
    for count, (time_ns, picture) in enumerate(pictures(options.ring), 1):
        height, width = picture.shape[:2]
        brightness = cv2.cvtColor(picture, cv2.COLOR_BGR2GRAY).mean()
        print(f"{time_ns / 1e9:.3f} {width}x{height} {brightness:.1f}", flush=True)
        if options.show:
            cv2.imshow("Ardenvue", picture)
            cv2.waitKey(1)
        if count == options.pictures:
            break


if __name__ == "__main__":
    main()
