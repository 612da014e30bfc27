"""The Python binding against the C headers, and against the service on a simulated board.

Run by scripts/python-test, which says where the build is: BUILD, and ARDENVUE_LIBRARY.
"""

from __future__ import annotations

import csv
import ctypes
import gc
import io
import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

import ardenvue
from ardenvue import Capture, Confirmation, Link, LinkState, Report, Sticks, Video, _native

ROOT = Path(__file__).resolve().parents[2]
EXAMPLES = Path(os.environ.get("EXAMPLES", ROOT / "docs/examples/python"))

sys.path.insert(0, str(ROOT / "tests/video"))
import numbered  # noqa: E402
from simulated_board import PATIENCE, Board, free_port  # noqa: E402


class Structures(unittest.TestCase):
    """What ctypes lays out is what the compiler does."""

    def test_every_field_lies_where_the_header_has_it(self) -> None:
        records = {
            name.removesuffix("Record"): record
            for name, record in vars(_native).items()
            if isinstance(record, type) and hasattr(record, "_fields_")
        }
        self.assertGreaterEqual(len(records), 6)
        asked, expected = [], []
        for name, record in records.items():
            asked.append(f"sizeof(struct Ardenvue{name})")
            expected.append(ctypes.sizeof(record))
            for field, *_ in record._fields_:
                asked.append(f"offsetof(struct Ardenvue{name}, {field})")
                expected.append(getattr(record, field).offset)
        asked.append("ARDENVUE_REASON_SIZE")
        expected.append(_native.REASON_SIZE)
        asked.append("ARDENVUE_STATE_JSON_SIZE")
        expected.append(_native.STATE_JSON_SIZE)
        asked += [f"ARDENVUE_ERROR_{code.name}" for code in ardenvue.ErrorCode]
        expected += list(ardenvue.ErrorCode)
        headers = ("ardenvue/client.h", "stddef.h", "stdio.h")
        source = "".join(f"#include <{header}>\n" for header in headers) + "int main(void) {\n"
        source += "".join(f'    printf("%ld\\n", (long)({what}));\n' for what in asked) + "}\n"
        with tempfile.TemporaryDirectory() as folder:
            program = Path(folder) / "layout"
            include = ["-I", ROOT / "include"] if "INSTALLED" not in os.environ else []
            command = ["cc", "-x", "c", *include, "-o", program, "-"]
            subprocess.run(command, input=source.encode(), check=True)
            printed = subprocess.run([program], stdout=subprocess.PIPE, check=True).stdout
        for what, value, said in zip(asked, expected, printed.split(), strict=True):
            self.assertEqual(int(value), int(said), what)


class Handles(unittest.TestCase):
    """What is closed, missing or taken is an exception with a reason, never a crash."""

    def test_failures_say_why(self) -> None:
        with self.assertRaisesRegex(ardenvue.ArdenvueError, "no-such-ring") as caught:
            Video("/no-such-ring")
        self.assertEqual(caught.exception.code, ardenvue.ErrorCode.SYSTEM)
        with self.assertRaises(FileNotFoundError):
            Capture("/no/such/capture")
        port = free_port()
        with Link(port) as link:
            with self.assertRaisesRegex(ardenvue.ArdenvueError, "python") as caught:
                Link(port)
            self.assertEqual(caught.exception.code, ardenvue.ErrorCode.BUSY)
            with self.assertRaisesRegex(ardenvue.ArdenvueError, 'did you mean "400"'):
                link.send("iso 450")
            self.assertIsNone(link.wait(timeout=0.05))
            self.assertIsNone(link.status)
            self.assertEqual(link.state, LinkState.DOWN)
            self.assertIsNone(json.loads(link.as_json())["camera"])
        for use in (lambda: link.state, lambda: link.status, lambda: link.wait(timeout=0)):
            with self.assertRaisesRegex(ValueError, "closed"):
                use()
        link.close()
        self.assertIn("100", ardenvue.commands()["iso"])


