"""The service on a simulated board, for tests in Python. BUILD says where it was built."""

from __future__ import annotations

import os
import signal
import socket
import subprocess
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ["BUILD"])
PATIENCE = 30.0


def free_port() -> int:
    """A UDP port that nobody holds, below those that the kernel gives away."""
    for port in range(11_000 + os.getpid() % 9_000, 32_000):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue
    raise RuntimeError("no free port")


def make_clip(clip: Path, pictures: int, size: str = "320x240") -> Path:
    """Makes a numbered clip."""
    command = [ROOT / "scripts/make-numbered-clip", "--pictures", str(pictures), "--size", size]
    subprocess.run([*command, clip], check=True)
    return clip


class Board:
    """The service on a simulated board, streaming a numbered clip to a camera that answers."""

    def __init__(self, *options: str, clip: Path | None = None) -> None:
        self.folder = tempfile.TemporaryDirectory(prefix="ardenvue-python-")
        clip = clip or make_clip(Path(self.folder.name) / "clip.h264", 300)
        command = [BUILD / "ardenvue-sim", "run", "--clip", clip, "--board-dir", self.folder.name]
        command += options
        self.simulator = subprocess.Popen(
            [*command, "--", "-s", str(free_port())], stderr=subprocess.DEVNULL
        )
        env = Path(self.folder.name) / "env"
        end = time.monotonic() + PATIENCE
        while not (env.exists() and "SERVICE_PID" in env.read_text()) and time.monotonic() < end:
            time.sleep(0.05)
        self.names = dict(line.split("=", 1) for line in env.read_text().splitlines())
        self.port = int(self.names["STATUS_PORT"])
        self.ring = self.names["FRAME_RING"]

    def close(self) -> int:
        """The simulator's own judgement of the run."""
        self.simulator.send_signal(signal.SIGINT)
        code = self.simulator.wait(PATIENCE)
        self.folder.cleanup()
        return code
