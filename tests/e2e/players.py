#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Plays what the example host serves with ffmpeg, over UDP and TCP at once, and compares every
decoded frame and every byte of the sound with the source.
Usage: players.py media_dir h264|h265|pipe|console|slow [emulator...] live_host"""

import fcntl
import os
import shutil
import subprocess
import sys
import tempfile
import threading

from playback import FFMPEG, Host, Player, check_recording, clip_frames, left, log_file

SECONDS = 7           # of media that each player records; the first sender report comes after 5
RUN_FRAMES = 50       # frames that must arrive in a row, unchanged and in order
RUN_SAMPLES = 16000   # 2 s of sound
SLOW_FRAMES = 10      # at 2 per second

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


def make_console(path, log):
    """A console that takes no more output after live_host has printed its URLs."""
    os.mkfifo(path)
    end = os.open(path, os.O_RDWR)
    fcntl.fcntl(end, fcntl.F_SETPIPE_SZ, 4096)

    def copy():
        text = b""
        while b"Ctrl-C" not in text:
            text += os.read(end, 1)
        with open(log, "ab") as copied:
            copied.write(text)

    threading.Thread(target=copy, daemon=True).start()


def check_slow_stream(host, frames, work):
    """Video only, of a stream with sound, at 2 pictures per second: the server counts each push of
    sound as rejected, and more than 20 in a row would end the client."""
    player = Player("tcp main", host.url("main"), "tcp", SECONDS, work, with_audio=False,
                    options=["-allowed_media_types", "video"])
    faults = check_recording(player, frames, SLOW_FRAMES)
    rejected = host.output().count("send failed,nLen=")
    # The host pushes sound with each picture, until ffmpeg has started and recorded.
    if not SLOW_FRAMES <= rejected <= 2 * (SECONDS + 8):
        faults.append(f"{rejected} pushes of sound were rejected")
    return faults


def check_players(host, frames, audio, work):
    players = [Player(f"{transport} {stream}", host.url(stream), transport, SECONDS, work,
                      with_audio=audio is not None) for transport, stream in PLAYERS]
    return [fault for player in players
            for fault in check_recording(player, frames, RUN_FRAMES, audio, RUN_SAMPLES)]


def run(program, media, case, work):
    video = make_h265(work) if case == "h265" else os.path.join(media, "clip.h264")
    audio = os.path.join(media, "clip.alaw")
    frames = clip_frames(video, work)
    arguments, feed = {
        "h264": ([], None),
        "h265": (["--video", video, "--audio", audio], None),
        "pipe": (["--video", "-"], video),
        "slow": (["--fps", "2"], None),
        "console": (["--debug", "--log", os.path.join(work, "console")], None),
    }[case]
    if case == "console":
        make_console(arguments[-1], log_file(work))
    host = Host(program, arguments, work, feed)
    try:
        if case == "slow":
            faults = check_slow_stream(host, frames, work)
        else:
            faults = check_players(host, frames, None if feed else audio, work)
        faults += host.end(feed is not None)
        if case == "console" and "lines unwritten" not in host.output():
            faults.append("the console was never full")
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
