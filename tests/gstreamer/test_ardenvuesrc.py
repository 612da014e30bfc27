"""The element ardenvuesrc and GStreamer's sinks behind it, against a simulated board.

Run by scripts/gstreamer-test, which says where the build is: BUILD, and GST_PLUGIN_PATH.
"""

from __future__ import annotations

import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path
from typing import Any

import cv2
import gi
import numpy

ROOT = Path(__file__).resolve().parents[2]
EXAMPLES = Path(os.environ.get("EXAMPLES", ROOT / "docs/examples/gstreamer"))
sys.path[:0] = [str(ROOT / "tests/video"), str(ROOT / "tests/python")]
import numbered  # noqa: E402
from simulated_board import PATIENCE, Board, free_port  # noqa: E402

gi.require_version("Gst", "1.0")
from gi.repository import Gst  # noqa: E402

Gst.init(None)
WIDTH, HEIGHT, LOOP = 320, 240, 300
DECODE = ["-f", "rawvideo", "-pix_fmt", "gray", "-fps_mode", "passthrough", "-"]


class Pipeline:
    """A pipeline that plays; leaving it stops it, and tells how long that took."""

    def __init__(self, description: str) -> None:
        self.pipeline = Gst.parse_launch(description)
        self.bus = self.pipeline.get_bus()
        self.stop_took = 0.0

    def __enter__(self) -> Pipeline:
        self.pipeline.set_state(Gst.State.PLAYING)
        return self

    def __exit__(self, *_: object) -> None:
        began = time.monotonic()
        self.pipeline.set_state(Gst.State.NULL)
        self.stop_took = time.monotonic() - began

    def message(self, kinds: Gst.MessageType) -> Gst.Message:
        """The next message of these kinds; an AssertionError when none comes."""
        found = self.bus.timed_pop_filtered(int(PATIENCE * Gst.SECOND), kinds)
        assert found is not None, f"no message of {kinds}"
        return found

    def samples(self, count: int) -> list[Gst.Sample]:
        """That many samples of the appsink "sink"."""
        sink = self.pipeline.get_by_name("sink")
        samples = [sink.emit("try-pull-sample", int(PATIENCE * Gst.SECOND)) for _ in range(count)]
        if None in samples:
            problem = self.bus.pop_filtered(Gst.MessageType.ERROR)
            raise AssertionError(problem.parse_error() if problem else "samples stopped coming")
        return samples


def pixels(sample: Gst.Sample) -> numpy.ndarray:
    """The luma of a decoded sample."""
    buffer = sample.get_buffer()
    with buffer.map(Gst.MapFlags.READ) as mapped:
        return numpy.frombuffer(mapped.data, numpy.uint8)[:WIDTH * HEIGHT].copy()


