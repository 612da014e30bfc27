"""The camera's state, and commands to it."""

from __future__ import annotations

import ctypes
import math
from dataclasses import dataclass
from enum import IntEnum
from typing import Any, Callable, TypeVar

from ardenvue import _native
from ardenvue._native import ArdenvueError, ErrorCode, Handle, library


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


def _word(kind: type[_Word], number: int) -> _Word | None:
    return kind(number) if number in kind._value2member_map_ else None


def _status_value(name: str, value: Any) -> Any:
    if isinstance(value, bytes):
        return value.decode("ascii", "replace")
    if name in _words:
        return _word(_words[name], value)
    if isinstance(value, float):
        return None if math.isnan(value) else value
    if isinstance(value, bool) or name in _as_they_are:
        return value
    return None if value == -1 else value


class Link(Handle):
    """An application's end of the UDP link: the newest of each report, and commands.

    One thread at a time.

    with Link() as link:
        link.wait(Report.STATUS_LINE)
        print(link.status.camera_model, link.confirm(link.set_iso(400)))
    """

    _close = "link_close"

    def __init__(
        self,
        port: int = 5000,
        address: str | None = None,
        *,
        present: bool = False,
        ring: str | None = None,
    ) -> None:
        """Binds the status port, which one application at a time can hold.

        `present`: the service counts this application as present while `wait` is called.
        `ring`: the frame ring that tells a remote controller which fell silent, when it is not the
        service's own.
        """
        super().__init__()
        self._open_with_reason("link_open", _native.text(address), port)
        library.ardenvue_link_keep_present(self._handle, present)
        self._check(library.ardenvue_link_watch_frames(self._handle, _native.text(ring)))

    def _check(self, code: int) -> int:
        if code < 0:
            raise ArdenvueError(code, library.ardenvue_link_problem(self._handle).decode())
        return code

    # ---- State ----

    def wait(self, report: Report = Report.ANY, timeout: float | None = None) -> Report | None:
        """Takes in reports until one of that kind has come.

        None when none came within so many seconds.
        """
        while True:
            code = library.ardenvue_link_wait(self._handle, report, _native.milliseconds(timeout))
            if code == ErrorCode.TIMEOUT:
                return None
            if code != ErrorCode.INTERRUPTED:
                return Report(self._check(code))

    def fileno(self) -> int:
        """The socket, for `select`: then `wait(timeout=0)` until it is None."""
        return int(library.ardenvue_link_descriptor(self._handle))

    @property
    def state(self) -> LinkState:
        return LinkState(library.ardenvue_link_state(self._handle))

    @property
    def service(self) -> str:
        """Where commands go, "127.0.0.1:40000"; empty while it is not known."""
        return str(library.ardenvue_link_service(self._handle).decode())

    def age(self, report: Report = Report.ANY) -> float | None:
        """Seconds since the newest report of the kind; None: none yet."""
        nanoseconds = library.ardenvue_link_report_age(self._handle, report)
        return None if nanoseconds < 0 else nanoseconds / 1e9

    def as_json(self) -> str:
        """All that is known, as one line of JSON: the format of `ardenvue-ctl status --json`."""
        buffer = ctypes.create_string_buffer(_native.STATE_JSON_SIZE)
        library.ardenvue_state_json(self._handle, buffer, len(buffer))
        return buffer.value.decode()

    @property
    def texts(self) -> dict[str, str]:
        """The newest status line in the camera's own words."""
        key, value = ctypes.c_char_p(), ctypes.c_char_p()
        texts: dict[str, str] = {}
        while library.ardenvue_link_pair(self._handle, len(texts), key, value) == 0:
            texts[(key.value or b"").decode()] = (value.value or b"").decode()
        return texts

    @property
    def status(self) -> Status | None:
        """The newest status line; None before the first."""
        record = _native.StatusRecord()
        if library.ardenvue_link_status(self._handle, record) == ErrorCode.NONE_YET:
            return None
        names = [field[0] for field in _native.StatusRecord._fields_]
        values: dict[str, Any] = {
            name: _status_value(name, getattr(record, name)) for name in names
        }
        return Status(**values)

    @property
    def gimbal_focus(self) -> GimbalFocus | None:
        """The newest record; None before the first."""
        record = _native.GimbalFocusRecord()
        if library.ardenvue_link_gimbal_focus(self._handle, record) == ErrorCode.NONE_YET:
            return None
        known = record.focus_reported
        return GimbalFocus(
            record.time_ns,
            record.heading,
            record.tilt,
            record.roll,
            record.orientation_lock,
            record.recording,
            _word(FocusType, record.focus_type) if known else None,
            record.focus_position if known else None,
            record.focus_max if known else None,
            (record.focus_x, record.focus_y) if known else None,
        )

    @property
    def histogram(self) -> bytes | None:
        """64 bins, dark to bright; None when none comes (any more)."""
        record = _native.HistogramRecord()
        if library.ardenvue_link_histogram(self._handle, record) == ErrorCode.NONE_YET:
            return None
        return bytes(record.bins)

    @property
    def totals(self) -> LinkTotals:
        record = _native.LinkTotalsRecord()
        library.ardenvue_link_totals(self._handle, record)
        return LinkTotals(*(getattr(record, field[0]) for field in record._fields_))

    # ---- Commands: each gives its number, for `confirm`. ----

    def send(self, words: str) -> int:
        """A command by its words, "shutter 1/500"."""
        return self._check(library.ardenvue_send(self._handle, words.encode()))

    def send_json(self, json: str) -> int:
        """An object as it is, for what a later service may know."""
        return self._check(library.ardenvue_send_json(self._handle, json.encode()))

    def confirm(self, command: int, timeout: float = 3.0) -> Confirmation | None:
        """Waits until reports show the command; None when they did not in time."""
        while True:
            code = library.ardenvue_confirm(self._handle, command, _native.milliseconds(timeout))
            if code == ErrorCode.TIMEOUT:
                return None
            if code != ErrorCode.INTERRUPTED:
                return Confirmation(self._check(code))

    def _send(self, name: str, *values: float) -> int:
        return self._check(getattr(library, "ardenvue_" + name)(self._handle, *values))

    def start_recording(self) -> int:
        return self._send("start_recording")

    def stop_recording(self) -> int:
        return self._send("stop_recording")

    def take_photo(self) -> int:
        return self._send("take_photo")

    def set_camera_mode(self, mode: CameraMode) -> int:
        return self._send("set_camera_mode", mode)

    def set_photo_format(self, form: PhotoFormat) -> int:
        return self._send("set_photo_format", form)

    def set_photo_ratio(self, ratio: PhotoRatio) -> int:
        return self._send("set_photo_ratio", ratio)

    def set_video_format(self, width: int, height: int, rate: int) -> int:
        return self._send("set_video_format", width, height, rate)

    def set_video_standard(self, standard: VideoStandard) -> int:
        return self._send("set_video_standard", standard)

    def set_transmission(self, mode: Transmission) -> int:
        return self._send("set_transmission", mode)

    def reset_camera(self) -> int:
        """Can't be undone."""
        return self._send("reset_camera")

    def format_card(self) -> int:
        """Can't be undone."""
        return self._send("format_card")

    def set_exposure_program(self, program: ExposureProgram) -> int:
        return self._send("set_exposure_program", program)

    def set_shutter(self, seconds: float) -> int:
        return self._send("set_shutter", seconds)

    def set_aperture(self, number: float) -> int:
        return self._send("set_aperture", number)

    def set_iso(self, iso: int) -> int:
        """100, 200 … 6400; 0 is automatic."""
        return self._send("set_iso", iso)

    def set_ev(self, ev: float) -> int:
        """-3 to 3 in thirds, to one decimal."""
        return self._send("set_ev", ev)

    def set_white_balance(self, light: WhiteBalance) -> int:
        return self._send("set_white_balance", light)

    def set_white_balance_kelvin(self, kelvin: int) -> int:
        return self._send("set_white_balance_kelvin", kelvin)

    def set_color(self, color: Color) -> int:
        return self._send("set_color", color)

    def set_antiflicker(self, mode: Antiflicker) -> int:
        return self._send("set_antiflicker", mode)

    def set_histogram(self, on: bool) -> int:
        return self._send("set_histogram", on)

    def set_focus_type(self, kind: FocusType) -> int:
        return self._send("set_focus_type", kind)

    def set_focus_point(self, x: float, y: float) -> int:
        """Fractions of the picture, from its upper left corner."""
        return self._send("set_focus_point", x, y)

    def set_focus_position(self, percent: int) -> int:
        return self._send("set_focus_position", percent)

    def face_ahead(self) -> int:
        return self._send("face_ahead")

    def face_back(self) -> int:
        return self._send("face_back")

    def lock_orientation(self, locked: bool) -> int:
        return self._send("lock_orientation", locked)

    def set_gimbal_mode(self, mode: GimbalMode) -> int:
        return self._send("set_gimbal_mode", mode)

    def set_follow_speed(self, speed: FollowSpeed) -> int:
        return self._send("set_follow_speed", speed)

    def calibrate_horizon(self) -> int:
        return self._send("calibrate_horizon")

    def set_movement(self, movement: Movement) -> int:
        return self._send("set_movement", movement)


def commands() -> dict[str, list[str]]:
    """The names of all commands, each with the choices of its argument.

    There are none for a number, or where nothing follows.
    """

    def listed(ask: Callable[..., bytes | None], *before: bytes) -> list[str]:
        texts: list[str] = []
        while (text := ask(*before, len(texts))) is not None:
            texts.append(text.decode())
        return texts

    names = listed(library.ardenvue_command_name)
    return {name: listed(library.ardenvue_command_choice, name.encode()) for name in names}
