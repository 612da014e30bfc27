#!/usr/bin/env python3
"""The live video for any number of RTSP clients: rtsp_server.py [--ring NAME] [--port 8554]

    ffplay -fflags nobuffer -rtsp_transport tcp rtsp://127.0.0.1:8554/live

Needs gstreamer1.0-ardenvue, -plugins-good, -plugins-bad and gir1.2-gst-rtsp-server-1.0.
It listens on this machine only; --address 0.0.0.0 serves everybody who can reach the port.
"""

import argparse

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtspServer  # noqa: E402


def main() -> None:
    """The command line."""
    parser = argparse.ArgumentParser(description="Serves the live video by RTSP, at /live.")
    parser.add_argument("--ring", help="the frame ring, when it is not the service's own")
    parser.add_argument("--address", default="127.0.0.1")
    parser.add_argument("--port", default="8554")
    options = parser.parse_args()
    Gst.init(None)
    factory = GstRtspServer.RTSPMediaFactory()
    ring = f"ring={options.ring}" if options.ring else ""
    # config-interval: parameter sets before each key picture, for clients that come later.
    pay = "h264parse config-interval=-1 ! rtph264pay name=pay0"
    factory.set_launch(f"( ardenvuesrc {ring} ! {pay} )")
    factory.set_shared(True)  # one reader of the ring, however many clients
    factory.set_latency(0)
    server = GstRtspServer.RTSPServer(address=options.address, service=options.port)
    server.get_mount_points().add_factory("/live", factory)
    if server.attach(None) == 0:
        raise SystemExit(f"can't listen on {options.address}:{options.port}")
    print(f"rtsp://{options.address}:{server.get_bound_port()}/live", flush=True)
    GLib.MainLoop().run()


if __name__ == "__main__":
    main()
