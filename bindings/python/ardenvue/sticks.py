"""Stick inputs: what moves the gimbal, under a guard that zeroes them when this process dies or stalls."""

from __future__ import annotations

import ctypes
from types import TracebackType

from ardenvue import _native
from ardenvue._native import ArdenvueError, library

LIMIT = 13.65
"""Inputs are held within this, on both sides."""
PATIENCE = 0.3
"""Seconds: while an input is not 0, `set` must be called at least this often."""


class Sticks:
    """`with Sticks() as sticks: sticks.set(0.5)`; zeroes on leaving. One thread at a time."""

    def __init__(self, record: str | None = None, guard: str | None = None) -> None:
        self._handle = ctypes.c_void_p()
        reason = ctypes.create_string_buffer(_native.REASON_SIZE)
        code = library.ardenvue_sticks_open(
            self._handle, _native.text(record), _native.text(guard), reason, len(reason)
        )
        if code < 0:
            raise ArdenvueError(code, reason.value.decode())

    def set(self, input_0: float, input_1: float = 0.0, input_2: float = 0.0) -> bool:
        """Writes the inputs. True when the guard had to write zeros since the last call: this process was too slow."""
        code = library.ardenvue_sticks_set(self._handle, input_0, input_1, input_2)
        if code < 0:
            raise ArdenvueError(code)
        return bool(code)

    def close(self) -> None:
        library.ardenvue_sticks_close(self._handle)
        self._handle = ctypes.c_void_p()

    def __enter__(self) -> Sticks:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()
