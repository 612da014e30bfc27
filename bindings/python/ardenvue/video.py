"""Live video: the frames of the service's ring."""

from __future__ import annotations

from dataclasses import dataclass
from enum import IntEnum
from typing import Iterator

from ardenvue import _native
from ardenvue._native import ArdenvueError, ErrorCode, Handle, library


class Start(IntEnum):
    """Which frame comes first."""

    KEY = 0
    """The newest sequence parameter set that the ring still holds: a picture at once."""
    NEWEST = 1
    OLDEST = 2
    NEXT = 3


@dataclass(frozen=True)
class Frame:
    """A piece of the H.264 byte stream, as a rule one picture."""

    data: memoryview
    """A copy of its own: it stays as it is."""
    number: int
    """The service's, modulo 65,536."""
    is_key: bool
    """A decoder can begin here."""
    follows_restart: bool
    """The first one of a service that has started anew."""
    missed_before: int
    """Sent since the frame before this one, and not returned."""
    time_ns: int
    """Of arrival, `time.monotonic_ns()`; each later than the one before."""
    wall_ns: int
    """Of arrival, `time.time_ns()`; each later than the one before."""


@dataclass(frozen=True)
class VideoTotals:
    """Since the ring was opened."""

    frames: int
    bytes: int
    missed: int
    """Overwritten or cleared before they could be read."""
    skipped: int
    """Passed over on the way to a sequence parameter set."""
    restarts: int


class Video(Handle):
    """The frames as they come, without end: `for frame in Video(): …`. One thread at a time."""

    _close = "video_close"

    def __init__(
        self, ring: str | None = None, start: Start = Start.KEY, *, at_once: bool = False
    ) -> None:
        """`at_once`: behind a gap the next frame follows, not the next sequence parameter set."""
        super().__init__()
        self._open_with_reason("video_open", _native.text(ring), start)
        library.ardenvue_video_go_on_at_once(self._handle, at_once)

    def next(self, timeout: float | None = None) -> Frame | None:
        """The next frame; None when none came within so many seconds."""
        record = _native.FrameRecord()
        while True:
            code = library.ardenvue_video_next(
                self._handle, record, _native.milliseconds(timeout)
            )
            if code == 0:
                return Frame(
                    _native.copied(record.data, record.size),
                    record.number,
                    record.is_key,
                    record.follows_restart,
                    record.missed_before,
                    record.time_ns,
                    record.wall_ns,
                )
            if code == ErrorCode.TIMEOUT:
                return None
            if code != ErrorCode.INTERRUPTED:
                raise ArdenvueError(code)

    @property
    def totals(self) -> VideoTotals:
        record = _native.VideoTotalsRecord()
        library.ardenvue_video_totals(self._handle, record)
        return VideoTotals(*(getattr(record, field[0]) for field in record._fields_))

    def __iter__(self) -> Iterator[Frame]:
        while (frame := self.next()) is not None:
            yield frame
