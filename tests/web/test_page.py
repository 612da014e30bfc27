"""The gateway's page in a browser, on a simulated board with a camera that answers.

Run by scripts/web-test, which says where the build is, BUILD, and where axe.min.js, AXE.
"""

from __future__ import annotations

import os
import subprocess
import tempfile
import time
import unittest
from pathlib import Path
from typing import Any

from stage import BUILD, LAPTOP, PHONE, Board, Browser, Gateway, Sticks, Wire, make_clip, until

import judge
from reader import READER, number_of
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

LOOP = 1200  # pictures of the clip: 20 s
# How old what is called live may be: the page's own 0.6 s, and the moment until it looks again.
OLDEST_LIVE = 1.0
# What a stick may take to zero, and what this test's own looking may take.
STICK_LIMIT = 0.3 + 0.1

# Changes a setting to another value than it has.
CHANGE = """
const row = document.querySelector(`.row[data-command="${arguments[0]}"]`);
const give = (field, value) => {
  field.value = value;
  field.dispatchEvent(new Event('change', { bubbles: true }));
};
const list = row.querySelector('select');
const slider = row.querySelector('input');
if (list) {
  const others = [...list.options].filter(({ value }) => value && value !== list.value);
  give(list, others.at(-1).value);
} else if (slider) {
  give(slider, Number(slider.min) + 20 * Number(slider.step));
} else {
  row.querySelector('button:not([aria-pressed=true])').click();
}
"""
OUTCOMES = """return Object.fromEntries([...document.querySelectorAll('.row')].map(
  (row) => [row.dataset.command, row.querySelector('.outcome').dataset.result ?? '']));"""

# What is too small for a thumb, of what can be touched on the screen.
TOO_SMALL = """return [...document.querySelectorAll('button, select, input, summary')]
  .filter((each) => each.checkVisibility({ visibilityProperty: true }))
  .map((each) => [each.id || each.textContent || each.className, each.getBoundingClientRect()])
  .filter(([_, box]) => box.width < 44 || box.height < 44).map(([name]) => name);"""

WIDE = """return Math.max(...[...document.querySelectorAll('html, #rest, #panel')]
  .map((each) => each.scrollWidth - each.clientWidth));"""


class PageTest(unittest.TestCase):
    """A board, a gateway and a browser at its page. The simulator has the last word on the run."""

    options: tuple[str, ...] = ()
    browser: Browser
    clip: Path

    @classmethod
    def setUpClass(cls) -> None:
        folder = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="ardenvue-web-"))
        cls.clip = cls.make_clip(Path(folder))
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    @classmethod
    def make_clip(cls, folder: Path) -> Path:
        """Of all cases of a class."""
        return make_clip(folder / "clip.h264", LOOP)

    def setUp(self) -> None:
        files = tempfile.TemporaryDirectory(prefix="ardenvue-web-")
        self.addCleanup(files.cleanup)
        self.folder = Path(files.name)
        self.board = Board("--log", str(self.folder / "packets"), "--video-times",
                           str(self.folder / "times"), "--fps", "60", *self.options,
                           clip=self.clip)
        self.addCleanup(
            lambda: self.assertEqual(self.board.close(), 0, "the simulator found a fault"))
        self.gateway = Gateway(self.board, *self.gateway_options())
        self.addCleanup(self.gateway.stop)
        self.addCleanup(self.browser.driver.get, "about:blank")
        self.browser.complaints()
        self.browser.show_as(LAPTOP)
        self.wire = Wire(self.gateway)
        self.addCleanup(self.wire.close)
        self.browser.open(self.wire.url)

    def gateway_options(self) -> list[str]:
        """Of a test of its own."""
        return []

    def seen_by_camera(self, *meanings: str) -> bool:
        """Whether the camera has had these commands."""
        packets = (self.folder / "packets").read_text()
        return all(f"| {meaning}\n" in packets for meaning in meanings)

    def read_pictures(self, started: float) -> judge.Verdict:
        """Judges the pictures that the reader has seen; none that was old may have looked live."""
        ahead = self.browser.clock_ahead()
        seen = self.browser.js("return seen")
        pictures = [(at - ahead, number_of(lines)) for at, lines in seen["pictures"]]
        log = self.folder / "shown"
        log.write_text("".join(f"{at} {'-' if number is None else number}\n"
                               for at, number in pictures))
        sent = judge.SentTimes(self.folder / "times")
        for at, link in ((at - ahead, link) for at, link in seen["links"] if link == "live"):
            _, newest = max((each for each in pictures if each[0] <= at), default=(0, None))
            shown_at = max((each[0] for each in pictures if each[0] <= at), default=None)
            if shown_at is not None and newest is not None:
                age = at - (sent.before(newest, shown_at) or 0)
                self.assertLess(age, OLDEST_LIVE, f"called {link} at {at}")
        return judge.judge(log, sent, started, LOOP)

    def assert_right(self, verdict: judge.Verdict, at_least: int) -> None:
        """No picture of our making, none out of order."""
        order = verdict.order
        self.assertEqual((order.invented, order.backwards), (0, 0), verdict)
        self.assertGreater(order.pictures, at_least, verdict)

    def assert_quiet(self) -> None:
        """Nothing on the console, and no fault of the page in its list."""
        self.assertEqual(self.browser.complaints(), [])
        self.assertNotIn("Fault of the page", self.browser.text("log"))