class Source(unittest.TestCase):
    """All tests share one service."""

    board: Board

    @classmethod
    def setUpClass(cls) -> None:
        cls.board = Board()
        cls.source = f"ardenvuesrc ring={cls.board.ring}"

    @classmethod
    def tearDownClass(cls) -> None:
        assert cls.board.close() == 0, "the simulator found a fault"

    def judge(self, numbers: list[int | None], at_least: int) -> None:
        """Order kept, none invented; missing is nothing in between either."""
        order = numbered.Order(loop=LOOP)
        for number in numbers:
            order.add(number)
        self.assertGreaterEqual(order.pictures, at_least)
        self.assertEqual((order.invented, order.missing, order.backwards), (0, 0, 0), numbers)

    def judge_bytes(self, luma: bytes, at_least: int) -> None:
        """The same of pictures one behind the other."""
        size = WIDTH * HEIGHT
        pictures = [luma[at:at + size] for at in range(0, len(luma) - size + 1, size)]
        self.judge([numbered.read(picture, WIDTH, HEIGHT) for picture in pictures], at_least)

    def test_caps_times_and_flags(self) -> None:
        with Pipeline(f"{self.source} name=src ! appsink name=sink sync=false") as running:
            samples = running.samples(60)
            caps = samples[0].get_caps().get_structure(0)
            query = Gst.Query.new_latency()
            self.assertTrue(running.pipeline.get_by_name("src").query(query))
        self.assertEqual(caps.get_name(), "video/x-h264")
        self.assertEqual((caps.get_value("width"), caps.get_value("height")), (WIDTH, HEIGHT))
        self.assertEqual(caps.get_value("stream-format"), "byte-stream")
        self.assertEqual(caps.get_value("alignment"), "au")
        is_live, least, most = query.parse_latency()
        self.assertTrue(is_live)
        self.assertLessEqual(least, 10 * Gst.MSECOND)
        self.assertEqual(most, Gst.CLOCK_TIME_NONE)
        buffers = [sample.get_buffer() for sample in samples]
        self.assertTrue(all(a.pts < b.pts for a, b in zip(buffers, buffers[1:])))
        self.assertTrue(buffers[0].has_flags(Gst.BufferFlags.DISCONT))
        keys = [not buffer.has_flags(Gst.BufferFlags.DELTA_UNIT) for buffer in buffers]
        self.assertTrue(keys[0])
        self.assertEqual(sum(keys), 2 + int(keys.index(True, 1) == 0))
        # Thirty pictures a second, whatever the stream says; the ring's came at once.
        rate = 29 / ((buffers[-1].pts - buffers[-30].pts) / Gst.SECOND)
        self.assertAlmostEqual(rate, 30, delta=6)

    def test_waiting_ends_at_once_and_a_missing_ring_says_why(self) -> None:
        self.board.simulator.send_signal(signal.SIGSTOP)
        try:
            with Pipeline(f"{self.source} name=src start=next ! fakesink") as running:
                running.pipeline.get_by_name("src").get_state(int(PATIENCE * Gst.SECOND))
        finally:
            self.board.simulator.send_signal(signal.SIGCONT)
        self.assertLess(running.stop_took, 1)
        with Pipeline("ardenvuesrc ring=/no-such-ring ! fakesink") as broken:
            error, _ = broken.message(Gst.MessageType.ERROR).parse_error()
        self.assertIn("no-such-ring", error.message)

    def test_files_without_encoding_again(self) -> None:
        for muxer, ending in (("mp4mux", "mp4"), ("matroskamux", "mkv")):
            with tempfile.TemporaryDirectory() as folder:
                file = Path(folder) / f"flight.{ending}"
                line = f"{self.source} num-buffers=90 ! h264parse ! {muxer}"
                line += f" ! filesink location={file}"
                with Pipeline(line) as running:
                    message = running.message(Gst.MessageType.EOS | Gst.MessageType.ERROR)
                self.assertEqual(message.type, Gst.MessageType.EOS)
                command = ["ffmpeg", "-nostdin", "-v", "error", "-i", file, *DECODE]
                luma = subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout
                self.judge_bytes(luma, 90)

    def test_opencv(self) -> None:
        line = f"{self.source} ! h264parse ! avdec_h264 ! videoconvert ! video/x-raw,format=BGR"
        capture = cv2.VideoCapture(f"{line} ! appsink sync=false", cv2.CAP_GSTREAMER)
        numbers = []
        for _ in range(60):
            is_read, picture = capture.read()
            self.assertTrue(is_read)
            numbers.append(numbered.read(picture.tobytes(), WIDTH, HEIGHT, step=3))
        capture.release()
        self.judge(numbers, 60)

    def test_rtp_is_taken_by_gstreamer_and_by_ffmpeg(self) -> None:
        pay = "h264parse config-interval=-1 ! rtph264pay ! udpsink host=127.0.0.1"
        # 5600 is what ground stations take; others may be tested on this machine, too.
        port = free_port()
        caps = "application/x-rtp,media=video,clock-rate=90000,encoding-name=H264"
        receive = f"udpsrc address=127.0.0.1 port={port} caps={caps}"
        receive += " ! rtpjitterbuffer ! rtph264depay"
        decode = "h264parse ! avdec_h264 ! appsink name=sink sync=false"
        with Pipeline(f"{receive} ! {decode}") as receiver:
            with Pipeline(f"{self.source} ! {pay} port={port}"):
                samples = receiver.samples(60)
        self.judge([numbered.read(pixels(each).tobytes(), WIDTH, HEIGHT) for each in samples], 60)

        with tempfile.TemporaryDirectory() as folder:
            sdp = Path(folder) / "live.sdp"
            sdp.write_text(f"v=0\nc=IN IP4 127.0.0.1\nm=video {port} RTP/AVP 96\n"
                           "a=rtpmap:96 H264/90000\n")
            command = ["ffmpeg", "-nostdin", "-v", "fatal", "-protocol_whitelist", "file,udp,rtp"]
            command += ["-i", str(sdp), "-frames:v", "60", *DECODE]
            with Pipeline(f"{self.source} ! {pay} port={port}"):
                done = subprocess.run(command, stdout=subprocess.PIPE, timeout=PATIENCE, check=True)
        self.judge_bytes(done.stdout, 60)

    def test_rtsp_serves_ffmpeg(self) -> None:
        command: list[Any] = [sys.executable, EXAMPLES / "rtsp_server.py"]
        command += ["--ring", self.board.ring]
        server = subprocess.Popen([*command, "--port", "0"], stdout=subprocess.PIPE, text=True)
        try:
            assert server.stdout is not None
            address = server.stdout.readline().strip()
            self.assertRegex(address, r"^rtsp://127\.0\.0\.1:\d+/live$")
            command = ["ffmpeg", "-nostdin", "-v", "fatal", "-rtsp_transport", "tcp", "-i", address]
            command += ["-frames:v", "60", *DECODE]
            done = subprocess.run(command, stdout=subprocess.PIPE, timeout=PATIENCE, check=True)
        finally:
            server.terminate()
            server.communicate(timeout=PATIENCE)
        self.judge_bytes(done.stdout, 60)


class Restart(unittest.TestCase):
    """The service is ended, and the simulator starts it again, as a supervisor would."""

    def test_it_goes_on_or_ends(self) -> None:
        board = Board("--fault", "unplug@4")
        try:
            sink = "appsink name=sink sync=false"
            line = f"ardenvuesrc ring={board.ring}"
            with (Pipeline(f"{line} ! {sink}") as going_on,
                  Pipeline(f"{line} eos-on-restart=true ! fakesink") as ending):
                message = ending.message(Gst.MessageType.EOS | Gst.MessageType.ERROR)
                self.assertEqual(message.type, Gst.MessageType.EOS)
                flags = [sample.get_buffer().has_flags(Gst.BufferFlags.DISCONT)
                         for sample in going_on.samples(180)]
            self.assertEqual(sum(flags), 2, "the first one, and the first one behind the restart")
        finally:
            board.close()


if __name__ == "__main__":
    unittest.main(verbosity=2)
