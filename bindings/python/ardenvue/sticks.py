"""Stick inputs: what moves the gimbal.

A guard zeroes them when this process dies or stalls.
"""

from __future__ import annotations

from ardenvue import _native
from ardenvue._native import ArdenvueError, Handle, library

LIMIT = 13.65
"""Inputs are held within this, on both sides."""
PATIENCE = 0.3
"""Seconds: while an input is not 0, `set` must be called at least this often."""


class Sticks(Handle):
    """`with Sticks() as sticks: sticks.set(0.5)`; zeroes on leaving. One thread at a time."""

    _close = "sticks_close"

    def __init__(self, record: str | None = None, guard: str | None = None) -> None:
        super().__init__()
        self._open_with_reason("sticks_open", _native.text(record), _native.text(guard))

    def set(self, input_0: float, input_1: float = 0.0, input_2: float = 0.0) -> bool:
        """Writes the inputs; their meaning is `Link.set_movement`'s.

        True when the guard had to write zeros since the last call: this process was too slow.
        """
        code = library.ardenvue_sticks_set(self._handle, input_0, input_1, input_2)
        if code < 0:
            raise ArdenvueError(code)
        return bool(code)
