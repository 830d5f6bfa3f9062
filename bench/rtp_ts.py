#!/usr/bin/env python3
"""CPU per gigabyte, lost datagrams and peak memory of a paced stream, beside ffmpeg and GStreamer.

Transport streams over UDP at 20 and 100 Mbit/s, H.264 over RTP at 50 Mbit/s. All
receivers get the same datagrams at the same pace, one after the other, and
split them into frames; a bare receive loop beside them throws them away. Start-up is left
out, the receivers take turns for some rounds, and the median counts. Last, the cost of the
first and the last third of a longer run. `--seconds N` sets the length of each window.
"""
import argparse
import os
import socket
import statistics
import struct
import subprocess
import tempfile
import threading
import time

import measure

PICTURE = "testsrc2=size=1280x720:rate=25,noise=alls=40:allf=t"
GOAL = 0.8  # of the best of the others
ROUNDS = 3


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        while True:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
            if port % 2 == 0:
                return port
            return port + 1


def ts_datagrams(folder):
    clip = os.path.join(folder, "clip.ts")
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", "-f", "lavfi", "-i", PICTURE,
                    "-f", "lavfi", "-i", "sine=sample_rate=44100", "-t", "8",
                    "-c:v", "libx264", "-preset", "ultrafast", "-tune", "zerolatency",
                    "-pix_fmt", "yuv420p", "-g", "25", "-b:v", "19M", "-maxrate", "19M",
                    "-bufsize", "10M", "-c:a", "aac", "-f", "mpegts", clip], check=True)
    with open(clip, "rb") as file:
        data = file.read()
    return [data[at:at + 1316] for at in range(0, len(data), 1316)]


def rtp_datagrams(folder):
    """The clip's video as ffmpeg packs it, and the session's description."""
    receiver = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    receiver.bind(("127.0.0.1", 0))
    receiver.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
    receiver.settimeout(2)
    sdp = os.path.join(folder, "clip.sdp")
    sender = subprocess.Popen(["ffmpeg", "-v", "error", "-nostdin", "-y", "-re", "-i",
                               os.path.join(folder, "clip.ts"), "-map", "0:v", "-c", "copy",
                               "-sdp_file", sdp, "-f", "rtp",
                               f"rtp://127.0.0.1:{receiver.getsockname()[1]}"])
    packets = []
    try:
        while True:
            packets.append(bytearray(receiver.recv(65536)))
    except socket.timeout:
        pass
    sender.wait()
    with open(sdp) as file:
        return packets, file.read()


class Sender(threading.Thread):
    """Datagrams in an endless loop at a steady rate, a burst each two milliseconds."""

    def __init__(self, datagrams, port, bits_per_second, rtp):
        super().__init__(daemon=True)
        self.datagrams, self.rate, self.rtp = datagrams, bits_per_second / 8, rtp
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.target = ("127.0.0.1", port)
        self.sent = 0
        self.running = True

    def run(self):
        begin = time.monotonic()
        sequence = 0
        length = (struct.unpack_from(">I", self.datagrams[-1], 4)[0] -
                  struct.unpack_from(">I", self.datagrams[0], 4)[0] + 3600) if self.rtp else 0
        first = [struct.unpack_from(">I", d, 4)[0] for d in self.datagrams] if self.rtp else []
        loop = 0
        while self.running:
            for index, datagram in enumerate(self.datagrams):
                if self.rtp:  # go on counting where the clip begins again
                    struct.pack_into(">HI", datagram, 2, sequence & 0xFFFF,
                                     (first[index] + loop * length) & 0xFFFFFFFF)
                    sequence += 1
                ahead = self.sent / self.rate - (time.monotonic() - begin)
                if ahead > 0:
                    if not self.running:
                        return
                    time.sleep(max(ahead, 0.002))
                self.socket.sendto(datagram, self.target)
                self.sent += len(datagram)
            loop += 1


def drops(port):
    with open("/proc/net/udp") as table:
        return sum(int(line.split()[-1]) for line in table if f":{port:04X} " in line)


