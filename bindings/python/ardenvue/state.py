"""What the service reports: the values of the status line and of the records, and their words."""

from __future__ import annotations

import math
from dataclasses import dataclass
from enum import IntEnum
from typing import Any, TypeVar


class Report(IntEnum):
    """What the service sends; how often: a second, and twice five times a second."""

    ANY = 0
    STATUS_LINE = 1
    GIMBAL_FOCUS = 2
    HISTOGRAM = 3


class LinkState(IntEnum):
    """Whether what is shown is what is so."""

    DOWN = 0
    SILENT = 1
    """The last values, sent on, or a picture alone: show them as old."""
    LIVE = 2


class Confirmation(IntEnum):
    """What the state tells of a command."""

    CAME = 1
    """The state shows it now, and did not before."""
    WAS_THERE = 2
    """The state shows it as before, which proves nothing."""
    SHOWN = 3
    """The state shows it; nothing had been reported of it before."""


class CameraMode(IntEnum):
    PHOTO = 1
    VIDEO = 2
    PLAYBACK = 3


class PhotoFormat(IntEnum):
    RAW = 1
    JPG = 2
    JPG_RAW = 3


class PhotoRatio(IntEnum):
    RATIO_4_3 = 1
    RATIO_16_9 = 2


class ExposureProgram(IntEnum):
    AUTO = 1
    SHUTTER = 2
    APERTURE = 3
    MANUAL = 4


class WhiteBalance(IntEnum):
    AUTO = 1
    SUNNY = 2
    CLOUDY = 3
    INCANDESCENT = 4
    NEON = 5
    CUSTOM = 6


class Color(IntEnum):
    NONE = 1
    TRUECOLOR = 2
    D_CINELIKE = 3
    D_LOG = 4
    FILM = 5
    BLACK_WHITE = 6
    COOL = 7
    TWILIGHT = 8
    PALE = 9
    SEPIA = 10
    WARM = 11
    BLUE = 12
    BLOCKBUSTER = 13


class VideoStandard(IntEnum):
    PAL = 1
    NTSC = 2


class Antiflicker(IntEnum):
    AUTO = 1
    HZ_50 = 2
    HZ_60 = 3


class Transmission(IntEnum):
    REGULAR = 1
    HD = 2
    SMOOTH = 3


class FocusType(IntEnum):
    MF = 1
    AFS = 2
    AFC = 3


class GimbalMode(IntEnum):
    TILT_LOCKED = 1
    FPV = 2
    FOLLOW = 3


class FollowSpeed(IntEnum):
    SLOW = 1
    FAST = 2


class Movement(IntEnum):
    ABSOLUTE = 1
    RELATIVE = 2


@dataclass(frozen=True)
class Status:
    """The status line as values.

    None is what is not known, or a word that the library does not know.
    """

    time_ns: int
    """Of arrival, `time.monotonic_ns()`."""
    camera_model: str
    camera_detected: bool
    ae: bool
    histogram: bool
    camera_mode: CameraMode | None
    card_gigabytes: float | None
    shots_left: int
    recording_seconds_left: int | None
    recording_seconds: int | None
    voltage: int
    battery_percent: int
    battery_temperature: float | None
    """Degrees Celsius."""
    photo_format: PhotoFormat | None
    photo_ratio: PhotoRatio | None
    video_width: int | None
    video_height: int | None
    video_rate: int | None
    video_standard: VideoStandard | None
    aperture: float | None
    shutter: float | None
    """Seconds, in use; `shutter_set` is what was set."""
    shutter_set: float | None
    iso: int
    """In use; `iso_set` is what was set, 0 automatic."""
    iso_set: int
    ev: float | None
    exposure_program: ExposureProgram | None
    color: Color | None
    white_balance: WhiteBalance | None
    white_balance_kelvin: int
    antiflicker: Antiflicker | None
    sensor: int | None
    playback_id: int | None


@dataclass(frozen=True)
class GimbalFocus:
    """Where the gimbal looks and the camera focuses, five times a second."""

    time_ns: int
    heading: int
    """Degrees; -180 looks back at the person flying."""
    tilt: int
    roll: int
    orientation_lock: bool
    recording: bool
    focus_type: FocusType | None
    """None, as all below, until the camera has reported its focus."""
    focus_position: int | None
    focus_max: int | None
    focus_point: tuple[float, float] | None
    """Fractions of the picture, from its upper left corner."""


@dataclass(frozen=True)
class LinkTotals:
    """Since the link was opened."""

    status_lines: int
    gimbal_focus_records: int
    histogram_records: int
    ignored: int
    """Malformed, or from somebody else than the service."""
    restarts: int
    """Of the service: the movement mode is relative and the orientation lock off again."""


_words: dict[str, type[IntEnum]] = {
    "camera_mode": CameraMode,
    "photo_format": PhotoFormat,
    "photo_ratio": PhotoRatio,
    "video_standard": VideoStandard,
    "exposure_program": ExposureProgram,
    "color": Color,
    "white_balance": WhiteBalance,
    "antiflicker": Antiflicker,
}
# Passed on as the camera has them, 0 and below included.
_as_they_are = {
    "time_ns",
    "shots_left",
    "voltage",
    "battery_percent",
    "iso",
    "iso_set",
    "white_balance_kelvin",
}
_Word = TypeVar("_Word", bound=IntEnum)


def word_of(kind: type[_Word], number: int) -> _Word | None:
    """The word of a number; None when it is none of them."""
    return kind(number) if number in kind._value2member_map_ else None


def status_value(name: str, value: Any) -> Any:
    """A field of the library's structure as the dataclass has it."""
    if isinstance(value, bytes):
        return value.decode("ascii", "replace")
    if name in _words:
        return word_of(_words[name], value)
    if isinstance(value, float):
        return None if math.isnan(value) else value
    if isinstance(value, bool) or name in _as_they_are:
        return value
    return None if value == -1 else value
