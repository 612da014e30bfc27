"""The shared library, its records and its errors, as ctypes see them (include/ardenvue/*.h)."""

from __future__ import annotations

import ctypes
import os
from ctypes import (
    POINTER,
    Structure,
    c_bool,
    c_char,
    c_char_p,
    c_double,
    c_int,
    c_int16,
    c_int32,
    c_int64,
    c_size_t,
    c_uint8,
    c_uint16,
    c_uint32,
    c_uint64,
    c_void_p,
)
from enum import IntEnum
from typing import Any, Self

# A build's own library instead of the installed one.
library = ctypes.CDLL(os.environ.get("ARDENVUE_LIBRARY", "libardenvue.so.1"), use_errno=True)


class ErrorCode(IntEnum):
    """Why a call failed."""

    ARGUMENT = -1
    MEMORY = -2
    SYSTEM = -3
    TIMEOUT = -4
    INTERRUPTED = -5
    NONE_YET = -6
    DATA = -7
    BUSY = -8
    COMMAND = -9
    NOT_REPORTED = -10
    GUARD = -11


class ArdenvueError(Exception):
    """A call of the library failed; `code` tells how, the text why."""

    def __init__(self, code: int, reason: str = "") -> None:
        self.code = ErrorCode(code)
        super().__init__(reason or library.ardenvue_error_text(code).decode())


# The structures of the headers, under the names that they have there behind "Ardenvue".


class FrameRecord(Structure):
    _fields_ = [
        ("data", c_void_p),
        ("size", c_size_t),
        ("number", c_uint16),
        ("is_key", c_bool),
        ("follows_restart", c_bool),
        ("missed_before", c_uint32),
        ("time_ns", c_int64),
        ("wall_ns", c_int64),
    ]


class VideoTotalsRecord(Structure):
    _fields_ = [
        ("frames", c_uint64),
        ("bytes", c_uint64),
        ("missed", c_uint64),
        ("skipped", c_uint64),
        ("restarts", c_uint32),
    ]


class PieceRecord(Structure):
    _fields_ = [("kind", c_int), ("time_ns", c_int64), ("data", c_void_p), ("size", c_size_t)]


class StatusRecord(Structure):
    _fields_ = [
        ("time_ns", c_int64),
        ("camera_model", c_char * 64),
        ("camera_detected", c_bool),
        ("ae", c_bool),
        ("histogram", c_bool),
        ("camera_mode", c_int),
        ("card_gigabytes", c_double),
        ("shots_left", c_int32),
        ("recording_seconds_left", c_int32),
        ("recording_seconds", c_int32),
        ("voltage", c_int32),
        ("battery_percent", c_int32),
        ("battery_temperature", c_double),
        ("photo_format", c_int),
        ("photo_ratio", c_int),
        ("video_width", c_int32),
        ("video_height", c_int32),
        ("video_rate", c_int32),
        ("video_standard", c_int),
        ("aperture", c_double),
        ("shutter", c_double),
        ("shutter_set", c_double),
        ("iso", c_int32),
        ("iso_set", c_int32),
        ("ev", c_double),
        ("exposure_program", c_int),
        ("color", c_int),
        ("white_balance", c_int),
        ("white_balance_kelvin", c_int32),
        ("antiflicker", c_int),
        ("sensor", c_int32),
        ("playback_id", c_int32),
    ]


class GimbalFocusRecord(Structure):
    _fields_ = [
        ("time_ns", c_int64),
        ("heading", c_int16),
        ("tilt", c_int16),
        ("roll", c_int16),
        ("orientation_lock", c_bool),
        ("recording", c_bool),
        ("camera_flags", c_uint8 * 3),
        ("focus_reported", c_bool),
        ("focus_type", c_int),
        ("focus_mode", c_uint8),
        ("focus_aux", c_uint8 * 2),
        ("focus_max", c_uint16),
        ("focus_position", c_uint16),
        ("focus_x", c_double),
        ("focus_y", c_double),
    ]


class HistogramRecord(Structure):
    _fields_ = [("time_ns", c_int64), ("bins", c_uint8 * 64)]


class LinkTotalsRecord(Structure):
    _fields_ = [
        ("status_lines", c_uint64),
        ("gimbal_focus_records", c_uint64),
        ("histogram_records", c_uint64),
        ("ignored", c_uint64),
        ("restarts", c_uint64),
    ]


REASON_SIZE = 1024
STATE_JSON_SIZE = 8192

