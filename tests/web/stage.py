"""A gateway on a simulated board, and headless Chromium at its page. BUILD says where they are."""

from __future__ import annotations

import mmap
import socket
import struct
import subprocess
import sys
import threading
import time
from pathlib import Path
from typing import Any, Callable, TypeVar

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / "python"), str(TESTS / "video")]
from simulated_board import BUILD, PATIENCE, Board, make_clip  # noqa: E402

PHONE = (360, 740)
LAPTOP = (1366, 768)
STICKS_AT = 1056  # in the record of the stick inputs: three doubles

Value = TypeVar("Value")


def until(look: Callable[[], Value], what: str, patience: float = PATIENCE) -> Value:
    """What it gives as soon as that is true."""
    end = time.monotonic() + patience
    while True:
        value = look()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"not within {patience} s: {what}")
        time.sleep(0.02)


class Gateway:
    """The gateway of a board, on one port for as long as the test lives."""

    def __init__(self, board: Board, *options: str) -> None:
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.address = f"127.0.0.1:{probe.getsockname()[1]}"
        self.command = [BUILD / "ardenvue-gateway", "--board", board.folder.name,
                        "--listen", self.address,
                        "--stick-guard", BUILD / "client/ardenvue-stick-guard", *options]
        self.start()

    def start(self) -> None:
        """Starts it, again if need be."""
        self.process = subprocess.Popen(self.command, stderr=subprocess.DEVNULL)
        host, port = self.address.split(":")

        def serves() -> bool:
            with socket.socket() as probe:
                return probe.connect_ex((host, int(port))) == 0

        until(serves, "that the gateway serves")

    def stop(self) -> None:
        """Ends it, as a supervisor does."""
        self.process.terminate()
        assert self.process.wait(PATIENCE) == 0, "the gateway's exit code"


class Wire:
    """A network between a page and its gateway, that can be slow, or lose everything."""

    def __init__(self, gateway: Gateway) -> None:
        self.there = gateway.address.split(":")
        self.bytes_a_second = 1e9
        self.is_cut = False
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"http://127.0.0.1:{self.listener.getsockname()[1]}/"
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self) -> None:
        """Two threads for each connection, one each way."""
        while True:
            try:
                here, _ = self.listener.accept()
            except OSError:
                return
            there = socket.socket()
            there.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8192)
            if there.connect_ex((self.there[0], int(self.there[1]))) != 0:
                here.close()
                there.close()
                continue
            for ends in ((here, there), (there, here)):
                threading.Thread(target=self.carry, args=ends, daemon=True).start()

    def carry(self, source: socket.socket, drain: socket.socket) -> None:
        """Carries until one end is closed."""
        try:
            while piece := source.recv(2048):
                time.sleep(len(piece) / self.bytes_a_second)
                while self.is_cut:
                    time.sleep(0.01)
                drain.sendall(piece)
        except OSError:
            pass
        try:
            drain.shutdown(socket.SHUT_WR)
        except OSError:
            pass
        source.close()

    def close(self) -> None:
        """No more connections."""
        self.listener.close()


class Sticks(threading.Thread):
    """Watches the record of the stick inputs: what they are, and since when they have been zero."""

    def __init__(self, name: str) -> None:
        super().__init__(daemon=True)
        self.path = Path("/dev/shm") / name.lstrip("/")
        self.inputs = (0.0, 0.0, 0.0)
        self.moved_at = 0.0
        self.stops = False
        self.start()

    def run(self) -> None:
        size = STICKS_AT + 24
        until(lambda: self.path.exists() and self.path.stat().st_size > size, "the record")
        with self.path.open("rb") as file:
            record = mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ)
        while not self.stops:
            self.inputs = struct.unpack_from("=3d", record, STICKS_AT)
            if any(self.inputs):
                self.moved_at = time.monotonic()
            time.sleep(0.002)


class Browser:
    """Headless Chromium with one page."""

    def __init__(self, size: tuple[int, int] = LAPTOP) -> None:
        options = Options()
        options.binary_location = "/usr/bin/chromium"
        for option in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage",
                       "--autoplay-policy=no-user-gesture-required"):
            options.add_argument(option)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        service = Service("/usr/bin/chromedriver")
        self.driver = webdriver.Chrome(service=service, options=options)
        self.driver.set_script_timeout(4 * PATIENCE)
        self.show_as(size)

    def show_as(self, size: tuple[int, int], is_dark: bool = False, scale: int = 1) -> None:
        """As on a screen of that size, a phone's when it is higher than wide."""
        width, height = size
        is_phone = height > width
        self.cdp("Emulation.setDeviceMetricsOverride", width=width, height=height,
                 deviceScaleFactor=scale, mobile=is_phone)
        self.cdp("Emulation.setTouchEmulationEnabled", enabled=is_phone)
        scheme = {"name": "prefers-color-scheme", "value": "dark" if is_dark else "light"}
        self.cdp("Emulation.setEmulatedMedia", features=[scheme])

    def open(self, url: str) -> None:
        """Opens the page, until it is live."""
        self.driver.get(url)
        self.wait_for("live")

    def cdp(self, command: str, **arguments: Any) -> Any:
        """The browser's own control."""
        return self.driver.execute_cdp_cmd(command, arguments)

    def js(self, script: str, *arguments: Any) -> Any:
        """What a script in the page returns; of a promise, what it comes to."""
        return self.driver.execute_script(script, *arguments)

    def text(self, id_: str) -> str:
        """What stands in an element."""
        return self.js("return document.getElementById(arguments[0]).textContent", id_)

    def press(self, selector: str) -> None:
        """Presses a button, as a person does: one that is hidden or covered can't be pressed."""
        button = self.driver.find_element("css selector", selector)
        self.js("arguments[0].closest('details')?.setAttribute('open', '');"
                "arguments[0].scrollIntoView({block: 'center'})", button)
        button.click()

    def link(self) -> str:
        """The word for what the page shows now: live, late, cut, ..."""
        return self.js("return document.body.dataset.link")

    def wait_for(self, *words: str) -> None:
        """Waits for one of these links."""
        until(lambda: self.link() in words, f"the page says {words}, not {self.link()}: "
              f"{self.text('log')}")

    def take_control(self) -> None:
        """Takes it while nobody has it."""
        self.press("#take")
        until(lambda: self.text("holder") == "You have control", "control")

    def clock_ahead(self) -> float:
        """Seconds by which the page's clock is ahead of ours; of ten tries, the quickest."""
        tries = []
        for _ in range(10):
            before = time.monotonic()
            page = self.js("return performance.now() / 1000")
            after = time.monotonic()
            tries.append((after - before, page - (before + after) / 2))
        return min(tries)[1]

    def complaints(self) -> list[str]:
        """What the page's console says, since the last time."""
        return [line["message"] for line in self.driver.get_log("browser")]

    def close(self) -> None:
        """Ends the browser."""
        self.driver.quit()
