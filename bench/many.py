#!/usr/bin/env python3
"""How many 2 Mbit/s cameras this machine holds, one process each, RTSP over TCP.

The number grows until more than one picture in fifty comes late or a process ends. The cameras,
all in one process, are on the same machine.
"""
import os
import subprocess
import tempfile
import time

import measure
from rtsp import Fleet, late_frames, ours

STEPS = (50, 200, 500, 800, 1000, 1200, 1400)
SECONDS = 6
LATE = 0.02


def busy_seconds():
    """CPU seconds of the whole machine, by whomever."""
    with open("/proc/stat") as stat:
        fields = [int(field) for field in stat.readline().split()[1:9]]
    idle = fields[3] + fields[4]
    return (sum(fields) - idle) / os.sysconf("SC_CLK_TCK")


def step(fleet, count, trace):
    watch = measure.start(ours(fleet, "tcp", "--trace", trace), stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL)
    processes = [watch] + [
        measure.start(ours(fleet, "tcp"), stdout=subprocess.DEVNULL,
                      stderr=subprocess.DEVNULL) for _ in range(1, count)]
    try:
        time.sleep(3 + count / 100)
        open(trace, "w").close()  # what came while the processes started; lines are appended
        before, busy = [measure.cpu_seconds(process.pid) for process in processes], busy_seconds()
        cameras = measure.cpu_seconds(fleet.process.pid)
        time.sleep(SECONDS)
        busy = (busy_seconds() - busy) / SECONDS
        cameras = (measure.cpu_seconds(fleet.process.pid) - cameras) / SECONDS
        share = sum(measure.cpu_seconds(process.pid) for process in processes) - sum(before)
        memory = sum(measure.pss_mb(process.pid) for process in processes) / count
        ended = sum(process.poll() is not None for process in processes)
    finally:
        for process in processes:
            process.terminate()
        for process in processes:
            measure.stop(process)
    late, pictures = late_frames(trace)
    return share / SECONDS / count, memory, busy, cameras, late, pictures, ended


def main():
    rows = []
    cores = os.cpu_count()
    with tempfile.TemporaryDirectory() as folder, Fleet("picture") as fleet:
        for count in STEPS:
            share, memory, busy, cameras, late, pictures, ended = step(
                fleet, count, os.path.join(folder, "trace"))
            rows.append([count, f"{100 * share:.2f}", f"{memory:.1f}", f"{100 * busy / cores:.0f}",
                         f"{100 * cameras / cores:.0f}", f"{late} of {pictures}", ended,
                         round(cores / share)])
            if late > LATE * pictures or ended:
                break
    measure.table("Processes of a 2 Mbit/s camera each, RTSP over TCP",
                  ["processes", "% of a core each", "PSS MB each", "machine %", "cameras' part %",
                   "late pictures", "ended", "would fill all cores"], rows)


if __name__ == "__main__":
    main()
