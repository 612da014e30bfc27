"""Every way out of the board by which a program gets at decoded pictures, as a table."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

HERE = Path(__file__).resolve().parent
EXAMPLES = HERE.parent.parent / "docs/examples"
PYTHON = "/usr/bin/python3"  # the system's own, which has Debian's modules


@dataclass(frozen=True)
class Stage:
    """What the commands of a way may refer to."""

    build: Path  # of the project
    run: Path  # a directory of this run
    board: Path  # for ardenvue-ctl --board
    ring: str
    clip: Path
    streams: dict[str, Path]  # the same pictures for the whole run, by format
    size: str
    rate: float
    rtp_port: int  # and the even ones behind it; ground stations listen on 5600

    def log(self, way: str) -> Path:
        """Where a way's pictures are noted."""
        return self.run / f"{way}.pictures"

    def fed(self, way: str) -> Path:
        """Where a decoder alone has the times of what it was fed noted."""
        return self.run / f"{way}.fed"


Command = list[str]


@dataclass(frozen=True)
class Way:
    """One way: programs, each with its output piped into the next."""

    name: str
    title: str
    commands: Callable[[Stage, str], list[Command]]
    decoder: str | None = None  # the row of the same decoder alone; None: it is such a row
    paced: bool = False  # shown at the stream's own times, so the delay is the player's choice
    environment: Callable[[Stage], dict[str, str]] = lambda stage: {}
    sender: Callable[[Stage], list[Command]] | None = None  # runs beside it, started first
    sender_speaks: bool = False  # once it can be reached
    when_named: bool = False  # takes what not every machine has


def watch(stage: Stage, name: str) -> Command:
    """The last program of a way: it notes each picture."""
    return [PYTHON, str(HERE / "watch.py"), stage.size, str(stage.log(name))]


def ffmpeg(*before_input: str, source: str = "-") -> Command:
    """Decodes its input into luma. low_delay: no threads that hold pictures back."""
    return ["ffmpeg", "-nostdin", "-loglevel", "fatal", "-flags", "low_delay", *before_input,
            "-i", source, "-fps_mode", "passthrough", "-f", "rawvideo", "-pix_fmt", "gray",
            "-flush_packets", "1", "-"]


# A byte stream has no times, and nothing that would be worth the wait of the usual probing.
BYTE_STREAM = ("-fflags", "nobuffer", "-probesize", "32", "-f", "h264")
TRANSPORT = ("-fflags", "nobuffer", "-probesize", "32", "-f", "mpegts")
# Nothing comes out of order on one machine.
NETWORK = ("-analyzeduration", "1", "-reorder_queue_size", "0")


def gstreamer(*elements: str) -> Command:
    """A pipeline whose last element is a decoder's input: decodes into luma."""
    return ["gst-launch-1.0", "-q", *" ! ".join((
        *elements, "avdec_h264 max-threads=1", "videoconvert", "video/x-raw,format=GRAY8",
        "fdsink fd=1 sync=false")).split()]


def client(stage: Stage, video_format: str) -> Command:
    """The command-line client."""
    return [str(stage.build / "ardenvue-ctl"), "--board", str(stage.board), "video", "--format",
            video_format]


def rtp_sender(stage: Stage, port: int) -> list[Command]:
    """Puts the video on the network as ground stations take it: H.264 over RTP (RFC 6184)."""
    pipeline = (f"ardenvuesrc ring={stage.ring} ! h264parse config-interval=-1 "
                "! rtph264pay config-interval=-1 aggregate-mode=zero-latency pt=96 "
                f"! udpsink host=127.0.0.1 port={port} sync=false")
    return [["gst-launch-1.0", "-q", *pipeline.split()]]


def rtp_source(port: int) -> str:
    """GStreamer's element that receives it."""
    return (f"udpsrc port={port} caps=application/x-rtp,media=video,clock-rate=90000,"
            "encoding-name=H264,payload=96")


def rtp_description(stage: Stage, port: int) -> str:
    """A file that tells ffmpeg what comes (RFC 8866)."""
    path = stage.run / f"{port}.sdp"
    path.write_text("v=0\no=- 0 0 IN IP4 127.0.0.1\ns=video\nc=IN IP4 127.0.0.1\nt=0 0\n"
                    f"m=video {port} RTP/AVP 96\na=rtpmap:96 H264/90000\n"
                    "a=fmtp:96 packetization-mode=1\n")
    return str(path)


def gateway(stage: Stage, port: int, *options: str) -> list[Command]:
    """Serves the video over HTTP."""
    return [[str(stage.build / "ardenvue-gateway"), "--listen", f"127.0.0.1:{port}", *options]]


def feed(stage: Stage, name: str, clip: Path) -> Command:
    """What a decoder alone is fed by."""
    return [PYTHON, str(HERE / "feed.py"), str(clip), str(stage.rate), str(stage.fed(name))]


def library_environment(stage: Stage) -> dict[str, str]:
    """Where Python finds the binding and the library of this build."""
    return {"PYTHONPATH": str(HERE.parent.parent / "bindings" / "python"),
            "ARDENVUE_LIBRARY": str(stage.build / "client" / "libardenvue.so.1")}


