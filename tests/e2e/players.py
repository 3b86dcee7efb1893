#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Plays what the example host serves with ffmpeg, over UDP and TCP at once, and compares every
decoded frame and every byte of the sound with the source.
Usage: players.py media_dir files|pipe [emulator...] live_host"""

import os
import shutil
import subprocess
import sys
import tempfile

from playback import FFMPEG, Host, Player, check_recording, clip_frames, left

SECONDS = 7           # of media that each player records; the first sender report comes after 5
RUN_FRAMES = 50       # frames that must arrive in a row, unchanged and in order
RUN_SAMPLES = 16000   # 2 s of sound

# (transport, stream): both transports on one stream, so that each push is sent over both.
PLAYERS = [("udp", "main"), ("tcp", "main"), ("tcp", "sub")]


def make_h265(work):
    path = os.path.join(work, "clip.h265")
    subprocess.run(
        [*FFMPEG, "-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=2",
         "-pix_fmt", "yuv420p", "-c:v", "libx265", "-preset", "veryfast", "-x265-params",
         "log-level=error:keyint=25:min-keyint=25:bframes=0:open-gop=0:scenecut=0:slices=2"
         ":repeat-headers=1", "-f", "hevc", path], check=True, timeout=left())
    return path


def check_players(host, frames, audio, work):
    players = [Player(f"{transport} {stream}", host.url(stream), transport, SECONDS, work,
                      with_audio=audio is not None) for transport, stream in PLAYERS]
    return [fault for player in players
            for fault in check_recording(player, frames, RUN_FRAMES, audio, RUN_SAMPLES)]


def run(program, media, case, work):
    """H.264 and sound from files; H.265 from a pipe."""
    piped = case == "pipe"
    video = make_h265(work) if piped else os.path.join(media, "clip.h264")
    audio = None if piped else os.path.join(media, "clip.alaw")
    frames = clip_frames(video, work)
    arguments = ["--video", "-", "--codec", "h265"] if piped else []
    host = Host(program, arguments, work, feed=video if piped else None)
    try:
        faults = check_players(host, frames, audio, work) + host.end(fed=piped)
        return faults + ["live_host said:\n" + host.output()] if faults else []
    finally:
        host.kill()


def main():
    media, case, *program = sys.argv[1:]
    if shutil.which("ffmpeg") is None:
        print("skipped: there is no ffmpeg to play with")
        return 77  # CTest reports this as skipped
    with tempfile.TemporaryDirectory() as work:
        faults = run(program, media, case, work)
    print(*faults, sep="\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
