"""Pictures whose number a program can read after they were sent, decoded and converted.

A picture is divided into 20 columns and 15 rows. The first row of cells is the number, 20 bits,
most significant first, white for 1; the second row is 1010 and the CRC-16 of the number. Both
stand once more in the last two rows, so that a picture made of two others is found out. Between
them are the number for people and a moving bar.

A clip is played over and over: its numbers run from 0 to its length less one and begin again.
Whoever reads them takes the shorter way round the loop (Order), so that nearly half a clip may
be lost before order becomes a guess.
"""

from __future__ import annotations

from dataclasses import dataclass, field

PICTURES = 1800  # length of a clip unless told otherwise: 30 s at 60 pictures a second
COLUMNS = 20
ROWS = 15
BLACK, GREY, WHITE = 16, 90, 235
MARGIN = 40  # a cell this near to the middle of black and white is neither
FONT = {  # three columns by five rows, a bit a cell
    "0": "75557", "1": "26227", "2": "71747", "3": "71717", "4": "55711",
    "5": "74717", "6": "74757", "7": "71111", "8": "75757", "9": "75717",
}


def checksum(number: int) -> int:
    """CRC-16 (polynomial 0x1021, from 0xFFFF) of the number as three bytes."""
    crc = 0xFFFF
    for byte in number.to_bytes(3, "big"):
        crc ^= byte << 8
        for _ in range(8):
            crc = (crc << 1 ^ 0x1021 if crc & 0x8000 else crc << 1) & 0xFFFF
    return crc


def code_rows(number: int) -> list[int]:
    """The two rows of cells for a number, as 20 bits each."""
    return [number, 0b1010 << 16 | checksum(number)]


def cells_to_line(bits: int, width: int) -> bytes:
    """One line of pixels of a row of cells."""
    return bytes(WHITE if bits >> (COLUMNS - 1 - x * COLUMNS // width) & 1 else BLACK
                 for x in range(width))


def paint(number: int, width: int, height: int) -> bytes:
    """The picture of a number in I420: luma, then grey chroma."""
    codes = [cells_to_line(row, width) for row in code_rows(number)]
    bar = 4 * number % width
    lines: dict[int, bytes] = {}
    picture = bytearray()
    text = f"{number % 1000000:06}"
    for y in range(height):
        row = y * ROWS // height
        if row in (0, ROWS - 2):
            picture += codes[0]
        elif row in (1, ROWS - 1):
            picture += codes[1]
        else:
            if row not in lines:
                line = bytearray(GREY for _ in range(width))
                line[bar:bar + width // 40] = bytes([WHITE]) * len(line[bar:bar + width // 40])
                if 5 <= row < 10:
                    for place, digit in enumerate(text):
                        for column in range(3):
                            if int(FONT[digit][row - 5]) >> (2 - column) & 1:
                                left = (1 + 3 * place) * width // COLUMNS
                                left += column * width // COLUMNS * 4 // 5
                                size = width // COLUMNS * 4 // 5
                                line[left:left + size] = bytes([WHITE]) * size
                lines[row] = bytes(line)
            picture += lines[row]
    return bytes(picture) + bytes([128]) * (2 * ((width + 1) // 2) * ((height + 1) // 2))


def read(pixels: bytes | memoryview, width: int, height: int, stride: int = 0,
         step: int = 1) -> int | None:
    """The number of a picture; None when it is none of ours, or made of several.

    Pixels are luma, or with a step of 3 or 4 bytes a pixel any colour of RGB. The stride is in
    bytes, when lines are longer than the picture is wide.
    """
    stride = stride or width * step
    reach_x = max(1, width // COLUMNS // 5)
    reach_y = max(1, height // ROWS // 5)

    def cell(column: int, row: int) -> int | None:
        x = (2 * column + 1) * width // (2 * COLUMNS)
        y = (2 * row + 1) * height // (2 * ROWS)
        values = [pixels[(y + dy) * stride + (x + dx) * step]
                  for dy in (-reach_y, 0, reach_y) for dx in (-reach_x, 0, reach_x)]
        mean = sum(values) / len(values)
        if abs(mean - (BLACK + WHITE) / 2) < MARGIN:
            return None
        return int(mean > (BLACK + WHITE) / 2)

    def code(row: int) -> int | None:
        bits = 0
        for column in range(COLUMNS):
            bit = cell(column, row)
            if bit is None:
                return None
            bits = bits << 1 | bit
        return bits

    number = code(0)
    if number is None or code(ROWS - 2) != number:
        return None
    check = code_rows(number)[1]
    return number if code(1) == check and code(ROWS - 1) == check else None


@dataclass
class Order:
    """What became of the order of pictures whose numbers come in one after the other."""

    loop: int = PICTURES
    pictures: int = 0
    invented: int = 0
    missing: int = 0
    repeated: int = 0
    backwards: int = 0
    last: int | None = field(default=None, repr=False)

    def add(self, number: int | None) -> bool:
        """Counts one picture. True when it is one of ours, and newer than those before."""
        self.pictures += 1
        if number is None or number >= self.loop:
            self.invented += 1
            return False
        step = 1 if self.last is None else (number - self.last) % self.loop
        if step == 0:
            self.repeated += 1
        elif step > self.loop // 2:
            self.backwards += 1
        else:
            self.missing += step - 1
            self.last = number
            return True
        return False
