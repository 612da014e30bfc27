"""Opens the gateway's page in headless Chromium, and logs the numbered pictures that it shows.

A line each, as watch.py writes them: when the picture was read from a canvas, in seconds of
CLOCK_MONOTONIC, and its number, or - for none of ours. watch_browser.py URL LOG
"""

from __future__ import annotations

import signal
import sys
import time
from pathlib import Path

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

# The number's squares (numbered.py) survive being drawn small. Its clock is told from the gateway's
# by the quickest of some answers.
WATCH = """
const done = arguments[0];
const WIDTH = 160, HEIGHT = 120, COLUMNS = 20, ROWS = 15;
const canvas = document.createElement('canvas');
canvas.width = WIDTH;
canvas.height = HEIGHT;
const context = canvas.getContext('2d', {willReadFrequently: true});
window.watched = [];

function code(pixels, row) {
  let bits = 0;
  for (let column = 0; column < COLUMNS; column += 1) {
    const x = Math.floor((column + 0.5) * WIDTH / COLUMNS);
    const y = Math.floor((row + 0.5) * HEIGHT / ROWS);
    const value = pixels[(y * WIDTH + x) * 4 + 1];
    if (Math.abs(value - 128) < 40) return -1;
    bits = bits * 2 + (value > 128 ? 1 : 0);
  }
  return bits;
}

function checksum(number) {
  let crc = 0xFFFF;
  for (const shift of [16, 8, 0]) {
    crc ^= (number >> shift & 0xFF) << 8;
    for (let bit = 0; bit < 8; bit += 1) {
      crc = (crc & 0x8000 ? crc << 1 ^ 0x1021 : crc << 1) & 0xFFFF;
    }
  }
  return crc;
}

function read(pixels) {
  const number = code(pixels, 0);
  const check = 0xA0000 + checksum(number);
  return code(pixels, ROWS - 2) === number && code(pixels, 1) === check
    && code(pixels, ROWS - 1) === check ? number : -1;
}

async function clockOffset() {
  let offset = 0, quickest = Infinity;
  for (let i = 0; i < 20; i += 1) {
    const asked = performance.now();
    const answer = await fetch('/api/state', {cache: 'no-store'});
    const answered = performance.now();
    const state = await answer.json();
    if (answered - asked < quickest) {
      quickest = answered - asked;
      offset = state.monotonic - (asked + answered) / 2000;
    }
  }
  return offset;
}

const video = document.querySelector('video');
clockOffset().then(offset => {
  let last = -1;
  function shown() {
    context.drawImage(video, 0, 0, WIDTH, HEIGHT);
    const number = read(context.getImageData(0, 0, WIDTH, HEIGHT).data);
    // A canvas may be given a picture before the picture's own callback.
    if (number < 0 || number !== last) {
      window.watched.push([performance.now() / 1000 + offset, number]);
    }
    last = number;
    video.requestVideoFrameCallback(shown);
  }
  video.requestVideoFrameCallback(shown);
  done('');
}, error => done(String(error)));
"""


def start_browser() -> webdriver.Chrome:
    """Headless Chromium, which plays without being touched."""
    options = Options()
    options.binary_location = "/usr/bin/chromium"
    for option in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage",
                   "--autoplay-policy=no-user-gesture-required", "--window-size=1280,800"):
        options.add_argument(option)
    browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    browser.set_script_timeout(60)
    return browser


def write_pictures(browser: webdriver.Chrome, path: Path) -> None:
    """Appends to the log what was read since the last call."""
    with path.open("a", encoding="ascii") as log:
        for seconds, number in browser.execute_script("return window.watched.splice(0)"):
            log.write(f"{seconds:.6f} {'-' if number < 0 else number}\n")


def main() -> None:
    """Until it is ended."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit())
    browser = start_browser()
    try:
        browser.get(sys.argv[1])
        failed = browser.execute_async_script(WATCH)
        if failed:
            sys.exit(f"watch_browser: {failed}")
        while True:
            write_pictures(browser, Path(sys.argv[2]))
            time.sleep(0.5)
    finally:
        browser.quit()


if __name__ == "__main__":
    main()
