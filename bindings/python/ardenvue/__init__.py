"""Ardenvue for main applications: live video, the camera's state, commands, stick inputs, captures.

A thin layer over libardenvue (package libardenvue1), which has all of the rules.
"""

from ardenvue._native import ArdenvueError, ErrorCode
from ardenvue.capture import Capture, Piece, PieceKind
from ardenvue.link import (
    Antiflicker,
    CameraMode,
    Color,
    Confirmation,
    ExposureProgram,
    FocusType,
    FollowSpeed,
    GimbalFocus,
    GimbalMode,
    Link,
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
    commands,
)
from ardenvue.sticks import Sticks
from ardenvue.video import Frame, Start, Video, VideoTotals

__all__ = [name for name in dir() if name[0].isupper()] + ["commands"]
