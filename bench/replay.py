"""What one camera costs: a FAKE stream of 4 Mbit/s, alone and 20 side by side."""
import os
import tempfile
import time

import measure

SECONDS = 8
CLIP_SECONDS = 8
CAMERAS = 20


def command(folder, device):
    return [measure.MRETRIEVER, "PROTO=FAKE", "CAMERAMODEL=bench", f"DEVID={device}",
            "OBJID=1", "MEDIA_FORMAT=h264", f"SOURCE={folder}/clip", "--log-level", "WARN"]


def alone(folder):
    cost = measure.run(command(folder, "alone") + ["--duration", str(SECONDS)])
    assert cost.status == 0, "the program failed"
    recorded = measure.run(command(folder, "recorded") + ["--duration", str(SECONDS), "--record",
                                                          os.path.join(folder, "recording")])
    assert recorded.status == 0, "the recording program failed"
    measure.table(f"one camera of 4 Mbit/s, {SECONDS} s", ["", "peak MB", "CPU %", "goal"], [
        ["received", f"{cost.peak_mb:.1f}", f"{100 * cost.cpu / cost.wall:.2f}", "peak < 40 MB"],
        ["and recorded", f"{recorded.peak_mb:.1f}",
         f"{100 * recorded.cpu / recorded.wall:.2f}", ""]])


def side_by_side(folder):
    with open(os.devnull, "w") as silence:
        cameras = [measure.start(command(folder, f"cam{i}"), stdout=silence)
                   for i in range(CAMERAS)]
        try:
            time.sleep(3)
            before = [measure.cpu_seconds(camera.pid) for camera in cameras]
            begin = time.monotonic()
            time.sleep(SECONDS)
            wall = time.monotonic() - begin
            cpu = sum(measure.cpu_seconds(camera.pid) for camera in cameras) - sum(before)
            pss = [measure.pss_mb(camera.pid) for camera in cameras]
        finally:
            for camera in cameras:
                measure.stop(camera)
    measure.table(f"{CAMERAS} cameras of 4 Mbit/s side by side",
                  ["", "mean", "largest", "goal"],
                  [["PSS MB each", f"{sum(pss) / CAMERAS:.2f}", f"{max(pss):.2f}", "< 8 MB"],
                   ["CPU % each", f"{100 * cpu / wall / CAMERAS:.2f}", "", ""]])


def main():
    with tempfile.TemporaryDirectory() as folder:
        clip = os.path.join(folder, "clip.h264")
        made = measure.run(
            ["ffmpeg", "-v", "error", "-nostdin", "-f", "lavfi",
             "-i", "testsrc2=size=1280x720:rate=25,noise=alls=12:allf=t", "-t", str(CLIP_SECONDS),
             "-c:v", "libx264", "-preset", "superfast", "-bf", "0", "-g", "25",
             "-b:v", "4M", "-maxrate", "4M", "-bufsize", "2M", "-f", "h264", clip])
        assert made.status == 0, "ffmpeg failed"
        print(f"clip: {os.path.getsize(clip) / CLIP_SECONDS * 8 / 1e6:.1f} Mbit/s")
        alone(folder)
        side_by_side(folder)


main()
