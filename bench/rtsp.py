#!/usr/bin/env python3
"""RTSP reception against ffmpeg and GStreamer, on one stream of the simulated camera.

CPU per gigabyte and peak memory over TCP and UDP, the time from a process's start
to its first frame, and many processes of 2 Mbit/s each over TCP. A bare receive loop
in the same run tells what of the cost is the machine's.
"""
import json
import os
import re
import subprocess
import tempfile
import time

from measure import (BARE, CAMSIM, FLEET, MRETRIEVER, cpu_seconds, first_frame_ms, first_output_ms,
                     median_ms, pss_mb, run, start, stop, table)

SECONDS = 8
PROCESSES = 50
FRAME_SECONDS = 0.04


class Camera:
    def __init__(self, *options):
        self.process = start([CAMSIM, "rtsp", "--port", "0", "--seconds", "2", *options],
                             stdout=subprocess.PIPE, text=True)
        self.url = self.process.stdout.readline().strip()
        self.port = re.search(r":(\d+)/", self.url).group(1)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        stop(self.process)


class Fleet(Camera):
    """Any number of cameras of some 2 Mbit/s, with a write a picture or a packet."""

    def __init__(self, writes):
        with Camera("--width", "704", "--height", "576", "--kbps", "1750") as camera:
            pictures = round(2 / FRAME_SECONDS)  # the clip once
            self.process = start([FLEET, writes, camera.port, "/live", str(pictures)],
                                 stdout=subprocess.PIPE, text=True)
            self.port = self.process.stdout.readline().strip()
        self.url = f"rtsp://127.0.0.1:{self.port}/live"


def ours(camera, transport, *options):
    return [MRETRIEVER, "PROTO=RTSP", "DEVIP=127.0.0.1", f"RTSP_PORT={camera.port}",
            "RTSP_URL=/live", "USRNAME=", "PASSWD=", "CAMERAMODEL=any", "MODELID=any",
            "MEDIA_FORMAT=h264", "DEVID=bench", "OBJID=1", "--log-level", "ERROR",
            f"RTP_OVER_TCP={'on' if transport == 'tcp' else 'off'}", *options]


def ffmpeg(camera, transport):
    return ["ffmpeg", "-nostdin", "-v", "error", "-rtsp_transport", transport, "-i", camera.url,
            "-c", "copy", "-f", "null", "-"]


def gstreamer(camera, transport):
    return ["gst-launch-1.0", "-q", "rtspsrc", f"location={camera.url}", f"protocols={transport}",
            "!", "fakesink", "sync=false"]


def bare(camera):
    return [BARE, "rtsp", camera.port, "/live"]


def rate_of(camera, transport):
    """Bytes a second, as the program counts them."""
    text = run(ours(camera, transport), seconds=SECONDS / 2, output=subprocess.PIPE).output
    return max(float(kbps) for kbps in re.findall(r"(\d+) kbit/s", text)) * 1000 / 8


def bulk():
    rows = []
    for transport, speed in (("tcp", "6"), ("udp", "3")):
        with Camera("--width", "1280", "--height", "720", "--kbps", "50000", "--speed",
                    speed) as camera:
            rate = rate_of(camera, transport)
            for name, command in (("mretriever", ours), ("ffmpeg", ffmpeg),
                                  ("gstreamer", gstreamer)):
                cost = run(command(camera, transport), seconds=SECONDS)
                rows.append([transport, f"{rate * 8 / 1e6:.0f}", name, f"{cost.cpu:.2f}",
                             f"{cost.per_gigabyte(rate * SECONDS):.2f}", f"{cost.peak_mb:.1f}"])
            if transport == "tcp":
                cost = run(bare(camera), seconds=SECONDS)
                rows.append(["tcp", f"{rate * 8 / 1e6:.0f}", "bare loop", f"{cost.cpu:.2f}",
                             f"{cost.per_gigabyte(rate * SECONDS):.2f}", f"{cost.peak_mb:.1f}"])
    table("One stream", ["over", "Mbit/s", "client", "CPU s", "CPU s/GB", "peak MB"], rows)


