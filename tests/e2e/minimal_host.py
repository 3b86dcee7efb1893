#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Records what the minimal host serves with ffmpeg, and compares every NAL unit with the file's.
Usage: minimal_host.py clip [emulator...] minimal_host"""

import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

from playback import FFMPEG, free_ports, left

UNITS = 54           # NAL units of the clip that the host serves in a loop: 2 s
SECONDS = 3          # that ffmpeg records, so that the end of the file is among them
START_CODE = b"\0\0\0\1"


def make_file(clip, path):
    """Writes the beginning of the clip to a file, and returns its NAL units."""
    with open(clip, "rb") as source, open(path, "wb") as file:
        units = [unit.rstrip(b"\0") for unit in source.read().split(b"\0\0\1")[1:UNITS + 1]]
        file.writelines(START_CODE + unit for unit in units)
    return units


def record(port, path):
    """Returns the NAL units that ffmpeg received. It puts a start code before each of them."""
    with socket.socket() as probe:
        while probe.connect_ex(("127.0.0.1", port)) != 0 and left() > 1:
            time.sleep(0.05)
    subprocess.run([*FFMPEG, "-rtsp_transport", "tcp", "-i",
                    f"rtsp://127.0.0.1:{port}/chan1/main/", "-c", "copy", "-t", str(SECONDS), path],
                   check=True, timeout=left())
    with open(path, "rb") as recording:
        return recording.read().split(START_CODE)[1:]


def main():
    clip, *program = sys.argv[1:]
    if shutil.which("ffmpeg") is None:
        print("skipped: there is no ffmpeg to play with")
        return 77  # CTest reports it as skipped
    port, _ = free_ports()
    with tempfile.TemporaryDirectory() as work:
        file = os.path.join(work, "served.h264")
        units = make_file(clip, file)
        with subprocess.Popen([*program, file, str(port)]) as host:
            try:
                received = record(port, os.path.join(work, "recording.h264"))
                host.send_signal(signal.SIGINT)
                code = host.wait(left())
            finally:
                host.kill()
    print(f"{len(received)} NAL units arrived, and the host ended with {code}")
    equal = START_CODE.join(received) in START_CODE.join(units * SECONDS)
    print("They are", "the file's" if equal else "not the file's")
    return 0 if equal and code == 0 and len(received) > UNITS else 1


if __name__ == "__main__":
    sys.exit(main())
