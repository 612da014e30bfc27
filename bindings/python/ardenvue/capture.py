"""Captures, as `ardenvue-ctl capture` writes them, taken apart; no service is needed."""

from __future__ import annotations

import ctypes
import os
from dataclasses import dataclass
from enum import IntEnum
from types import TracebackType
from typing import Iterator

from ardenvue import _native
from ardenvue._native import ArdenvueError, ErrorCode, library


class PieceKind(IntEnum):
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
    kind: PieceKind
    time_ns: int
    """Since the beginning of the capture; 0 without times."""
    data: memoryview
    """Valid until the next piece is asked for."""


class Capture:
    """The pieces in their order: `for piece in Capture("flight.cap"): …`.

    A capture that was cut off, as by a board that lost its power, raises ArdenvueError (DATA) behind its last piece.
    """

    def __init__(self, path: str | os.PathLike[str]) -> None:
        self._handle = ctypes.c_void_p()
        code = library.ardenvue_capture_open(self._handle, _native.text(path))
        if code == ErrorCode.SYSTEM:
            raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()), os.fspath(path))
        if code < 0:
            raise ArdenvueError(code)

    @property
    def has_times(self) -> bool:
        return bool(library.ardenvue_capture_has_times(self._handle))

    def close(self) -> None:
        library.ardenvue_capture_close(self._handle)
        self._handle = ctypes.c_void_p()

    def __iter__(self) -> Iterator[Piece]:
        record = _native.PieceRecord()
        while (code := library.ardenvue_capture_next(self._handle, record)) == 0:
            yield Piece(PieceKind(record.kind), record.time_ns, _native.view(record.data, record.size))
        if code != ErrorCode.NONE_YET:
            raise ArdenvueError(code)

    def __enter__(self) -> Capture:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()
