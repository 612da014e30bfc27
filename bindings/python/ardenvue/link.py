"""The camera's state, and commands to it."""

from __future__ import annotations

import ctypes
from typing import Any, Callable

from ardenvue import _native
from ardenvue._native import ArdenvueError, ErrorCode, Handle, library
from ardenvue.state import (
    Antiflicker,
    CameraMode,
    Color,
    Confirmation,
    ExposureProgram,
    FocusType,
    FollowSpeed,
    GimbalFocus,
    GimbalMode,
    LinkState,
    LinkTotals,
    Movement,
    PhotoFormat,
    PhotoRatio,
    Report,
    Status,
    Transmission,
    VideoStandard,
    WhiteBalance,
    status_value,
    word_of,
)


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
            name: status_value(name, getattr(record, name)) for name in names
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
            word_of(FocusType, record.focus_type) if known else None,
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
