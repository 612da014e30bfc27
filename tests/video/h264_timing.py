"""Takes the timing out of an H.264 byte stream (ITU-T H.264, 7.3.2.1.1 and E.1.1)."""

from __future__ import annotations

import re

HIGH_PROFILES = {100, 110, 122, 244, 44, 83, 86, 118, 128}


class Bits:
    """Reads a raw byte sequence payload bit by bit."""

    def __init__(self, payload: bytes) -> None:
        self.text = "".join(f"{byte:08b}" for byte in payload)
        self.at = 0

    def take(self, count: int) -> int:
        """So many bits as a number."""
        self.at += count
        return int(self.text[self.at - count:self.at] or "0", 2)

    def golomb(self) -> int:
        """An Exp-Golomb number (9.1); signed ones are passed over the same way."""
        zeros = self.text.index("1", self.at) - self.at
        self.at += zeros
        return self.take(zeros + 1) - 1


def without_timing(sps: bytes) -> bytes:
    """A sequence parameter set (without start code) whose VUI has lost its timing information."""
    payload = re.sub(rb"\x00\x00\x03", b"\x00\x00", sps[1:])
    bits = Bits(payload)
    profile = bits.take(8)
    bits.take(16)
    bits.golomb()  # seq_parameter_set_id
    if profile in HIGH_PROFILES:
        if bits.golomb() == 3:
            bits.take(1)
        bits.golomb()
        bits.golomb()
        bits.take(1)
        if bits.take(1):
            raise ValueError("scaling matrices are not expected here")
    bits.golomb()  # log2_max_frame_num_minus4
    order_type = bits.golomb()
    if order_type == 0:
        bits.golomb()
    elif order_type == 1:
        raise ValueError("pic_order_cnt_type 1 is not expected here")
    bits.golomb()  # max_num_ref_frames
    bits.take(1)
    bits.golomb()  # width, height
    bits.golomb()
    if not bits.take(1):  # frame_mbs_only_flag
        bits.take(1)
    bits.take(1)
    if bits.take(1):  # frame_cropping_flag
        for _ in range(4):
            bits.golomb()
    if not bits.take(1):  # vui_parameters_present_flag
        return sps
    if bits.take(1) and bits.take(8) == 255:  # aspect_ratio_info
        bits.take(32)
    if bits.take(1):  # overscan_info
        bits.take(1)
    if bits.take(1):  # video_signal_type
        bits.take(4)
        if bits.take(1):
            bits.take(24)
    if bits.take(1):  # chroma_loc_info
        bits.golomb()
        bits.golomb()
    if not bits.take(1):  # timing_info_present_flag
        return sps
    text = bits.text[:bits.at - 1] + "0" + bits.text[bits.at + 65:]
    text = text[:text.rindex("1") + 1]  # up to the stop bit
    text += "0" * (-len(text) % 8)
    payload = int(text, 2).to_bytes(len(text) // 8, "big")
    return sps[:1] + re.sub(rb"\x00\x00(?=[\x00-\x03])", b"\x00\x00\x03", payload)


def strip_timing(stream: bytes) -> bytes:
    """The byte stream (annex B), the timing taken out of each of its sequence parameter sets."""
    parts = re.split(rb"(\x00\x00\x01)", stream)
    for index in range(2, len(parts), 2):
        if parts[index] and parts[index][0] & 0x1F == 7:
            unit = parts[index].rstrip(b"\x00")
            parts[index] = without_timing(unit) + parts[index][len(unit):]
    return b"".join(parts)