WAYS = [
    Way("bare-h264", "(decoder alone: ffmpeg, byte stream)",
        lambda s, n: [feed(s, n, s.clip), ffmpeg(*BYTE_STREAM), watch(s, n)]),
    Way("bare-mp4", "(decoder alone: ffmpeg, MP4)",
        lambda s, n: [feed(s, n, s.streams["mp4"]), ffmpeg(), watch(s, n)]),
    Way("bare-ts", "(decoder alone: ffmpeg, transport stream)",
        lambda s, n: [feed(s, n, s.streams["ts"]), ffmpeg(*TRANSPORT), watch(s, n)]),
    Way("bare-pyav", "(decoder alone: PyAV)",
        lambda s, n: [[PYTHON, str(HERE / "watch_library.py"), str(s.log(n)), str(s.clip),
                       str(s.rate), str(s.fed(n))]], environment=library_environment),
    Way("bare-gstreamer", "(decoder alone: GStreamer)",
        lambda s, n: [feed(s, n, s.streams["mp4"]),
                      gstreamer("fdsrc fd=0", "qtdemux", "h264parse"), watch(s, n)]),
    Way("pipe", "ardenvue-ctl video | ffmpeg",
        lambda s, n: [client(s, "h264"), ffmpeg(*BYTE_STREAM), watch(s, n)], "bare-h264"),
    Way("c", "C library (video_dump) | ffmpeg",
        lambda s, n: [[str(s.build / "docs/examples/video_dump"), s.ring], ffmpeg(*BYTE_STREAM),
                      watch(s, n)], "bare-h264"),
    Way("mp4", "video --format mp4 | ffmpeg",
        lambda s, n: [client(s, "mp4"), ffmpeg(), watch(s, n)], "bare-mp4"),
    Way("mp4-paced", "video --format mp4 | ffmpeg, at its times",
        lambda s, n: [client(s, "mp4"), ffmpeg("-re"), watch(s, n)], "bare-mp4", paced=True),
    Way("ts", "video --format ts | ffmpeg",
        lambda s, n: [client(s, "ts"), ffmpeg(*TRANSPORT), watch(s, n)], "bare-ts"),
    Way("ts-paced", "video --format ts | ffmpeg, at its times",
        lambda s, n: [client(s, "ts"), ffmpeg("-re", *TRANSPORT), watch(s, n)], "bare-ts",
        paced=True),
    Way("gstreamer", "video --format mp4 | GStreamer",
        lambda s, n: [client(s, "mp4"), gstreamer("fdsrc fd=0", "qtdemux", "h264parse"),
                      watch(s, n)], "bare-gstreamer"),
    Way("element", "ardenvuesrc, GStreamer",
        lambda s, n: [gstreamer(f"ardenvuesrc ring={s.ring}", "h264parse"), watch(s, n)],
        "bare-gstreamer"),
    Way("rtsp", "RTSP, ffmpeg",
        lambda s, n: [ffmpeg("-fflags", "nobuffer", *NETWORK, "-rtsp_transport", "tcp",
                             source=f"rtsp://127.0.0.1:{s.rtp_port + 3}/live"), watch(s, n)],
        "bare-h264",
        sender=lambda s: [[PYTHON, str(EXAMPLES / "gstreamer/rtsp_server.py"), "--ring", s.ring,
                           "--port", str(s.rtp_port + 3)]], sender_speaks=True),
    Way("rtp-ffmpeg", "RTP, ffmpeg",
        lambda s, n: [ffmpeg("-protocol_whitelist", "file,udp,rtp", *NETWORK,
                             source=rtp_description(s, s.rtp_port)), watch(s, n)], "bare-h264",
        sender=lambda s: rtp_sender(s, s.rtp_port)),
    Way("rtp-gstreamer", "RTP, GStreamer",
        lambda s, n: [gstreamer(rtp_source(s.rtp_port + 2), "rtph264depay", "h264parse"),
                      watch(s, n)], "bare-gstreamer",
        sender=lambda s: rtp_sender(s, s.rtp_port + 2)),
    Way("gateway", "gateway's /video.mp4, ffmpeg",
        lambda s, n: [ffmpeg("-seekable", "0",
                             source=f"http://127.0.0.1:{s.rtp_port + 1}/video.mp4"), watch(s, n)],
        "bare-mp4", sender_speaks=True,
        sender=lambda s: gateway(s, s.rtp_port + 1, "--ring", s.ring, "--status-port",
                                 str(s.rtp_port + 4))),
    Way("browser", "gateway's page, Chromium",
        lambda s, n: [[PYTHON, str(HERE / "watch_browser.py"),
                       f"http://127.0.0.1:{s.rtp_port + 2}/", str(s.log(n))]],
        when_named=True, sender_speaks=True,
        sender=lambda s: gateway(s, s.rtp_port + 2, "--board", str(s.board))),
    Way("python", "Python library, PyAV",
        lambda s, n: [[PYTHON, str(HERE / "watch_library.py"), str(s.log(n)), s.ring]], "bare-pyav",
        environment=library_environment),
]