# What a function takes; those that send are told apart below. All give an int but those named.
_handle = c_void_p
_arguments: dict[str, list[Any]] = {
    "error_text": [c_int],
    "video_open": [POINTER(_handle), c_char_p, c_int, c_char_p, c_size_t],
    "video_close": [_handle],
    "video_go_on_at_once": [_handle, c_bool],
    "video_next": [_handle, POINTER(FrameRecord), c_int],
    "video_totals": [_handle, POINTER(VideoTotalsRecord)],
    "capture_open": [POINTER(_handle), c_char_p],
    "capture_close": [_handle],
    "capture_next": [_handle, POINTER(PieceRecord)],
    "capture_has_times": [_handle],
    "sticks_open": [POINTER(_handle), c_char_p, c_char_p, c_char_p, c_size_t],
    "sticks_set": [_handle, c_double, c_double, c_double],
    "sticks_close": [_handle],
    "link_open": [POINTER(_handle), c_char_p, c_uint16, c_char_p, c_size_t],
    "link_close": [_handle],
    "link_keep_present": [_handle, c_bool],
    "link_watch_frames": [_handle, c_char_p],
    "link_descriptor": [_handle],
    "link_problem": [_handle],
    "link_wait": [_handle, c_int, c_int],
    "link_state": [_handle],
    "link_report_age": [_handle, c_int],
    "link_service": [_handle],
    "link_totals": [_handle, POINTER(LinkTotalsRecord)],
    "link_pair": [_handle, c_size_t, POINTER(c_char_p), POINTER(c_char_p)],
    "link_status": [_handle, POINTER(StatusRecord)],
    "link_gimbal_focus": [_handle, POINTER(GimbalFocusRecord)],
    "link_histogram": [_handle, POINTER(HistogramRecord)],
    "state_json": [_handle, c_char_p, c_size_t],
    "send": [_handle, c_char_p],
    "send_json": [_handle, c_char_p],
    "confirm": [_handle, c_int, c_int],
    "command_name": [c_size_t],
    "command_choice": [c_char_p, c_size_t],
}
_results: dict[str, Any] = {
    "error_text": c_char_p,
    "video_close": None,
    "video_go_on_at_once": None,
    "video_totals": None,
    "capture_close": None,
    "capture_has_times": c_bool,
    "sticks_close": None,
    "link_close": None,
    "link_keep_present": None,
    "link_problem": c_char_p,
    "link_report_age": c_int64,
    "link_service": c_char_p,
    "link_totals": None,
    "command_name": c_char_p,
    "command_choice": c_char_p,
}
# Functions that send: what they take behind the link.
_senders: dict[str, list[Any]] = {
    "start_recording": [],
    "stop_recording": [],
    "take_photo": [],
    "reset_camera": [],
    "format_card": [],
    "face_ahead": [],
    "face_back": [],
    "calibrate_horizon": [],
    "set_video_format": [c_int, c_int, c_int],
    "set_histogram": [c_bool],
    "lock_orientation": [c_bool],
    "set_shutter": [c_double],
    "set_aperture": [c_double],
    "set_ev": [c_double],
    "set_focus_point": [c_double, c_double],
}
_senders.update(
    (f"set_{setting}", [c_int])
    for setting in (
        "camera_mode",
        "photo_format",
        "photo_ratio",
        "video_standard",
        "transmission",
        "exposure_program",
        "iso",
        "white_balance",
        "white_balance_kelvin",
        "color",
        "antiflicker",
        "focus_type",
        "focus_position",
        "gimbal_mode",
        "follow_speed",
        "movement",
    )
)
for _name, _types in _senders.items():
    _arguments[_name] = [_handle, *_types]
for _name, _types in _arguments.items():
    _function = getattr(library, "ardenvue_" + _name)
    _function.argtypes = _types
    _function.restype = _results.get(_name, c_int)


class Handle:
    """What the library opened: closed at the end of a `with`, by `close`, or with the object.

    Every use behind that is a ValueError, as a closed file's is.
    """

    _close: str

    def __init__(self) -> None:
        self._address: int | None = None

    @property
    def _handle(self) -> c_void_p:
        if self._address is None:
            raise ValueError(f"this {type(self).__name__} is closed")
        return c_void_p(self._address)

    def _open(self, function: str, *arguments: Any) -> int:
        """Opens it; a negative code is why it can't be."""
        handle = c_void_p()
        code = int(getattr(library, "ardenvue_" + function)(handle, *arguments))
        self._address = handle.value if code >= 0 else None
        return code

    def _open_with_reason(self, function: str, *arguments: Any) -> None:
        reason = ctypes.create_string_buffer(REASON_SIZE)
        code = self._open(function, *arguments, reason, len(reason))
        if code < 0:
            raise ArdenvueError(code, reason.value.decode(errors="replace"))

    def close(self) -> None:
        """May be called again."""
        address, self._address = self._address, None
        if address is not None:
            getattr(library, "ardenvue_" + self._close)(c_void_p(address))

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_address", None) is not None:
            self.close()


def milliseconds(timeout: float | None) -> int:
    """Seconds, None without end, as the library takes them."""
    return -1 if timeout is None else max(0, round(timeout * 1000))


def text(value: str | os.PathLike[str] | None) -> bytes | None:
    """A text as the library takes it; None is its default."""
    return None if value is None else os.fsencode(value)


def copied(address: int | None, size: int) -> memoryview:
    """Bytes of the library's, which it will use again."""
    return memoryview(ctypes.string_at(address, size) if address else b"")
