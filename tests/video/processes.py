"""The programs of a run: started, waited for, ended with it."""

from __future__ import annotations

import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parent.parent.parent
BUILD = ROOT / "build" / "release"
PATIENCE = 30.0  # for a program to start


class Processes:
    """Use it in a with statement: the directory of the logs, and all programs, end with it."""

    def __init__(self, name: str, keep: Path | None = None) -> None:
        self.name = name
        self.keep = keep
        self.directory = Path(tempfile.mkdtemp(prefix=f"{name}."))
        self.running: list[subprocess.Popen[bytes]] = []

    def __enter__(self) -> Processes:
        return self

    def __exit__(self, *_: Any) -> None:
        self.end(*self.running)
        if self.keep:
            shutil.copytree(self.directory, self.keep, dirs_exist_ok=True)
        shutil.rmtree(self.directory, ignore_errors=True)

    def start(self, name: str, *command: Any, stdin: Any = subprocess.DEVNULL,
              stdout: Any = None) -> subprocess.Popen[bytes]:
        """Starts a program. What it says goes to a file of this name in the directory."""
        with (self.directory / name).open("wb") as said:
            process = subprocess.Popen([str(word) for word in command], stdin=stdin,
                                       stdout=stdout or said, stderr=said)
        self.running.append(process)
        return process

    def end(self, *processes: subprocess.Popen[bytes]) -> None:
        """Ends these, the newest first."""
        for process in reversed(processes):
            process.terminate()
        for process in processes:
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()

    def said(self, name: str, pattern: str = "") -> str:
        """What a program said; with a pattern, waits until it fits, and gives its group."""
        end = time.monotonic() + PATIENCE
        while True:
            text = (self.directory / name).read_text("utf-8", "replace")
            found = re.search(pattern or r"(?s)(.*)", text)
            if found:
                return found.group(1)
            if time.monotonic() > end:
                sys.exit(f"{self.name}: {name} did not start:\n{text}")
            time.sleep(0.02)

    def board(self, name: str, port: int, *options: Any) -> Path:
        """Starts the service on a simulated board, and gives what --board takes."""
        folder = self.directory / f"{name}.board"
        self.start(name, BUILD / "ardenvue-sim", "run", "--board-dir", folder, *options, "--",
                   "-s", port)
        end = time.monotonic() + PATIENCE
        while not (folder / "env").exists():
            if time.monotonic() > end:
                sys.exit(f"{self.name}: {name} did not start:\n{self.said(name)}")
            time.sleep(0.02)
        return folder

    def gateway(self, name: str, board: Path, *options: Any) -> tuple[subprocess.Popen[bytes], str]:
        """Starts a gateway on the board. Its process, and its address."""
        process = self.start(name, BUILD / "ardenvue-gateway", "--board", board, "--listen",
                             "127.0.0.1:0", *options)
        return process, self.said(name, r"(http://[^\s/]+)/")


def free_port(kind: int) -> int:
    """A port of 127.0.0.1 that nobody holds, for socket.SOCK_STREAM or SOCK_DGRAM."""
    with socket.socket(socket.AF_INET, kind) as probe:
        probe.bind(("127.0.0.1", 0))
        return int(probe.getsockname()[1])


def loopback_url(port: int) -> str:
    """The address of a program that serves HTTP there."""
    return f"http://127.0.0.1:{port}"


def processor_seconds(process: subprocess.Popen[bytes]) -> float:
    """What a process took so far, as proc(5) has it."""
    fields = Path(f"/proc/{process.pid}/stat").read_text("ascii").rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def resident_megabytes(process: subprocess.Popen[bytes]) -> float:
    """Its memory in use, what it shares with others included."""
    pages = int(Path(f"/proc/{process.pid}/statm").read_text("ascii").split()[1])
    return pages * os.sysconf("SC_PAGE_SIZE") / 2**20
