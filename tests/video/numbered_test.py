"""The reader of numbered pictures: what it must take, and what it must not."""

from __future__ import annotations

import tempfile
import unittest
from pathlib import Path

import judge
import numbered


def rgb_of(luma: bytes) -> bytes:
    """Full-range RGB of video-range luma."""
    return bytes(min(255, (y - 16) * 255 // 219) for y in luma for _ in range(3))


class NumberedPictures(unittest.TestCase):
    """Whatever decoder and colour conversion do to a picture, its number stays or is refused."""

    def test_reads_what_was_painted(self) -> None:
        for width, height in ((320, 240), (333, 187), (1280, 720)):
            for number in (0, 1, 1799, 0x5A5A5, 0xFFFFF):
                picture = numbered.paint(number, width, height)
                self.assertEqual(numbered.read(picture, width, height), number)
        rgb = rgb_of(picture[:width * height])
        self.assertEqual(numbered.read(rgb, width, height, step=3), number)

    def test_refuses_mixed_and_foreign_pictures(self) -> None:
        size = 320 * 240
        one, other = (numbered.paint(number, 320, 240)[:size] for number in (700, 701))
        average = bytes((a + b) // 2 for a, b in zip(one, other))
        for wrong in (one[:size // 2] + other[size // 2:], one[:16 * 320] + other[16 * 320:],
                      average, bytes(size), bytes([255]) * size):
            self.assertIsNone(numbered.read(wrong, 320, 240))

    def test_order_goes_the_shorter_way_round_the_loop(self) -> None:
        order = numbered.Order(loop=100)
        for number in (97, 98, 0, 0, 99, 3, None, 100):
            order.add(number)
        counted = (order.missing, order.repeated, order.backwards, order.invented, order.pictures)
        self.assertEqual(counted, (1 + 2, 1, 1, 2, 8))


class Judging(unittest.TestCase):
    """Faults that the report must see in a log."""

    def test_sees_losses_inventions_and_growth(self) -> None:
        with tempfile.TemporaryDirectory() as name:
            sent, log = Path(name) / "sent", Path(name) / "log"
            # Three loops of 200 pictures, ten a second; seen 50 ms later, in the last third 350 ms.
            sent.write_text("".join(f"{n % 200} {100 + n / 10:.6f}\n" for n in range(600)))
            seen = [(100.05 + n / 10 + (0.3 if n > 400 else 0), str(n % 200)) for n in range(600)]
            seen[300] = (seen[300][0], "-")
            seen[350] = (seen[350][0], "140")  # behind 149
            del seen[320:325]
            lines = [f"{at:.6f} {number}\n" for at, number in seen]
            log.write_text("".join(lines) + "160.1 1")  # its writer was ended there
            verdict = judge.judge(log, judge.SentTimes(sent), 99.05, 200)
        order = verdict.order
        self.assertEqual((order.pictures, order.invented, order.backwards), (595, 1, 1))
        self.assertEqual(order.missing, 5 + 1 + 1)
        self.assertAlmostEqual(verdict.first or 0, 1.0, 5)
        self.assertAlmostEqual(verdict.median or 0, 0.05, 5)
        self.assertAlmostEqual(verdict.high or 0, 0.35, 5)
        self.assertAlmostEqual(verdict.growth or 0, 0.30, 5)

    def test_a_picture_seen_before_it_was_sent_is_invented(self) -> None:
        with tempfile.TemporaryDirectory() as name:
            sent, log = Path(name) / "sent", Path(name) / "log"
            sent.write_text("".join(f"{n} {100 + n / 10:.6f}\n" for n in range(100)))
            log.write_text("".join(f"{99.5 + n / 10:.6f} {n}\n" for n in range(100)))
            self.assertGreater(judge.judge(log, judge.SentTimes(sent), 99, 100).order.invented, 50)


if __name__ == "__main__":
    unittest.main()
