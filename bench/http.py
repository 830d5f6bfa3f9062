#!/usr/bin/env python3
"""CPU per gigabyte of an unpaced motion JPEG stream over HTTP, with and without lengths,
beside ffmpeg and GStreamer on the same stream in the same run; peak memory, and start to first
frame.

The camera has one core and the receivers another: on the same one as the sender, or
moved between them, a receiver's cost is twice as much or half."""
import os
import statistics
import subprocess

import measure

SECONDS = 1
ROUNDS = 7
LIMITS = {"Content-Length": 0.6, "none": 0.4}  # of the better peer


def cores():
    return sorted(os.sched_getaffinity(0))


def pin(pid, index):
    os.sched_setaffinity(pid, {cores()[index]})


class Camera:
    def __init__(self, length):
        self.process = subprocess.Popen(
            [measure.CAMSIM, "http", "--port", "0", "--fps", "0", "--length", length,
             "--width", "1920", "--height", "1080", "--seconds", "2"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        pin(self.process.pid, 0)
        self.port = self.wait_for("listening on").rsplit(":", 1)[1]

    def wait_for(self, text):
        while line := self.process.stdout.readline():
            if line.startswith(text):
                return line.strip()
        raise RuntimeError("camsim http has ended")

    def cost_of(self, command):
        """CPU seconds a gigabyte that the camera sent, and the peak memory."""
        cost = measure.run(["taskset", "--cpu-list", str(cores()[-1]), *command], SECONDS)
        size = int(self.wait_for("sent").split()[1])
        return cost.per_gigabyte(size), cost.peak_mb


def readers(port):
    url = f"http://127.0.0.1:{port}/stream"
    keys = ["PROTO=HTTP", "CAMERAMODEL=any", "MODELID=any", "MEDIA_FORMAT=mjpg", "USRNAME=",
            "DEVIP=127.0.0.1", f"HTTP_PORT={port}", "HTTP_URL=/stream", "NO_FPS_LIMIT=",
            "DEVID=bench", "OBJID=1"]
    return {
        "mretriever": [measure.MRETRIEVER, *keys, "--log-level", "ERROR"],
        "ffmpeg": ["ffmpeg", "-v", "error", "-f", "mpjpeg", "-i", url, "-c", "copy",
                   "-f", "null", "-"],
        "gstreamer": ["gst-launch-1.0", "-q", "souphttpsrc", f"location={url}", "!",
                      "multipartdemux", "!", "fakesink"],
        "bare loop": [measure.BARE, "http", port, "/stream"],
    }


def first_frames(port):
    """Into a pipe, so that the first byte shows when it comes."""
    commands = readers(port)
    times = {"mretriever": measure.median_ms(measure.first_frame_ms, commands["mretriever"])}
    commands["ffmpeg"][-2:] = ["mjpeg", "-"]
    commands["gstreamer"][-1:] = ["fdsink"]
    for name in ("ffmpeg", "gstreamer"):
        times[name] = measure.median_ms(measure.first_output_ms, commands[name])
    return times


def main():
    rows, details = [], []
    for length, limit in LIMITS.items():
        camera = Camera(length)
        try:
            # Rounds take turns and the median counts: the cost depends on how sender and
            # receiver fall into step, for all of them.
            costs = {}
            for _ in range(ROUNDS):
                for name, command in readers(camera.port).items():
                    costs.setdefault(name, []).append(camera.cost_of(command))
            first = first_frames(camera.port)
        finally:
            measure.stop(camera.process)
        median = {name: statistics.median(cost for cost, _ in values)
                  for name, values in costs.items()}
        peer = min(median["ffmpeg"], median["gstreamer"])
        rows.append([length, *(f"{median[name]:.3f}" for name in median),
                     f"{median['mretriever'] / peer:.2f}", f"{limit:.1f}"])
        details += [[length, name, f"{max(peak for _, peak in costs[name]):.1f}", first[name]]
                    for name in first]
    measure.table("Motion JPEG over HTTP: CPU seconds per gigabyte",
                  ["length header", "mretriever", "ffmpeg", "gstreamer", "bare loop",
                   "of better peer", "limit"],
                  rows)
    measure.table("The same", ["length header", "client", "peak MB", "first frame ms"], details)


if __name__ == "__main__":
    main()
