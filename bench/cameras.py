#!/usr/bin/env python3
"""Start to first frame, CPU per gigabyte and memory, one line for each protocol.

Where ffmpeg and GStreamer play the protocol, their figures stand beside. At some hundred kbit/s a
gigabyte takes hours of frames, each of which wakes the process: how the CPU goes with the bytes is
measured by http, rtsp, rtp_ts, and by vendor_bench and pushin_bench with a bare receive loop.
"""
import contextlib
import os
import pathlib
import re
import socket
import statistics
import subprocess
import tempfile
import threading
import time
from dataclasses import dataclass

import measure

ROUNDS = 7
PEER_ROUNDS = 3  # they take seconds
COMES_UP, MEASURED = 1.5, 3  # seconds
ID = f"bench{os.getpid()}"
ADDRESS = f"127.{1 + os.getpid() % 200}.9.1"
LOGIN = {"USRNAME": "admin", "PASSWD": "secret"}
COMMON = {"DEVID": ID, "OBJID": "1", "CAMERAMODEL": "any", "MODELID": "any", "DEVIP": ADDRESS,
          "MEDIA_FORMAT": "h264", **LOGIN}
VENDOR = {"PROTO": "HTTP", "MEDIA_FORMAT": "mpeg4", "FRAMERATE": "25", "CAMCOMPRESSION": "2",
          "IMAGESIZE": "fullsize"}
VENDOR_CAMERA = ["--address", ADDRESS, "--password", "secret", "--seconds", "2"]


@dataclass
class Device:
    camera: list  # arguments of camsim; none: there is no camera
    keys: dict  # the program's configuration
    frame: int = 1  # the one that is the first picture
    ffmpeg: list = None  # input arguments
    probe: int = 32  # bytes of input that ffmpeg needs at least
    gstreamer: str = ""  # the pipeline up to its sink


def free_port():
    """An even one, as RTP wants it."""
    while True:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            probe.bind(("127.0.0.1", 0))
            if (port := probe.getsockname()[1]) % 2 == 0:
                return port


def file_device(folder):
    clip = os.path.join(folder, "clip")
    subprocess.run([measure.CAMSIM, "clip", "--seconds", "6", f"{clip}.h264"], check=True, stdout=subprocess.DEVNULL)
    return Device([], {"PROTO": "FAKE", "SOURCE": clip},
                  ffmpeg=["-re", "-i", f"{clip}.h264"])


def http_device(media_format, *options):
    return Device(["http", "--address", ADDRESS, "--port", "8080", "--format", media_format, *options],
                  {"PROTO": "HTTP", "HTTP_PORT": "8080", "HTTP_URL": "/", "MEDIA_FORMAT": media_format})


def mjpg_device():
    device, url = http_device("mjpg"), f"http://{ADDRESS}:8080/"
    device.ffmpeg = ["-f", "mpjpeg", "-i", url]
    device.gstreamer = f"souphttpsrc location={url} ! multipartdemux"
    return device


def bosch_device():
    device = http_device("mjpg", "--bosch")
    device.keys.update(CAMERAMODEL="Bosch", FRAMERATE="25")
    return device


def rtsp_device(transport):
    url = f"rtsp://{ADDRESS}:8554/live"
    return Device(["rtsp", "--address", ADDRESS, "--port", "8554", "--seconds", "2"],
                  {"PROTO": "RTSP", "RTSP_PORT": "8554", "RTSP_URL": "/live", "USRNAME": "",
                   "PASSWD": "", "RTP_OVER_TCP": "on" if transport == "tcp" else "off"},
                  frame=2,  # the first are the description's parameter sets
                  ffmpeg=["-rtsp_transport", transport, "-i", url],
                  gstreamer=f"rtspsrc location={url} protocols={transport} latency=0 ! "
                  "rtph264depay ! h264parse")


# Each picture of the next two is a key frame, so that nobody has to wait for one.
def rtp_device(folder):
    port = free_port()
    sdp = os.path.join(folder, "rtp.sdp")
    with open(sdp, "w") as file:
        file.write("v=0\no=- 0 0 IN IP4 127.0.0.1\ns=-\nc=IN IP4 127.0.0.1\nt=0 0\n"
                   f"m=video {port} RTP/AVP 96\na=rtpmap:96 H264/90000\n")
    return Device(["rtp", "--port", str(port), "--gop", "1"],
                  {"PROTO": "RTP", "RTP_UNICAST_PORT": str(port)},
                  ffmpeg=["-protocol_whitelist", "file,udp,rtp", "-i", sdp], probe=20000,
                  gstreamer=f"udpsrc address=127.0.0.1 port={port} caps=application/x-rtp,media=video,"
                  "encoding-name=H264,clock-rate=90000,payload=96 ! rtph264depay ! h264parse")


def ts_device():
    port = free_port()
    return Device(["ts", "--port", str(port), "--gop", "1", "--audio", "none"],
                  {"PROTO": "UDP", "CAMERAMODEL": "Cornet", "RTP_UNICAST_PORT": str(port)},
                  ffmpeg=["-i", f"udp://127.0.0.1:{port}"], probe=20000,
                  gstreamer=f"udpsrc address=127.0.0.1 port={port} caps=video/mpegts ! tsdemux ! "
                  "h264parse")