def receivers(kind, port, sdp_name):
    ours = [measure.MRETRIEVER, "CAMERAMODEL=" + ("Cornet" if kind == "ts" else "any"),
            "PROTO=" + ("UDP" if kind == "ts" else "RTP"), "MODELID=any", "MEDIA_FORMAT=h264",
            "DEVID=bench", "OBJID=1", f"RTP_UNICAST_PORT={port}", "--log-level", "ERROR"]
    source = [f"udp://127.0.0.1:{port}"] if kind == "ts" else [
        "-protocol_whitelist", "file,udp,rtp", "-i", sdp_name]
    ffmpeg = ["ffmpeg", "-v", "fatal", "-nostdin"] + (
        ["-i"] + source if kind == "ts" else source) + ["-map", "0", "-c", "copy", "-f", "null", "-"]
    head = f"udpsrc address=127.0.0.1 port={port} "
    pipeline = head + ("caps=video/mpegts ! tsdemux name=d d. ! h264parse ! fakesink sync=false async=false "
                       "d. ! aacparse ! fakesink sync=false async=false" if kind == "ts" else
                       "caps=application/x-rtp,media=video,encoding-name=H264,clock-rate=90000,"
                       "payload=96 ! rtph264depay ! h264parse ! fakesink sync=false async=false")
    return [("mretriever", ours), ("ffmpeg", ffmpeg),
            ("GStreamer", ["gst-launch-1.0", "-q"] + pipeline.split()),
            ("bare loop", [measure.BARE, "udp", str(port)])]


def window(process, sender, seconds):
    """Seconds of CPU per gigabyte sent meanwhile."""
    cpu, sent = measure.cpu_seconds(process.pid), sender.sent
    time.sleep(seconds)
    return (measure.cpu_seconds(process.pid) - cpu) / ((sender.sent - sent) / 1e9)


def measure_one(command, datagrams, port, rate, rtp, windows, seconds):
    """The cost of each window, the datagrams lost and the peak memory."""
    process = measure.start(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    sender = Sender(datagrams, port, rate, rtp)
    try:
        time.sleep(1)
        sender.start()
        time.sleep(6 if command[0] == "ffmpeg" else 2)  # it probes for 5 seconds
        before = drops(port)
        costs = [window(process, sender, seconds) for _ in range(windows)]
        lost = drops(port) - before
        if process.poll() is not None:
            raise RuntimeError(f"{command[0]} ended with {process.returncode}")
        return costs, lost, measure.peak_mb(process.pid)
    finally:
        sender.running = False
        sender.join()
        measure.stop(process)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seconds", type=float, default=4)
    seconds = parser.parse_args().seconds
    rows = []
    with tempfile.TemporaryDirectory() as folder:
        ts = ts_datagrams(folder)
        rtp, sdp = rtp_datagrams(folder)
        for title, kind, datagrams, mbit in (("TS over UDP", "ts", ts, 20),
                                             ("TS over UDP", "ts", ts, 100),
                                             ("RTP H.264", "rtp", rtp, 50)):
            port = free_port()
            sdp_name = os.path.join(folder, "session.sdp")
            with open(sdp_name, "w") as file:
                file.writelines(f"m=video {port} " + line.split(" ", 2)[2]
                                if line.startswith("m=video") else line
                                for line in sdp.splitlines(keepends=True)
                                if not line.startswith("SDP:"))
            rounds = {}
            for _ in range(ROUNDS):
                for name, command in receivers(kind, port, sdp_name):
                    costs, lost, peak = measure_one(command, datagrams, port, mbit * 1e6,
                                                    kind == "rtp", 1, seconds)
                    rounds.setdefault(name, []).append((costs[0], lost, peak))
            cost = {name: statistics.median(result[0] for result in results)
                    for name, results in rounds.items()}
            best = min(cost["ffmpeg"], cost["GStreamer"])
            for name, results in rounds.items():
                verdict = ""
                if name == "mretriever":
                    verdict = f"{cost[name] / best:.2f} (goal {GOAL})"
                rows.append([f"{title}, {mbit} Mbit/s", name, f"{cost[name]:.2f}", verdict,
                             sum(result[1] for result in results),
                             f"{max(result[2] for result in results):.1f}"])
        measure.table("Paced streams", ["stream", "receiver", "CPU s/GB", "to the best", "lost",
                                        "peak MB"], rows)
        port = free_port()
        command = receivers("ts", port, "")[0][1]
        costs, _, _ = measure_one(command, ts, port, 100e6, False, 3, seconds)
        measure.table("Cost over time, TS at 100 Mbit/s", ["third", "CPU s/GB"],
                      [[i + 1, f"{cost:.2f}"] for i, cost in enumerate(costs)])


if __name__ == "__main__":
    main()
