#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Plays what the example host serves with ffmpeg, over UDP and TCP at once, and compares every
decoded frame and every byte of the sound with the source.
Usage: players.py media_dir h264|h265|pipe [emulator...] live_host"""

import contextlib
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

SECONDS = 7           # of media that each player records: a sender report comes in after 5
RUN_FRAMES = 50       # that must arrive in a row, as they are and in their order
RUN_SAMPLES = 16000   # 2 s of sound
GOP = 25              # frames from one key frame to the next
DEADLINE = time.monotonic() + 55

# (transport, stream): both transports on one stream, so that each push goes out in both shapes.
PLAYERS = [("udp", "main"), ("tcp", "main"), ("tcp", "sub")]

FFMPEG = ["ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "warning"]


def left():
    return max(1.0, DEADLINE - time.monotonic())


def frame_sums(path):
    with open(path, encoding="ascii") as lines:
        return [line.split(",")[-1].strip() for line in lines if not line.startswith("#")]


def clip_frames(video, work):
    sums = os.path.join(work, "clip.framemd5")
    subprocess.run([*FFMPEG, "-i", video, "-f", "framemd5", sums], check=True, timeout=left())
    frames = frame_sums(sums)
    if len(set(frames)) != len(frames):
        sys.exit("the clip repeats a frame: its order cannot be told")
    return frames


def make_h265(work):
    path = os.path.join(work, "clip.h265")
    subprocess.run(
        [*FFMPEG, "-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=2",
         "-pix_fmt", "yuv420p", "-c:v", "libx265", "-preset", "veryfast", "-x265-params",
         "log-level=error:keyint=25:min-keyint=25:bframes=0:open-gop=0:scenecut=0:slices=2"
         ":repeat-headers=1", "-f", "hevc", path], check=True, timeout=left())
    return path


def free_ports():
    """A TCP port, and the first of 20 UDP ports. Others may be faster, so the caller tries again."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    for first in range(20000 + os.getpid() % 500 * 20, 32000, 20):
        with contextlib.ExitStack() as probes, contextlib.suppress(OSError):
            for number in range(first, first + 20):
                probe = probes.enter_context(socket.socket(type=socket.SOCK_DGRAM))
                probe.bind(("127.0.0.1", number))
            return port, first
    sys.exit("no free UDP ports")


class Host:
    """live_host, serving; its output goes to a file that is shown when something fails."""

    def __init__(self, program, arguments, work, feed=None):
        self.log = os.path.join(work, "live_host.log")
        for _ in range(5):
            port, first = free_ports()
            self.url = f"rtsp://127.0.0.1:{port}/chan1/"
            with open(self.log, "wb") as log:
                self.process = subprocess.Popen(
                    [*program, "--port", str(port), "--data-ports", f"{first}-{first + 18}",
                     *arguments],
                    stdin=subprocess.PIPE if feed else subprocess.DEVNULL, stdout=log, stderr=log)
            if self.wait_until_ready():
                break
        else:
            sys.exit("live_host does not start:\n" + self.output())
        self.fed_enough = False
        self.feeding = threading.Thread(target=self.feed, args=[feed], daemon=True)
        if feed:
            self.feeding.start()

    def output(self):
        with open(self.log, encoding="utf-8", errors="replace") as log:
            return log.read()

    def wait_until_ready(self):
        while self.process.poll() is None and time.monotonic() < DEADLINE:
            if "Ctrl-C" in self.output():
                return True
            time.sleep(0.02)
        return False

    def feed(self, path):
        """Writes a file over and over, in pieces that cut start codes anywhere."""
        with open(path, "rb") as file:
            data = file.read()
        try:
            while not self.fed_enough:
                for at in range(0, len(data), 1001):
                    self.process.stdin.write(data[at:at + 1001])
            self.process.stdin.close()
        except BrokenPipeError:
            pass

    def end(self, fed):
        """Ctrl-C; or the pipe ends, and the host plays out what it has and ends by itself."""
        if fed:
            self.fed_enough = True
            self.feeding.join(left())
        begin = time.monotonic()
        if not fed:
            self.process.send_signal(signal.SIGINT)
        code, seconds = self.process.wait(left()), time.monotonic() - begin
        good = code == 0 and (fed or seconds <= 3)
        return [] if good else [f"live_host ended with {code} after {seconds:.1f} s"]