class Live(PageTest):
    """With nothing in the way."""

    def test_shows_pictures_in_order_and_soon(self) -> None:
        started = time.monotonic()
        self.browser.js(READER)
        time.sleep(8)  # of pictures
        verdict = self.read_pictures(started)
        print(f"\n{verdict.order.pictures} pictures, delay from the cable to the canvas: median "
              f"{1000 * verdict.median:.0f} ms, 95 % {1000 * verdict.high:.0f} ms")
        self.assert_right(verdict, at_least=8 * 20)
        self.assertLess(verdict.median, 0.3)
        self.assertLess(verdict.high, 0.6)

        self.browser.cdp("Browser.setDownloadBehavior", behavior="allow",
                         downloadPath=str(self.folder))
        self.browser.press("#still")
        still = until(lambda: [*self.folder.glob("*.jpg")], "a still")[0]
        size = ["ffprobe", "-v", "error", "-show_entries", "stream=width,height", "-of", "csv=p=0"]
        self.assertEqual(subprocess.check_output([*size, still]), b"320,240\n")
        self.assert_quiet()

    def test_gives_each_command_and_says_what_became_of_it(self) -> None:
        page = self.browser
        page.take_control()
        names = [name for name in page.js(OUTCOMES) if name not in ("format sd", "resetcamera")]
        self.assertGreaterEqual(len(names), 21)
        unreported = {"gimbal mode", "gimbal follow", "set movement", "video_transmission",
                      "horizont calibrate"}

        def change(*group: str) -> None:
            for name in group:
                page.js(CHANGE, name)
            wanted = {name: "sent" if name in unreported else "confirmed" for name in group}
            try:
                until(lambda: {name: page.js(OUTCOMES)[name] for name in group} == wanted, "")
            except AssertionError:
                self.assertEqual({name: page.js(OUTCOMES)[name] for name in group}, wanted)

        # Those that show in the same report, or need another one first, go later.
        later = ("wb custom", "focus manual", "horizont calibrate")
        change(*(name for name in names if name not in later))
        change(*later)

        page.press("#record")
        until(lambda: page.text("recording").startswith("REC 00:0"), "that it records")
        page.press("#record")
        until(lambda: page.text("recording") == "STBY", "that it stopped")
        page.press("#shot")
        until(lambda: self.seen_by_camera("shot 3411 left"), "the photo")
        frame = page.driver.find_element("id", "frame")
        ActionChains(page.driver).move_to_element_with_offset(
            frame, frame.rect["width"] // 4, 0).click().perform()
        until(lambda: page.js("return document.getElementById('focus-mark').style.left")[:2] in
              ("74", "75"), "the focus point")

        for name in ("format sd", "resetcamera"):
            button = f'.row[data-command="{name}"] button'
            for answers in (["no"], ["yes", "no"], ["yes", "yes"]):
                self.assertEqual(page.js(OUTCOMES)[name], "", "asked before it is sent")
                page.press(button)
                for answer in answers:
                    title = page.text("ask-title")
                    page.press(f"#ask-{answer}")
                    until(lambda: page.text("ask-title") != title or
                          not page.js("return document.getElementById('ask').open"), "the answer")
            until(lambda: page.js(OUTCOMES)[name] == "sent", name)
        until(lambda: self.seen_by_camera("format card", "reset"), "both")
        self.assert_quiet()

    def test_lets_go_of_the_sticks(self) -> None:
        page = self.browser
        page.take_control()
        sticks = Sticks(self.board.names["RC_RAW_STATE"])
        ahead = page.clock_ahead()
        pad = page.driver.find_element("id", "pad")
        now = "return performance.now() / 1000;"
        page.js("addEventListener('pointerup', () => { window.up = performance.now() / 1000; }, 1)")

        def hold() -> None:
            hand = ActionChains(page.driver).move_to_element_with_offset(pad, 50, -40)
            hand.click_and_hold().perform()
            until(lambda: sticks.inputs[0] > 0 and sticks.inputs[1] > 0, "that it moves")

        def release() -> None:
            ActionChains(page.driver).release().perform()

        def by_hand() -> float:
            release()
            return page.js("return up")

        ways: dict[str, Any] = {
            "let go": by_hand,
            "focus lost": lambda: page.js("dispatchEvent(new Event('blur'));" + now),
            "page stalled": lambda: page.js(
                "const end = performance.now() + 900; while (performance.now() < end);"
                "return end / 1000 - 0.9"),
            "control given back": lambda: page.js("document.getElementById('take').click();" + now),
            "connection lost": lambda: (setattr(self.wire, "is_cut", True), page.js(now))[1],
        }
        took = {}
        for way, end in ways.items():
            hold()
            at = end() - ahead
            until(lambda: not any(sticks.inputs), way)
            time.sleep(0.3)  # in which it must not begin again by itself
            self.assertEqual(sticks.inputs, (0, 0, 0), way)
            took[way] = sticks.moved_at - at
            release()
            if page.text("holder") != "You have control":
                page.take_control()
        self.wire.is_cut = False
        print("\nsticks at zero within " + ", ".join(
            f"{max(0, 1000 * each):.0f} ms ({way})" for way, each in took.items()))
        self.assertLess(max(took.values()), STICK_LIMIT, took)

        page.wait_for("live")
        ActionChains(page.driver).click(pad).key_down(Keys.ARROW_LEFT).perform()
        until(lambda: sticks.inputs[0] < 0, "the key")
        ActionChains(page.driver).key_up(Keys.ARROW_LEFT).perform()
        until(lambda: not any(sticks.inputs), "the key let go")
        sticks.stops = True

    def test_stays_true_on_a_slow_network(self) -> None:
        page = self.browser
        started = time.monotonic()
        page.js(READER)
        self.wire.bytes_a_second = 5000  # of each connection
        until(lambda: page.link() in ("late", "still", "cut", "silent"), "that it is slow")
        time.sleep(3)  # of that
        self.wire.bytes_a_second = 1e9
        page.wait_for("live")
        self.assert_right(self.read_pictures(started), at_least=10)


class Hands(PageTest):
    """Two clients, of which one is a phone."""

    def test_passes_control_and_fits_the_phone(self) -> None:
        laptop, phone = self.browser, Browser(PHONE)
        self.addCleanup(phone.close)
        phone.open(self.wire.url)
        laptop.take_control()
        until(lambda: "laptop" in phone.text("holder") and phone.text("take") == "Take over", "who")
        disabled = "return document.getElementById('controls').disabled"
        self.assertTrue(phone.js(disabled))
        phone.press("#take")
        phone.press("#ask-yes")
        until(lambda: phone.text("holder") == "You have control", "the phone's control")
        until(lambda: "took it" in laptop.text("log") and laptop.js(disabled), "that it is told")
        phone.press("#record")
        until(lambda: "REC" in laptop.text("recording") and "REC" in phone.text("recording"), "REC")
        self.assertIn("record start (phone", laptop.text("log"))

        for size in (PHONE, PHONE[::-1]):
            phone.show_as(size)
            phone.js("for (const each of document.querySelectorAll('details')) each.open = true")
            until(lambda: phone.js(WIDE) == 0, f"no scrolling sideways at {size}", 5)
            self.assertEqual(phone.js(TOO_SMALL), [], size)
        phone.press("#take")
        until(lambda: laptop.text("holder") == "Nobody has control", "that it is free")
        self.assertEqual(phone.complaints(), [])
        self.assert_quiet()

    def test_can_be_used_without_seeing_it(self) -> None:
        axe = os.environ.get("AXE", "")
        if not axe:
            self.skipTest("no axe-core: scripts/web-test says why")
        self.browser.js(Path(axe).read_text())
        self.browser.take_control()
        for size, is_dark in ((LAPTOP, False), (PHONE, True), (PHONE, False), (LAPTOP, True)):
            self.browser.show_as(size, is_dark)
            found = self.browser.js("return axe.run().then(({ violations }) => violations.map("
                                    "({ id, nodes }) => [id, nodes.map((node) => node.html)]))")
            self.assertEqual(found, [], (size, is_dark))


class Interrupted(PageTest):
    """The cable is pulled, which ends the service, and put back; then the gateway is ended."""

    # In the second half of the clip: its beginning, where the camera goes on, is ahead of that.
    options = ("--fault", "unplug@12:2")

    def test_says_so_and_goes_on(self) -> None:
        page = self.browser
        page.take_control()
        page.js(READER)
        started = time.monotonic()
        shows_old = """const shown = (id) => getComputedStyle(document.getElementById(id));
            const reports = [...document.querySelectorAll('.report')];
            return shown('picture').filter.includes('grayscale')
              && shown('alarm').display !== 'none'
              && reports.every((each) => each.classList.contains('old'))
              && / s old/.test(document.getElementById('top').textContent)"""
        page.wait_for("down", "silent")
        until(lambda: page.js(shows_old), "that all of it looks old", 2)
        page.wait_for("live")
        until(lambda: "The service was restarted" in page.text("log"), "the restart")
        self.assert_right(self.read_pictures(started), at_least=60)
        self.assert_quiet()

        self.gateway.stop()
        page.wait_for("cut")
        until(lambda: page.js(shows_old), "that all of it looks old", 2)
        until(lambda: "Control lost" in page.text("log"), "that control is lost")
        self.gateway.start()
        page.wait_for("live")
        page.take_control()
        page.press("#record")
        until(lambda: page.text("recording").startswith("REC"), "a command by the new gateway")
        errors = [each for each in page.complaints() if "net::ERR" not in each]
        self.assertEqual(errors, [], "but for the connection")


class Resized(PageTest):
    """The camera changes the size of the picture every three seconds."""

    @classmethod
    def make_clip(cls, folder: Path) -> Path:
        parts = [make_clip(folder / size, 180, size) for size in ("320x240", "640x360")]
        clip = folder / "clip.h264"
        clip.write_bytes(b"".join(part.read_bytes() for part in parts))
        return clip

    def test_goes_on_in_the_same_stream(self) -> None:
        page = self.browser
        for width in (320, 640, 320):
            until(lambda: page.js("return picture.videoWidth") == width, f"{width} columns")
            page.wait_for("live")
        until(lambda: "320x240 now" in page.text("log"), "that it is told")
        self.assertNotIn("lost", page.text("log"))
        self.assert_quiet()


class Guarded(PageTest):
    """Behind a token."""

    def gateway_options(self) -> list[str]:
        file = self.folder / "token"
        made = subprocess.check_output([BUILD / "ardenvue-gateway", "token", file], text=True)
        self.token = made.strip()
        return ["--token-file", str(file)]

    def setUp(self) -> None:
        self.browser.open = self.browser.driver.get  # type: ignore[method-assign]
        super().setUp()

    def test_takes_the_token_and_keeps_it_to_itself(self) -> None:
        page = self.browser
        field = page.driver.find_element("id", "token")
        until(field.is_displayed, "the question for the token")
        field.send_keys("0" * 64, Keys.ENTER)
        until(lambda: "wrong" in page.text("token-problem"), "that it is wrong")
        field.send_keys(self.token, Keys.ENTER)
        page.wait_for("live")
        page.driver.get("about:blank")
        page.driver.get(f"{self.wire.url}#token={self.token}&name=Anna")
        page.wait_for("live")
        self.assertEqual(page.driver.current_url, self.wire.url)
        kept = page.js("return [document.cookie, localStorage.length, sessionStorage.length]")
        self.assertEqual(kept, ["", 0, 0])
        page.take_control()


if __name__ == "__main__":
    unittest.main(verbosity=2)