class Live(unittest.TestCase):
    """Beside a running service."""

    board: Board

    @classmethod
    def setUpClass(cls) -> None:
        cls.board = Board()

    @classmethod
    def tearDownClass(cls) -> None:
        assert cls.board.close() == 0, "the simulator found a fault"

    def example(self, name: str, *arguments: object) -> str:
        """What one of the examples prints."""
        command = [sys.executable, EXAMPLES / name, *map(str, arguments)]
        done = subprocess.run(command, stdout=subprocess.PIPE, check=True, timeout=4 * PATIENCE)
        return done.stdout.decode()

    def test_frames_come_in_order_and_stay_as_they_are(self) -> None:
        with Video(self.board.ring) as video:
            frames = []
            for frame in video:
                frames.append((frame, bytes(frame.data)))
                if len(frames) == 60:
                    break
        gc.collect()
        self.assertTrue(frames[0][0].is_key)
        for (before, _), (after, _) in zip(frames, frames[1:]):
            self.assertEqual(after.number, (before.number + 1 + after.missed_before) % 65_536)
            self.assertGreater(after.time_ns, before.time_ns)
            self.assertGreater(after.wall_ns, before.wall_ns)
        for frame, data in frames:
            self.assertEqual(frame.data, data)
            self.assertTrue(frame.data.readonly)

    def test_commands_are_confirmed_and_the_state_is_typed(self) -> None:
        with Link(self.board.port, present=True, ring=self.board.ring) as link:
            self.assertEqual(link.wait(Report.STATUS_LINE, PATIENCE), Report.STATUS_LINE)
            iso = 800 if link.status.iso_set != 800 else 1600
            self.assertEqual(link.confirm(link.set_iso(iso), PATIENCE), Confirmation.CAME)
            again = link.send(f"iso {iso}")
            self.assertEqual(link.confirm(again, PATIENCE), Confirmation.WAS_THERE)
            self.assertEqual(link.status.iso_set, iso)
            self.assertEqual(link.status.camera_model, "Phantom 4 Pro")
            self.assertEqual(link.texts["camera_model"], "Phantom 4 Pro")
            self.assertEqual(link.confirm(link.start_recording(), PATIENCE), Confirmation.CAME)
            self.assertTrue(link.gimbal_focus.recording)
            self.assertIsNotNone(link.confirm(link.stop_recording(), PATIENCE))
            state = json.loads(link.as_json())
            self.assertEqual(state["camera"]["iso_set"], iso)
            self.assertLess(link.age(), PATIENCE)
            self.assertGreater(link.totals.status_lines, 0)

    def test_sticks_are_let_go_at_the_end(self) -> None:
        record = Path("/dev/shm") / self.board.names["RC_RAW_STATE"].lstrip("/")
        guard = os.environ.get("STICK_GUARD")
        with Sticks(self.board.names["RC_RAW_STATE"], guard) as sticks:
            sticks.set(0.5)
            self.assertTrue(any(record.read_bytes()))
        self.assertFalse(any(record.read_bytes()))

    def test_an_interrupt_ends_a_wait(self) -> None:
        # Whoever starts the tests in the background may have them ignore interrupts.
        code = (
            "import signal; signal.signal(signal.SIGINT, signal.default_int_handler)\n"
            f"from ardenvue import Link; link = Link({free_port()}); print(1, flush=True)\n"
            "link.wait()"
        )
        command = [sys.executable, "-c", code]
        waiting = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        # Before that line an interpreter that only starts would die without a word.
        waiting.stdout.readline()
        ports = Path("/proc") / str(waiting.pid) / "wchan"
        end = time.monotonic() + PATIENCE
        while "poll" not in ports.read_text() and time.monotonic() < end:
            time.sleep(0.02)
        waiting.send_signal(signal.SIGINT)
        self.assertIn(b"KeyboardInterrupt", waiting.communicate(timeout=PATIENCE)[1])

    def test_the_module_demonstrates_itself(self) -> None:
        command = [sys.executable, "-m", "ardenvue", "--port", str(self.board.port)]
        command += ["--ring", self.board.ring, "--seconds", "3"]
        said = subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout.decode()
        self.assertRegex(said, r"live +Phantom 4 Pro, battery \d+ %, ISO \d+; \d+ frames, 0 missed")

    def test_examples(self) -> None:
        rows = list(csv.DictReader(io.StringIO(
            self.example("state_to_csv.py", "--port", self.board.port, "--rows", 2))))
        self.assertEqual(rows[1]["camera_model"], "Phantom 4 Pro")

        said = self.example("exposure_bracket.py", "1/500", "--port", self.board.port)
        self.assertEqual([line.split(":")[0] for line in said.splitlines()],
                         ["1/2000", "1/500", "1/120"])
        left = [int(line.split()[1]) for line in said.splitlines()]
        self.assertEqual(left, [left[0], left[0] - 1, left[0] - 2])

        lines = self.example("opencv_frames.py", "--ring", self.board.ring, "--pictures", 30)
        self.assertEqual(len(lines.splitlines()), 30)
        self.assertRegex(lines.splitlines()[0], r"^\d+\.\d{3} 320x240 \d+\.\d$")

        picture = Path(self.board.folder.name) / "picture.png"
        self.example("snapshot.py", picture, "--ring", self.board.ring)
        import av  # only the pictures' tests need it
        with av.open(str(picture)) as png:
            luma = next(png.decode(video=0)).to_ndarray(format="gray")
        self.assertEqual(luma.shape, (240, 320))
        number = numbered.read(luma.tobytes(), 320, 240)
        self.assertIsNotNone(number)
        self.assertEqual(number % 30, 0, "a key picture")


if __name__ == "__main__":
    unittest.main(verbosity=2)