class Player:
    def __init__(self, base, transport, stream, with_audio, work):
        self.name = f"{transport} {stream}"
        self.sums = os.path.join(work, f"{transport}-{stream}.framemd5")
        self.sound = os.path.join(work, f"{transport}-{stream}.alaw")
        limit = ["-t", str(SECONDS)]
        audio = ["-map", "0:a", "-c:a", "copy", *limit, "-f", "alaw", self.sound]
        self.process = subprocess.Popen(
            [*FFMPEG, "-rtsp_transport", transport, "-i", f"{base}{stream}/",
             "-map", "0:v", "-fps_mode", "passthrough", *limit, "-f", "framemd5", self.sums,
             *(audio if with_audio else [])],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def finish(self):
        try:
            output, _ = self.process.communicate(timeout=left())
        except subprocess.TimeoutExpired:
            self.process.kill()
            output = self.process.communicate()[0] + b"\nffmpeg was still playing at the deadline"
        return self.process.returncode, output.decode(errors="replace")


def compare_frames(received, source):
    order = {checksum: number for number, checksum in enumerate(source)}
    numbers = [order.get(checksum) for checksum in received]
    # A player that joins between two key frames may show its guesses until the next one.
    while numbers and numbers[0] is None and len(received) - len(numbers) < GOP:
        numbers.pop(0)
    for place, number in enumerate(numbers):
        if number is None:
            return f"frame {place} of {len(numbers)} is not one of the clip: damaged"
        expected = (numbers[place - 1] + 1) % len(source) if place else number
        if number != expected:
            return f"frame {place} is the clip's {number}, not its {expected}"
    if len(numbers) < RUN_FRAMES:
        return f"{len(numbers)} frames instead of {RUN_FRAMES}"
    return None


def compare_sound(received, source):
    if len(received) < RUN_SAMPLES:
        return f"{len(received)} bytes of sound instead of {RUN_SAMPLES}"
    looped = source * (len(received) // len(source) + 2)
    # For its first viewer the host jumps to a key picture; up to a picture's time of sound may
    # leave before.
    if any(received[early:] in looped for early in (0, 160, 320)):
        return None
    return f"{len(received)} bytes of sound differ from the source"


def check_players(host, frames, audio, work):
    players = [Player(host.url, *which, audio is not None, work) for which in PLAYERS]
    faults = []
    for player in players:
        code, output = player.finish()
        if code != 0 or not os.path.exists(player.sums):
            faults.append(f"{player.name}: ffmpeg ended with {code}:\n{output[-2000:]}")
            continue
        found = [compare_frames(frame_sums(player.sums), frames)]
        if audio:
            with open(player.sound, "rb") as received, open(audio, "rb") as source:
                found.append(compare_sound(received.read(), source.read()))
        # A report that is taken for media holds playing up even where nothing is lost.
        if "RTP: " in output:
            found.append("the player missed packets, or got some that do not belong")
        faults += [f"{player.name}: {fault}\n{output[-2000:]}" for fault in found if fault]
    return faults


def run(program, media, case, work):
    video = make_h265(work) if case == "h265" else os.path.join(media, "clip.h264")
    audio = os.path.join(media, "clip.alaw")
    frames = clip_frames(video, work)
    arguments, feed = {
        "h264": ([], None),
        "h265": (["--video", video, "--audio", audio], None),
        "pipe": (["--video", "-"], video),
    }[case]
    host = Host(program, arguments, work, feed)
    try:
        faults = check_players(host, frames, None if feed else audio, work)
        faults += host.end(feed is not None)
        return faults + ["live_host said:\n" + host.output()] if faults else []
    finally:
        host.process.kill()
        host.process.wait()


def main():
    media, case, *program = sys.argv[1:]
    if shutil.which("ffmpeg") is None:
        print("skipped: there is no ffmpeg to play with")
        return 77  # CTest knows it
    with tempfile.TemporaryDirectory() as work:
        faults = run(program, media, case, work)
    print(*faults, sep="\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
