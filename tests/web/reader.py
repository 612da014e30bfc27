"""Reads the numbers of the pictures that a page shows, and what it says meanwhile."""

from __future__ import annotations

import base64

import stage  # where the other tests' modules are  # noqa: F401
import numbered

SMALL = (100, 75)  # to which pictures are drawn, to read their numbers

# Draws each picture that is shown, small, and keeps the lines that hold its number; and what the
# page says meanwhile.
READER = f"""
const video = document.getElementById('picture');
const canvas = new OffscreenCanvas({SMALL[0]}, {SMALL[1]});
const context = canvas.getContext('2d', {{ willReadFrequently: true }});
window.seen = {{ pictures: [], links: [] }};
const look = () => {{
  const at = performance.now() / 1000;
  context.drawImage(video, 0, 0, {SMALL[0]}, {SMALL[1]});
  const lines = [0, {SMALL[1]} - 10].map((top) => {{
    const pixels = context.getImageData(0, top, {SMALL[0]}, 10).data;
    return String.fromCharCode(...pixels.filter((_, i) => i % 4 === 0));
  }});
  seen.pictures.push([at, btoa(lines.join(''))]);
  video.requestVideoFrameCallback(look);
}};
video.requestVideoFrameCallback(look);
setInterval(() => seen.links.push([performance.now() / 1000, document.body.dataset.link]), 50);
"""


def number_of(lines: str) -> int | None:
    """The number of a picture of which the reader has kept ten lines at top and bottom."""
    luma = base64.b64decode(lines)
    width, height = SMALL
    whole = luma[:10 * width] + bytes((height - 20) * width) + luma[10 * width:]
    return numbered.read(whole, width, height)
