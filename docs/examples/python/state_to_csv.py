#!/usr/bin/env python3
"""Logs the camera's state as CSV, a row a status line.

    state_to_csv.py [--port 5000] [--ring NAME] [--rows N] >flight.csv

Needs python3-ardenvue.
"""

import argparse
import csv
import dataclasses
import sys
import time

from ardenvue import GimbalFocus, Link, Report, Status


def main() -> None:
    """The command line."""
    parser = argparse.ArgumentParser(description="Logs the camera's state as CSV.")
    parser.add_argument("--port", type=int, default=5000, help="the status port")
    parser.add_argument("--ring", help="the frame ring, when it is not the service's own")
    parser.add_argument("--rows", type=int, help="end after so many")
    options = parser.parse_args()
    gimbal = ("heading", "tilt", "roll", "recording")
    fields = ["time", "link", *(field.name for field in dataclasses.fields(Status)), *gimbal]
    writer = csv.DictWriter(sys.stdout, fields, extrasaction="ignore")
    writer.writeheader()
    with Link(options.port, ring=options.ring) as link:
        rows = 0
        while rows != options.rows:
            if link.wait(Report.STATUS_LINE, timeout=2) is None:
                print("no status for 2 s", file=sys.stderr)
                continue
            row: dict[str, object] = {"time": round(time.time(), 3), "link": link.state.name}
            for record in (link.status, link.gimbal_focus):
                if isinstance(record, (Status, GimbalFocus)):
                    row |= dataclasses.asdict(record)
            writer.writerow({name: getattr(value, "name", value) for name, value in row.items()})
            sys.stdout.flush()
            rows += 1


if __name__ == "__main__":
    main()
