"""What the comparison benchmarks share: run commands, take their cost, print a table.

Each bench/<area>.py runs our program and its peers on the same input in the same
run and prints ratios. `make bench` runs them all; they need the release build.
"""
import glob
import os
import signal
import statistics
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BIN = os.path.join(ROOT, "build", "bin")
MRETRIEVER = os.path.join(BIN, "mretriever")
CAMSIM = os.path.join(BIN, "camsim")
BARE = os.path.join(BIN, "bare_receiver")  # requests, receives, throws away
FLEET = os.path.join(BIN, "camera_fleet")  # plays what it has recorded to many clients


class Cost:
    """CPU seconds (user and system), wall seconds, peak memory in MB, status and output."""

    def __init__(self, usage, wall, status, output):
        self.cpu = usage.ru_utime + usage.ru_stime
        self.wall = wall
        self.peak_mb = usage.ru_maxrss / 1024
        self.status = status
        self.output = output

    def per_gigabyte(self, size):
        return self.cpu / (size / 1e9)


def start(command, **options):
    """A background process (a device, a sender); stop() it afterwards."""
    return subprocess.Popen(command, stdin=subprocess.DEVNULL, **options)


def stop(process):
    if process.poll() is None:
        process.send_signal(signal.SIGTERM)
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def run(command, seconds=None, output=subprocess.DEVNULL):
    """Runs to the end, or ends it with SIGINT after `seconds`; returns its Cost."""
    begin = time.monotonic()
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output,
                               stderr=subprocess.STDOUT if output == subprocess.PIPE
                               else subprocess.DEVNULL)
    sent = False
    while True:
        pid, status, usage = os.wait4(process.pid, os.WNOHANG)
        if pid:
            break
        if seconds is not None and not sent and time.monotonic() - begin > seconds:
            process.send_signal(signal.SIGINT)
            sent = True
        time.sleep(0.005)
    text = process.stdout.read().decode(errors="replace") if process.stdout else ""
    process.returncode = os.waitstatus_to_exitcode(status)
    return Cost(usage, time.monotonic() - begin, process.returncode, text)


def first_output_ms(command, begins=1, marker=""):
    """Milliseconds from the start of a process until it has written so many lines
    that hold `marker`; without one, until its first byte."""
    begin = time.monotonic()
    process = start(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    try:
        if not marker:
            if not process.stdout.read(1):
                raise RuntimeError(f"{command[0]} has written nothing")
        while marker and begins > 0:
            line = process.stdout.readline()
            if not line:
                raise RuntimeError(f"{command[0]} ended ahead of its first frame")
            begins -= marker in line.decode(errors="replace")
        return (time.monotonic() - begin) * 1000
    finally:
        stop(process)


def first_frame_ms(command, frame=1):
    """The same of our program, whose trace tells of each frame."""
    return first_output_ms([*command, "--trace", "-"], frame, '"event":"frame"')


def median_ms(measured, *arguments, rounds=5):
    return f"{statistics.median(measured(*arguments) for _ in range(rounds)):.0f}"


def peak_mb(pid):
    """The most memory that a running process has held so far, in MB."""
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith("VmHWM:"):
                return int(line.split()[1]) / 1024
    return 0.0


def pss_mb(pid):
    """Proportional set size of a running process in MB."""
    with open(f"/proc/{pid}/smaps_rollup") as rollup:
        for line in rollup:
            if line.startswith("Pss:"):
                return int(line.split()[1]) / 1024
    return 0.0


def cpu_seconds(pid):
    """CPU seconds that the threads of a running process have used, in nanosecond steps."""
    total = 0
    for name in glob.glob(f"/proc/{pid}/task/*/schedstat"):
        with open(name) as file:
            total += int(file.read().split()[0])
    return total / 1e9


def table(title, header, rows):
    print(f"\n{title}")
    lines = [header] + [[str(cell) for cell in row] for row in rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(header))]
    for line in lines:
        print("  " + "  ".join(cell.ljust(width) for cell, width in zip(line, widths)))
    sys.stdout.flush()
