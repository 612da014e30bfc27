"""Ardenvue for main applications: live video, the camera's state, commands, stick inputs, captures.

A thin layer over libardenvue (package libardenvue1), which has all of the rules.
"""

from ardenvue._native import ArdenvueError, ErrorCode
from ardenvue.capture import Capture, Piece, PieceKind
from ardenvue.link import Link, commands
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
)
from ardenvue.sticks import Sticks
from ardenvue.video import Frame, Start, Video, VideoTotals

__all__ = [
    "Antiflicker",
    "ArdenvueError",
    "CameraMode",
    "Capture",
    "Color",
    "commands",
    "Confirmation",
    "ErrorCode",
    "ExposureProgram",
    "FocusType",
    "FollowSpeed",
    "Frame",
    "GimbalFocus",
    "GimbalMode",
    "Link",
    "LinkState",
    "LinkTotals",
    "Movement",
    "PhotoFormat",
    "PhotoRatio",
    "Piece",
    "PieceKind",
    "Report",
    "Start",
    "Status",
    "Sticks",
    "Transmission",
    "Video",
    "VideoStandard",
    "VideoTotals",
    "WhiteBalance",
]