def devices(folder):
    return {
        "file": file_device(folder),
        "http-mjpg": mjpg_device(),
        "http-h264": http_device("h264"),
        "http-digest": http_device("mjpg", "--auth", "digest"),
        "bosch": bosch_device(),
        "rtsp-tcp": rtsp_device("tcp"),
        "rtsp-udp": rtsp_device("udp"),
        "rtp": rtp_device(folder),
        "ts": ts_device(),
        "samsung": Device(["samsung", *VENDOR_CAMERA], {**VENDOR, "CAMERAMODEL": "Samsung"}),
        "dante": Device(["dante", *VENDOR_CAMERA], {
            **VENDOR, "CAMERAMODEL": "Dante", "CAMERA": "1", "RC_MODE": "cbr",
            "RC_MAXBITRATE": "1000"}),
        "vsip": Device(["vsip", *VENDOR_CAMERA, "--http-port", "5080"], {
            **VENDOR, "CAMERAMODEL": "Verint", "VSIP_PORT": "5010", "HTTP_PORT": "5080",
            "DEFINEDUID": "7" * 66, "VSIP_TARGET_SIP": ADDRESS, "VSIP_TARGET_GUID": "t",
            "VSIP_SOURCE_GUID": "s"}),
        "pelco": Device(["pelco", "--address", ADDRESS, "--port", "49152", "--auth", "digest"],
                        {"PROTO": "HTTP", "CAMERAMODEL": "Pelco", "MODELID": "IXE20DN",
                         "PELCO_SOAP_PORT": "49152"}),
        "push-in": Device(["pushin", "--devid", ID, "--audio", "aac"],
                          {"PROTO": "HTTP", "CAMERAMODEL": "iStream", "MASTER_NODE": ADDRESS}),
    }


@contextlib.contextmanager
def running(command, announces):
    """A process that has come up when it has written a line, if it announces itself."""
    process = measure.start(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    try:
        if announces and not process.stdout.readline():
            raise RuntimeError(f"{' '.join(command[:2])} has ended")
        # What else it writes must not fill the pipe.
        threading.Thread(target=process.stdout.read, daemon=True).start()
        yield
    finally:
        measure.stop(process)


@contextlib.contextmanager
def event_log():
    """Push-in devices are announced to it; without one they wait for it first."""
    with running(["nats-server", "-a", ADDRESS, "-p", "10000"], announces=True):
        while True:
            with socket.socket() as probe:
                if probe.connect_ex((ADDRESS, 10000)) == 0:
                    break
            time.sleep(0.05)
        with running([os.path.join(measure.BIN, "elogd"), "--host", ADDRESS], announces=True):
            try:
                yield
            finally:
                for left in (f"/tmp/.{ID}.media.recorder.sock", f"/tmp/{ID}.jpg"):
                    pathlib.Path(left).unlink(missing_ok=True)


class Running:
    """CPU seconds a second, peak and proportional set size in MB of a process that has come up, and
    the bytes a second that it tells of in its status lines."""

    def __init__(self, command):
        with tempfile.TemporaryFile("w+", errors="replace") as status:
            process = measure.start(command, stdout=status, stderr=subprocess.DEVNULL)
            try:
                time.sleep(COMES_UP)
                used = measure.cpu_seconds(process.pid)
                time.sleep(MEASURED)
                if process.poll() is not None:
                    raise RuntimeError(f"{' '.join(command)} ended with {process.returncode}")
                self.cpu = (measure.cpu_seconds(process.pid) - used) / MEASURED
                self.peak_mb, self.pss_mb = measure.peak_mb(process.pid), measure.pss_mb(process.pid)
            finally:
                measure.stop(process)
            status.seek(0)
            rates = [float(rate) for rate in re.findall(r"([0-9.]+) kbit/s", status.read())]
            self.bytes = statistics.median(rates) * 1000 / 8 if rates else None


def peers(device, rate):
    """Milliseconds to the first byte in a pipe, and CPU per gigabyte of what is received at `rate`.
    ffmpeg probes as little as it can."""
    output = "mjpeg" if device.keys.get("MEDIA_FORMAT") == "mjpg" else "h264"
    commands = [
        device.ffmpeg and ["ffmpeg", "-v", "error", "-probesize", str(device.probe),
                           "-analyzeduration", "0", *device.ffmpeg, "-map", "0:v", "-c", "copy",
                           "-flush_packets", "1", "-f", output, "-"],
        device.gstreamer and ["gst-launch-1.0", "-q", *device.gstreamer.split(), "!", "fdsink"],
    ]
    for command in commands:
        if not command:
            yield from ("", "")
            continue
        yield measure.median_ms(measure.first_output_ms, command, rounds=PEER_ROUNDS)
        yield per_gigabyte(Running(command).cpu, rate)


def per_gigabyte(cpu, rate):
    return f"{cpu / (rate / 1e9):.0f}"


def row(name, device):
    keys = [f"{key}={value}" for key, value in {**COMMON, **device.keys}.items()]
    command = [measure.MRETRIEVER, *keys, "--log-level", "ERROR"]
    with contextlib.ExitStack() as site:
        if name == "push-in":
            site.enter_context(event_log())
        if device.camera:
            # A recorder writes its line only when it has found somebody to push to.
            site.enter_context(running([measure.CAMSIM, *device.camera], name != "push-in"))
        ours = Running(command)
        first = measure.median_ms(measure.first_frame_ms, command, device.frame, rounds=ROUNDS)
        return [name, first, f"{ours.peak_mb:.1f}", f"{ours.pss_mb:.1f}",
                f"{ours.bytes * 8 / 1000:.0f}", per_gigabyte(ours.cpu, ours.bytes),
                *peers(device, ours.bytes)]


def main():
    with tempfile.TemporaryDirectory() as folder:
        rows = [row(name, device) for name, device in devices(folder).items()]
    measure.table("Start to first frame, memory, CPU seconds a gigabyte",
                  ["protocol", "first frame ms", "peak MB", "PSS MB", "kbit/s", "CPU s/GB",
                   "ffmpeg ms", "s/GB", "gstreamer ms", "s/GB"], rows)


if __name__ == "__main__":
    main()
