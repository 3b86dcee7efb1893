# SPDX-License-Identifier: MIT
"""Shared by the end-to-end tests: runs the example host, records with ffmpeg, and compares
recordings with the source."""

import contextlib
import os
import signal
import socket
import subprocess
import sys
import threading
import time

GOP = 25  # frames from one key frame to the next, in every source
FFMPEG = ["ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "warning"]

deadline = time.monotonic() + 55


def set_time_limit(seconds):
    """Sets the deadline of every wait below, counted from now. The default is 55 s."""
    global deadline
    deadline = time.monotonic() + seconds


def left():
    return max(1.0, deadline - time.monotonic())


def frame_sums(path):
    with open(path, encoding="ascii") as lines:
        return [line.split(",")[-1].strip() for line in lines if not line.startswith("#")]


def clip_frames(video, work):
    sums = os.path.join(work, "clip.framemd5")
    subprocess.run([*FFMPEG, "-y", "-i", video, "-f", "framemd5", sums], check=True, timeout=left())
    frames = frame_sums(sums)
    if len(set(frames)) != len(frames):
        sys.exit("the clip repeats a frame, so the order of frames is not defined")
    return frames


def free_ports():
    """Returns a TCP port and the first of 20 UDP ports. The caller retries if one gets taken."""
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
        with open(self.log, "wb"):
            pass
        for _ in range(5):
            self.port, first = free_ports()
            with open(self.log, "ab") as log:
                self.process = subprocess.Popen(
                    [*program, "--port", str(self.port), "--data-ports", f"{first}-{first + 18}",
                     *arguments],
                    stdin=subprocess.PIPE if feed else subprocess.DEVNULL, stdout=log, stderr=log)
            if self.wait_for("Ctrl-C"):
                break
        else:
            sys.exit("live_host does not start:\n" + self.output())
        self.fed_enough = False
        self.feeding = threading.Thread(target=self.feed, args=[feed], daemon=True)
        if feed:
            self.feeding.start()

    def url(self, stream, address="127.0.0.1"):
        return f"rtsp://{address}:{self.port}/chan1/{stream}/"

    def output(self):
        with open(self.log, encoding="utf-8", errors="replace") as log:
            return log.read()

    def wait_for(self, text, seconds=60):
        """Returns whether the output contains the text in time."""
        end = min(deadline, time.monotonic() + seconds)
        while self.process.poll() is None and time.monotonic() < end:
            if text in self.output():
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

    def end(self, fed=False):
        """Sends SIGINT, or closes the pipe. The host then plays its remaining input and exits."""
        if fed:
            self.fed_enough = True
            self.feeding.join(left())
        begin = time.monotonic()
        if not fed:
            self.process.send_signal(signal.SIGINT)
        code, seconds = self.process.wait(left()), time.monotonic() - begin
        good = code == 0 and (fed or seconds <= 3)
        return [] if good else [f"live_host ended with {code} after {seconds:.1f} s"]

    def kill(self):
        self.process.kill()
        self.process.wait()


class Player:
    """ffmpeg as a recorder. `prefix` is a command that runs it in another namespace."""

    def __init__(self, name, url, transport, seconds, work, with_audio=True, prefix=()):
        self.name = name
        self.sums = os.path.join(work, name.replace(" ", "-") + ".framemd5")
        self.sound = os.path.join(work, name.replace(" ", "-") + ".alaw")
        limit = ["-t", str(seconds)]
        audio = ["-map", "0:a", "-c:a", "copy", *limit, "-f", "alaw", self.sound]
        self.process = subprocess.Popen(
            [*prefix, *FFMPEG, "-y", "-rtsp_transport", transport, "-i", url,
             "-map", "0:v", "-fps_mode", "passthrough", *limit, "-f", "framemd5", self.sums,
             *(audio if with_audio else [])],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def finish(self):
        try:
            output, _ = self.process.communicate(timeout=left())
        except subprocess.TimeoutExpired:
            output = self.kill() + b"\nffmpeg was still playing at the deadline"
        return self.process.returncode, output.decode(errors="replace")

    def kill(self):
        self.process.kill()
        return self.process.communicate()[0]


def compare_frames(received, source, least):
    """Returns the fault of the frames, or None. `least` is the number that must have arrived."""
    order = {checksum: number for number, checksum in enumerate(source)}
    numbers = [order.get(checksum) for checksum in received]
    # A player that joins between two key frames may show damaged pictures until the next one.
    while numbers and numbers[0] is None and len(received) - len(numbers) < GOP:
        numbers.pop(0)
    for place, number in enumerate(numbers):
        if number is None:
            return f"frame {place} of {len(numbers)} is not one of the clip: damaged"
        expected = (numbers[place - 1] + 1) % len(source) if place else number
        if number != expected:
            return f"frame {place} is the clip's {number}, not its {expected}"
    if len(numbers) < least:
        return f"{len(numbers)} frames instead of {least}"
    return None


def compare_sound(received, source, least):
    """The same for the bytes of A-law sound."""
    if len(received) < least:
        return f"{len(received)} bytes of sound instead of {least}"
    looped = source * (len(received) // len(source) + 2)
    # For its first viewer the host jumps to a key picture. Sound of up to one picture's time may be
    # sent before.
    if any(received[early:] in looped for early in (0, 160, 320)):
        return None
    return f"{len(received)} bytes of sound differ from the source"


def check_recording(player, frames, least_frames, audio=None, least_sound=0):
    """Waits for the player's end and returns the faults of its recording, as a list."""
    code, output = player.finish()
    if code != 0 or not os.path.exists(player.sums):
        return [f"{player.name}: ffmpeg ended with {code}:\n{output[-2000:]}"]
    found = [compare_frames(frame_sums(player.sums), frames, least_frames)]
    if audio:
        with open(player.sound, "rb") as received, open(audio, "rb") as source:
            found.append(compare_sound(received.read(), source.read(), least_sound))
    # A player that treats a report as media delays the playback, even without packet loss.
    if "RTP: " in output:
        found.append("the player missed packets, or got some that do not belong")
    return [f"{player.name}: {fault}\n{output[-2000:]}" for fault in found if fault]
