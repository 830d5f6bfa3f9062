#!/usr/bin/env python3
"""How many 2 Mbit/s cameras this machine holds, one process each, RTSP over TCP.

The number grows until more than one picture in fifty comes late or a process ends. The cameras' own
work is on the same machine: the last column leaves it out and tells how many
processes would fill all cores alone.
"""
import os
import subprocess
import tempfile
import time

import measure
from rtsp import Camera, late_frames, ours

STEPS = (25, 50, 100, 150, 200, 300, 400)
PER_CAMERA = 50  # processes that one simulated camera serves from its one thread
SECONDS = 6
LATE = 0.02


def busy_seconds():
    """CPU seconds of the whole machine, by whomever."""
    with open("/proc/stat") as stat:
        fields = [int(field) for field in stat.readline().split()[1:9]]
    idle = fields[3] + fields[4]
    return (sum(fields) - idle) / os.sysconf("SC_CLK_TCK")


def step(cameras, count, trace):
    watch = measure.start(ours(cameras[0], "tcp", "--trace", trace), stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL)
    processes = [watch] + [
        measure.start(ours(cameras[i // PER_CAMERA], "tcp"), stdout=subprocess.DEVNULL,
                      stderr=subprocess.DEVNULL) for i in range(1, count)]
    try:
        time.sleep(3)
        open(trace, "w").close()  # what came while the processes started; lines are appended
        before, busy = [measure.cpu_seconds(process.pid) for process in processes], busy_seconds()
        time.sleep(SECONDS)
        busy = (busy_seconds() - busy) / SECONDS
        share = sum(measure.cpu_seconds(process.pid) for process in processes) - sum(before)
        memory = sum(measure.pss_mb(process.pid) for process in processes) / count
        ended = sum(process.poll() is not None for process in processes)
    finally:
        for process in processes:
            process.terminate()
        for process in processes:
            measure.stop(process)
    late, pictures = late_frames(trace)
    return share / SECONDS / count, memory, busy, late, pictures, ended


def main():
    rows = []
    cores = os.cpu_count()
    with tempfile.TemporaryDirectory() as folder:
        cameras = []
        try:
            for count in STEPS:
                while len(cameras) * PER_CAMERA < count:
                    cameras.append(Camera("--width", "704", "--height", "576", "--kbps", "2000"))
                share, memory, busy, late, pictures, ended = step(cameras, count,
                                                                  os.path.join(folder, "trace"))
                rows.append([count, f"{100 * share:.2f}", f"{memory:.1f}", f"{100 * busy / cores:.0f}",
                             f"{late} of {pictures}", ended, round(cores / share)])
                if late > LATE * pictures or ended:
                    break
        finally:
            for camera in cameras:
                measure.stop(camera.process)
    measure.table("Processes of a 2 Mbit/s camera each, RTSP over TCP",
                  ["processes", "% of a core each", "PSS MB each", "machine %", "late pictures",
                   "ended", "would fill all cores"], rows)


if __name__ == "__main__":
    main()
