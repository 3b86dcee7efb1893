#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Plays what the example hosts serve with ffmpeg, over UDP and TCP at once, and compares every
decoded frame and every byte of the sound with the source.
Usage: players.py files|pipe|minimal_host [emulator...] host"""

import pathlib
import socket

from playback import (CLIP, FFMPEG, SOUND, Host, Player, Process, check, check_recording,
                      feeder, free_ports, main, output_of, require_programs, source_frames, wait_until)

SECONDS = 7      # of media that each player records; the first sender report comes after 5
RUN_FRAMES = 50  # frames that must arrive in a row, unchanged and in order, with their sound


def play(host, video, sound=None):
    """Both transports play one stream, so that each push is sent over both."""
    frames = source_frames(video)
    players = [Player(host.url(stream), transport, SECONDS)
               for transport, stream in (("udp", "main"), ("tcp", "main"), ("tcp", "sub"))]
    for player in players:
        check_recording(player, frames, RUN_FRAMES, sound)


def files(program):
    """H.264 and sound."""
    require_programs("ffmpeg")
    host = Host(program)
    play(host, CLIP, SOUND)
    host.end()


def pipe(program):
    """H.265 from a pipe, whose end ends the host."""
    require_programs("ffmpeg")
    output_of(*FFMPEG, "-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=2",
              "-pix_fmt", "yuv420p", "-c:v", "libx265", "-preset", "veryfast", "-x265-params",
              "log-level=error:keyint=25:min-keyint=25:bframes=0:open-gop=0:scenecut=0:slices=2"
              ":repeat-headers=1", "clip.h265")
    feed = feeder("clip.h265")
    host = Host(program, "--video", "-", "--codec", "h265", stdin=feed.process.stdout)
    play(host, "clip.h265")
    feed.kill()
    check(host.wait() == 0, "the end of the pipe is an error")


def minimal_host(program):
    """Every NAL unit that arrives is the file's. The recording is longer than the file of 2 s."""
    require_programs("ffmpeg")
    start_code = b"\0\0\0\1"
    units = [unit.rstrip(b"\0") for unit in CLIP.read_bytes().split(b"\0\0\1")[1:55]]
    file = b"".join(start_code + unit for unit in units)
    pathlib.Path("served.h264").write_bytes(file)
    port = free_ports()
    host = Process("minimal_host", [*program, "served.h264", str(port)])
    with socket.socket() as probe:
        wait_until(lambda: probe.connect_ex(("127.0.0.1", port)) == 0, 60, "a server")
    player = Player(f"rtsp://127.0.0.1:{port}/chan1/main/", "tcp", 3)
    check(player.wait() == 0, "the player failed")
    received = output_of(*FFMPEG, "-i", player.recording, "-c", "copy", "-f", "h264", "-")
    check(received in file * 3 and received.count(start_code) > len(units),
          f"the {received.count(start_code)} NAL units that arrived are not the file's")
    host.end()


if __name__ == "__main__":
    main(files, pipe, minimal_host)
