#!/usr/bin/env python3
"""The newest key picture as a PNG file: snapshot.py FILE.png [--ring NAME]

Needs python3-ardenvue, python3-av and python3-opencv.
"""

import argparse

import av
import cv2

from ardenvue import Video


def main() -> None:
    """The command line."""
    parser = argparse.ArgumentParser(description="Writes the newest key picture as PNG.")
    parser.add_argument("file")
    parser.add_argument("--ring", help="the frame ring, when it is not the service's own")
    options = parser.parse_args()
    decoder = av.CodecContext.create("h264", "r")
    with Video(options.ring) as video:
        while (frame := video.next(timeout=5)) is not None:
            for packet in decoder.parse(frame.data):
                for picture in decoder.decode(packet):
                    cv2.imwrite(options.file, picture.to_ndarray(format="bgr24"))
                    return
    raise SystemExit("no video for 5 s")


if __name__ == "__main__":
    main()
