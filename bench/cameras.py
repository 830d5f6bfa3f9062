#!/usr/bin/env python3
"""Start to first frame and memory for the devices that neither ffmpeg nor GStreamer plays.

Their CPU is compared with a bare receive loop in vendor_bench and pushin_bench.
"""
import os
import subprocess
import time

import measure

ADDRESS = f"127.{1 + os.getpid() % 200}.9.1"
ANY = ["DEVID=bench", "OBJID=1", "MODELID=any", "PROTO=HTTP", f"DEVIP={ADDRESS}",
       "USRNAME=admin", "PASSWD=1234", "FRAMERATE=25", "CAMCOMPRESSION=2", "IMAGESIZE=fullsize"]
CAMERAS = {
    "samsung": ["CAMERAMODEL=Samsung", "MEDIA_FORMAT=mpeg4"],
    "dante": ["CAMERAMODEL=Dante", "MEDIA_FORMAT=mpeg4", "CAMERA=1", "RC_MODE=cbr",
              "RC_MAXBITRATE=1000"],
    "vsip": ["CAMERAMODEL=Verint", "MEDIA_FORMAT=mpeg4", "VSIP_PORT=5010", "DEFINEDUID=" + "7" * 66,
             f"VSIP_TARGET_SIP={ADDRESS}", "VSIP_TARGET_GUID=t", "VSIP_SOURCE_GUID=s",
             "HTTP_PORT=5080"],
}
OPTIONS = {"vsip": ["--http-port", "5080"]}


def memory(command):
    """Peak and proportional set size in MB after some seconds."""
    process = measure.start(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        time.sleep(3)
        if process.poll() is not None:
            raise RuntimeError(f"{command[1]} ended with {process.returncode}")
        return measure.peak_mb(process.pid), measure.pss_mb(process.pid)
    finally:
        measure.stop(process)


def main():
    rows = []
    for protocol, keys in CAMERAS.items():
        camera = measure.start([measure.CAMSIM, protocol, "--address", ADDRESS, "--seconds", "2",
                                *OPTIONS.get(protocol, [])], stdout=subprocess.PIPE, text=True)
        try:
            camera.stdout.readline()  # it listens
            command = [measure.MRETRIEVER, *ANY, *keys, "--log-level", "ERROR"]
            first = measure.median_ms(measure.first_frame_ms, command, rounds=3)
            peak, pss = memory(command)
        finally:
            measure.stop(camera)
        rows.append([protocol, first, f"{peak:.1f}", f"{pss:.1f}"])
    measure.table("Vendor devices", ["protocol", "first frame ms", "peak MB", "PSS MB"], rows)


if __name__ == "__main__":
    main()
