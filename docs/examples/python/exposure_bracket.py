#!/usr/bin/env python3
"""Three photos of one scene, two stops apart: exposure_bracket.py 1/500 [--port 5000]

Sets each shutter speed, waits until the camera's state shows it, shoots, waits until the photo is
counted, and puts the first speed back. Needs python3-ardenvue.
"""

import argparse
import math
import sys
from fractions import Fraction

from ardenvue import CameraMode, ExposureProgram, Link, Report, commands


def speed_near(seconds: float) -> str:
    """The camera's own speed that comes nearest: "1/120" for 0.008."""

    def length(speed: str) -> float:
        return float(speed[:-1]) if speed.endswith('"') else 1 / float(speed[2:])

    return min(commands()["shutter"], key=lambda speed: abs(math.log(length(speed) / seconds)))


def confirmed(link: Link, command: int, what: str) -> None:
    """Ends the program when the camera's state does not show the command."""
    if link.confirm(command, timeout=5) is None:
        sys.exit(f"the camera did not take {what}")


def main() -> None:
    """The command line."""
    parser = argparse.ArgumentParser(description="Takes three photos, two stops apart.")
    parser.add_argument("shutter", type=Fraction, help="of the middle photo, in seconds: 1/500")
    parser.add_argument("--port", type=int, default=5000, help="the status port")
    options = parser.parse_args()
    with Link(options.port, present=True) as link:
        if link.wait(Report.STATUS_LINE, timeout=5) is None or link.status is None:
            sys.exit("no status comes: is the service running?")
        before = link.status.shutter_set
        confirmed(link, link.set_camera_mode(CameraMode.PHOTO), "photo mode")
        confirmed(link, link.set_exposure_program(ExposureProgram.MANUAL), "manual exposure")
        for factor in (Fraction(1, 4), Fraction(1), Fraction(4)):
            speed = speed_near(float(options.shutter * factor))
            confirmed(link, link.send(f"shutter {speed}"), f"a shutter of {speed}")
            confirmed(link, link.take_photo(), "a photo")
            print(f"{speed}: {link.status.shots_left} photos left", flush=True)
        if before is not None:
            confirmed(link, link.set_shutter(before), f"a shutter of {before:g} s")


if __name__ == "__main__":
    main()
