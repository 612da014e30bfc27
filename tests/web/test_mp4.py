"""What the client writes as MP4, played by a browser: as a file, and through Media Source.

Run by scripts/web-test, which says where the build is: BUILD.
"""

from __future__ import annotations

import functools
import http.server
import subprocess
import tempfile
import threading
import unittest
from pathlib import Path
from typing import Any

from stage import BUILD, Board, Browser

PAGE = """<!doctype html><video id="video" muted></video><script>
const video = document.getElementById('video');
const ended = () => new Promise((resolve, reject) => {
  video.onended = () => resolve(
    [video.videoWidth, video.videoHeight, video.getVideoPlaybackQuality().totalVideoFrames]);
  video.onerror = () => reject(video.error.message);
  video.play();
});
async function playFile(url) { video.src = url; return ended(); }
async function playPieces(url, type) {  // as a page takes a live stream: appended as it comes
  const source = new MediaSource();
  video.src = URL.createObjectURL(source);
  await new Promise(resolve => { source.onsourceopen = resolve; });
  const buffer = source.addSourceBuffer(type);
  const bytes = new Uint8Array(await (await fetch(url)).arrayBuffer());
  for (let at = 0; at < bytes.length; at += 5000) {
    buffer.appendBuffer(bytes.slice(at, at + 5000));
    await new Promise(resolve => { buffer.onupdateend = resolve; });
  }
  source.endOfStream();
  const ranges = buffer.buffered.length;
  return [...await ended(), ranges];
}
</script>"""


class Quiet(http.server.SimpleHTTPRequestHandler):
    """Serves a folder without a word."""

    def log_message(self, *_: Any) -> None:
        """Nothing."""


class Mp4(unittest.TestCase):
    """In headless Chromium."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="ardenvue-web-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        (self.folder / "page.html").write_text(PAGE)
        handler = functools.partial(Quiet, directory=folder.name)
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        browser = Browser()
        self.addCleanup(browser.close)
        self.browser = browser.driver
        self.browser.get(f"http://127.0.0.1:{server.server_port}/page.html")

    def play(self, call: str) -> list[int]:
        """What a function of the page gives; what it throws is told, too."""
        script = f"const done = arguments[0]; {call}.then(done, e => done('' + e))"
        return self.browser.execute_async_script(script)

    def test_plays_every_picture_without_a_gap(self) -> None:
        board = Board()
        try:
            for name, command in (("live.mp4", ["video", "--format", "mp4", "-o"]),
                                  ("flight.mp4", ["record", "--no-state"])):
                client = [BUILD / "ardenvue-ctl", "--board", board.folder.name, *command]
                subprocess.run([*client, self.folder / name, "--seconds", "4"], check=True,
                               stderr=subprocess.DEVNULL)
        finally:
            self.assertEqual(board.close(), 0, "the simulator found a fault")
        for name in ("live.mp4", "flight.mp4"):
            probe = ["ffprobe", "-v", "error", "-count_packets", "-select_streams", "v", "-of",
                     "csv=p=0", "-show_entries", "stream=profile,level,nb_read_packets",
                     self.folder / name]
            told = subprocess.run(probe, stdout=subprocess.PIPE, check=True).stdout.decode()
            _, level, pictures = told.strip().split(",")
            size = [320, 240, int(pictures)]
            self.assertGreater(int(pictures), 60)
            with self.subTest(name):
                self.assertEqual(self.play(f"playFile('{name}')"), size)
                kind = f'video/mp4; codecs="avc1.6400{int(level):02x}"'
                played = self.play(f"playPieces('{name}', '{kind}')")
                self.assertEqual(played, [*size, 1], "in one range")


if __name__ == "__main__":
    unittest.main(verbosity=2)