def first_frame():
    """From the start of the process to the first picture. The camera sends it with its next
    frame interval, so half an interval of the time is the camera's on average."""
    with Camera() as camera:
        play = ["-rtsp_transport", "tcp", "-i", camera.url, "-c", "copy", "-f", "h264", "-"]
        quick = ["-probesize", "32", "-analyzeduration", "0"]
        pipeline = (f"rtspsrc location={camera.url} protocols=tcp latency=0 ! rtph264depay ! "
                    "h264parse ! fdsink").split()
        rows = [
            # The first is the parameter sets of the description, and comes ahead of PLAY.
            ["mretriever", "description", median_ms(first_frame_ms, ours(camera, "tcp"))],
            ["mretriever", "picture", median_ms(first_frame_ms, ours(camera, "tcp"), 2)],
            ["ffmpeg", "picture", median_ms(first_output_ms, ["ffmpeg", "-v", "error", *play])],
            ["ffmpeg without probing", "picture",
             median_ms(first_output_ms, ["ffmpeg", "-v", "error", *quick, *play])],
            ["gstreamer", "picture", median_ms(first_output_ms, ["gst-launch-1.0", "-q", *pipeline])],
        ]
    table("Start to first frame, TCP", ["client", "until", "median ms"], rows)


def cpu_and_memory(commands, trace):
    """Of each process on average, from some seconds after the start; `trace` loses what came
    before."""
    processes = [start(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                 for command in commands]
    try:
        time.sleep(4)
        open(trace, "w").close()  # lines are appended
        before = [cpu_seconds(process.pid) for process in processes]
        time.sleep(SECONDS)
        cpu = [cpu_seconds(process.pid) - b for process, b in zip(processes, before)]
        memory = [pss_mb(process.pid) for process in processes]
    finally:
        for process in processes:
            stop(process)
    return 100 * sum(cpu) / len(cpu) / SECONDS, sum(memory) / len(memory)


def late_frames(trace):
    """Pictures that came more than a frame's time late, and all of them."""
    times = {}
    with open(trace) as lines:
        for event in map(json.loads, lines):
            # NAL units of 1 (slice) and 5 (key slice); a picture may have several.
            if event["event"] == "frame" and int(event["head"][:2] or "0", 16) & 31 in (1, 5):
                times[event["tv"][0] * 1000000 + event["tv"][1]] = True
    stamps = sorted(times)
    if not stamps:
        return 0, 0
    gaps = [(b - a) / 1e6 for a, b in zip(stamps, stamps[1:])]
    return sum(gap > 2 * FRAME_SECONDS for gap in gaps), round(
        (stamps[-1] - stamps[0]) / 1e6 / FRAME_SECONDS)


def many():
    """Beside them one more of our processes watches how late pictures come: with each client, as
    the camera and the machine have their part in that."""
    rows = []
    clients = (("mretriever", lambda camera: ours(camera, "tcp")),
               ("ffmpeg", lambda camera: ffmpeg(camera, "tcp")),
               ("gstreamer", lambda camera: gstreamer(camera, "tcp")), ("bare loop", bare))
    for writes in ("picture", "packet"):
        with tempfile.TemporaryDirectory() as folder, Fleet(writes) as camera:
            rate = rate_of(camera, "tcp") * 8 / 1e6
            for name, command in clients:
                trace = os.path.join(folder, name)
                watch = start(ours(camera, "tcp", "--trace", trace), stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL)
                try:
                    share, memory = cpu_and_memory([command(camera)] * PROCESSES, trace)
                finally:
                    stop(watch)
                late, pictures = late_frames(trace)
                rows.append([writes, name, PROCESSES, f"{share:.3f}", f"{memory:.1f}",
                             f"{late} of {pictures}"])
    table(f"Many processes of {rate:.1f} Mbit/s each, TCP",
          ["camera writes a", "client", "processes", "% of a core each", "PSS MB each",
           "late frames"], rows)


if __name__ == "__main__":
    bulk()
    first_frame()
    many()
