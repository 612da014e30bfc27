"""A short demonstration: what comes, for some seconds.

python3 -m ardenvue [--port 5000] [--ring NAME] [--seconds 10]
"""

from __future__ import annotations

import argparse
import time

from ardenvue import ArdenvueError, Link, Report, Start, Video


def main() -> int:
    """The command line."""
    parser = argparse.ArgumentParser(
        prog="python3 -m ardenvue", description="Shows what the service sends."
    )
    parser.add_argument("--port", type=int, default=5000, help="the status port")
    parser.add_argument("--ring", help="the frame ring, when it is not the service's own")
    parser.add_argument("--seconds", type=float, default=10)
    options = parser.parse_args()
    try:
        with (
            Link(options.port, ring=options.ring) as link,
            Video(options.ring, Start.NEXT, at_once=True) as video,
        ):
            end = time.monotonic() + options.seconds
            next_line = 0.0
            while (now := time.monotonic()) < end:
                while video.next(0) is not None:
                    pass
                link.wait(Report.ANY, 0.01)
                if now >= next_line:
                    next_line = now + 1
                    status, totals = link.status, video.totals
                    camera = "no status yet"
                    if status is not None:
                        camera = f"{status.camera_model}, battery {status.battery_percent} %, "
                        camera += f"ISO {status.iso}"
                    video_text = f"{totals.frames} frames, {totals.missed} missed"
                    print(f"{link.state.name.lower():6} {camera}; {video_text}", flush=True)
    except ArdenvueError as error:
        print(f"ardenvue: {error}")
        return 1
    except KeyboardInterrupt:
        pass
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
