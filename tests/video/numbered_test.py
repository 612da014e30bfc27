"""The reader of numbered pictures: what it must take, and what it must not."""

from __future__ import annotations

import unittest

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


if __name__ == "__main__":
    unittest.main()
