"""Captures, as `ardenvue-ctl capture` writes them, taken apart; no service is needed."""

from __future__ import annotations

import ctypes
import os
from dataclasses import dataclass
from enum import IntEnum
from typing import Iterator

from ardenvue import _native
from ardenvue._native import ArdenvueError, ErrorCode, Handle, library


class PieceKind(IntEnum):
    """What a piece of a capture is."""

    VIDEO = 1
    """A piece of the H.264 byte stream."""
    PACKET = 2
    """A packet of the camera, header and sums included."""
    COMMAND = 3
    """A packet to the camera."""
    DAMAGED = 4
    """Bytes between packets that are none."""


@dataclass(frozen=True)
class Piece:
    """A piece of a capture."""

    kind: PieceKind
    time_ns: int
    """Since the beginning of the capture; 0 without times."""
    data: memoryview
    """A copy of its own."""


class Capture(Handle):
    """The pieces in their order: `for piece in Capture("flight.cap"): …`.

    A capture that was cut off, as by a board that lost its power, raises ArdenvueError (DATA)
    behind its last piece.
    """

    _close = "capture_close"

    def __init__(self, path: str | os.PathLike[str]) -> None:
        super().__init__()
        code = self._open("capture_open", _native.text(path))
        if code == ErrorCode.SYSTEM:
            raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()), os.fspath(path))
        if code < 0:
            raise ArdenvueError(code)

    @property
    def has_times(self) -> bool:
        return bool(library.ardenvue_capture_has_times(self._handle))

    def __iter__(self) -> Iterator[Piece]:
        record = _native.PieceRecord()
        while (code := library.ardenvue_capture_next(self._handle, record)) == 0:
            data = _native.copied(record.data, record.size)
            yield Piece(PieceKind(record.kind), record.time_ns, data)
        if code != ErrorCode.NONE_YET:
            raise ArdenvueError(code)
