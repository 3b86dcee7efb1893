#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Tests the GStreamer host with ffmpeg, rtspsrc and its own client.
Usage: gst_players.py frames|key_frame|rest|failure|restart [gst_host]

The pictures carry a number: 16 blocks, black or white, are 8 bits and their complement."""

import contextlib
import os
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from playback import FFMPEG, Host, left

RATE = 50             # pictures per second
NUMBERS = 250         # different numbers of pictures: 5 s
RUN_FRAMES = 50       # frames that must arrive in a row
SECONDS = 5           # of media that each player records
SOUND_RATE = 8000
BLOCK_WIDTH, BLOCK_HEIGHT = 40, 30
WIDTH, HEIGHT = 4 * BLOCK_WIDTH, 4 * BLOCK_HEIGHT

ENCODER = "x264enc tune=zerolatency speed-preset=ultrafast key-int-max=50"
NUMBERED = (f"rawvideoparse width={WIDTH} height={HEIGHT} format=i420 framerate={RATE}/1 ! "
            + ENCODER)
LIVE = f"videotestsrc is-live=true ! video/x-raw,format=I420,framerate=30/1 ! {ENCODER}"
TONE = "audiotestsrc is-live=true ! alawenc"
SILENCE = b"\xd5"


def bits(number):
    return [number >> i & 1 for i in range(8)] + [~number >> i & 1 for i in range(8)]


def draw_number(number):
    """Returns a raw picture in I420."""
    rows = [b"".join(bytes([235 if bit else 16]) * BLOCK_WIDTH for bit in row) * BLOCK_HEIGHT
            for row in zip(*[iter(bits(number))] * 4)]
    return b"".join(rows) + bytes([128]) * (WIDTH * HEIGHT // 2)


def read_number(picture):
    """Returns the number of a gray picture; None when it is damaged."""
    found = []
    for i in range(16):
        x, y = i % 4 * BLOCK_WIDTH + BLOCK_WIDTH // 2, i // 4 * BLOCK_HEIGHT + BLOCK_HEIGHT // 2
        found.append(int(picture[y * WIDTH + x] > 127))
    number = sum(bit << i for i, bit in enumerate(found[:8]))
    return number if found == bits(number) else None


def output_of(*command):
    return subprocess.run(command, check=True, timeout=left(), stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL).stdout


def decode_numbers(path):
    gray = output_of(*FFMPEG, "-i", path, "-map", "0:v", "-fps_mode", "passthrough",
                     "-f", "rawvideo", "-pix_fmt", "gray", "-")
    size = WIDTH * HEIGHT
    return [read_number(gray[at:at + size]) for at in range(0, len(gray), size)]


def check_numbers(numbers):
    if len(numbers) < RUN_FRAMES:
        return [f"{len(numbers)} pictures instead of {RUN_FRAMES}"]
    expected = [(numbers[0] or 0) + i for i in range(len(numbers))]
    return [f"picture {i} is number {found}, not {number % NUMBERS}"
            for i, (found, number) in enumerate(zip(numbers, expected))
            if found != number % NUMBERS][:3]


def find_ticks(alaw):
    """Returns the positions in the sound at which a tick begins after silence."""
    loud = [i for i, sample in enumerate(alaw) if sample != SILENCE[0]]
    return [i for last, i in zip([-SOUND_RATE, *loud], loud) if i - last > SOUND_RATE // 2]


def check_ticks(ticks):
    gaps = [b - a for a, b in zip(ticks, ticks[1:])]
    good = len(ticks) >= 3 and all(abs(gap - SOUND_RATE) < 20 for gap in gaps)
    return [] if good else [f"the ticks of the sound are at {ticks}"]


class Ffmpeg:
    def __init__(self, url, transport, work):
        self.name = f"ffmpeg {transport}"
        self.path = os.path.join(work, f"{transport}.nut")
        self.process = subprocess.Popen(
            [*FFMPEG, "-rtsp_transport", transport, "-i", url, "-map", "0", "-c", "copy",
             "-t", str(SECONDS), self.path], stderr=subprocess.PIPE)

    def wait(self):
        self.process.communicate(timeout=left())

    def faults(self):
        numbers = decode_numbers(self.path)
        alaw = output_of(*FFMPEG, "-i", self.path, "-map", "0:a", "-c", "copy", "-f", "alaw", "-")
        ticks = find_ticks(alaw)
        faults = check_numbers(numbers) + check_ticks(ticks)
        return faults or self.check_offset(numbers[0], ticks[0])

    def check_offset(self, number, tick):
        """Tick k and picture RATE * k belong together."""
        sound, picture = (self.first_time(stream) for stream in "av")
        away = (sound + tick / SOUND_RATE) - (picture - number / RATE)
        away = (away + 0.5) % 1 - 0.5
        print(f"{self.name}: the sound is {1000 * away:.0f} ms late")
        return [] if abs(away) < 0.040 else [f"the sound is {1000 * away:.0f} ms late"]

    def first_time(self, stream):
        times = output_of("ffprobe", "-v", "error", "-select_streams", stream, "-of", "csv=p=0",
                          "-show_entries", "packet=pts_time", self.path)
        return float(times.split()[0].strip(b","))


class Rtspsrc:
    def __init__(self, url, transport, work):
        self.name = f"rtspsrc {transport}"
        self.video = os.path.join(work, f"{transport}.h264")
        self.sound = os.path.join(work, f"{transport}.alaw")
        sink = "filesink buffer-mode=unbuffered location="
        # No caps filter after rtspsrc, whose pads appear in two threads: gst-launch links each of
        # them with a filter of its own, and now and then neither thread completes a link. The
        # depayloaders accept their own medium only.
        video = ("s. ! rtph264depay ! h264parse ! "
                 f"video/x-h264,stream-format=byte-stream ! {sink}{self.video}")
        sound = f"s. ! rtppcmadepay ! {sink}{self.sound}"
        self.process = subprocess.Popen(
            ["gst-launch-1.0", "-q", "rtspsrc", f"location={url}", f"protocols={transport}",
             "latency=200", "name=s", *video.split(), *sound.split()])

    def wait(self):
        """Waits for enough data. The time depends on the machine's load."""
        while left() > 10 and (not os.path.exists(self.sound)
                               or os.path.getsize(self.sound) < SECONDS * SOUND_RATE):
            time.sleep(0.05)
        self.process.send_signal(signal.SIGINT)
        self.process.wait(left())

    def faults(self):
        with open(self.sound, "rb") as sound:
            ticks = find_ticks(sound.read())
        numbers = decode_numbers(self.video)
        # The recording begins with packets before the first key frame.
        while numbers and numbers[0] is None:
            numbers.pop(0)
        return check_numbers(numbers) + check_ticks(ticks)


def check_frames(program, work):
    pictures, sound = os.path.join(work, "numbered.i420"), os.path.join(work, "ticks.alaw")
    with open(pictures, "wb") as file:
        file.writelines(map(draw_number, range(NUMBERS)))
    with open(sound, "wb") as file:  # a second, which begins with the tick
        file.write((b"\x2a\xaa" * 100).ljust(SOUND_RATE, SILENCE))
    host = Host(program, ["--video", f"multifilesrc location={pictures} loop=true ! {NUMBERED}",
                          "--audio", f"multifilesrc location={sound} loop=true ! rawaudioparse "
                          f"format=alaw sample-rate={SOUND_RATE} num-channels=1"], work)
    try:
        players = [make(host.url("main"), transport, work) for make in (Ffmpeg, Rtspsrc)
                   for transport in ("udp", "tcp")]
        for player in players:
            player.wait()
        return [f"{player.name}: {fault}" for player in players
                for fault in player.faults()] + host.end()
    finally:
        host.kill()


class Client:
    """Plays the video on the RTSP connection."""

    def __init__(self, host):
        self.url = host.url("main")
        self.connection = socket.create_connection(("127.0.0.1", host.port), timeout=10)
        self.stream = self.connection.makefile("rb")
        self.cseq = 0
        self.ask("DESCRIBE", "", "Accept: application/sdp\r\n")
        self.ask("SETUP", "streamid=0", "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n")
        self.ask("PLAY")
        self.begin = time.monotonic()

    def ask(self, method, tail="", headers=""):
        self.cseq += 1
        self.connection.sendall(f"{method} {self.url}{tail} RTSP/1.0\r\nCSeq: {self.cseq}\r\n"
                                f"{headers}\r\n".encode())
        status = self.stream.readline()
        length = 0
        while (line := self.stream.readline()) not in (b"\r\n", b""):
            if line.startswith(b"Content-Length:"):
                length = int(line.split()[1])
        self.stream.read(length)
        if b" 200 " not in status:
            sys.exit(f"{method}: {status}")

    def packet(self):
        """Returns the next RTP packet; empty at the end of the connection."""
        head = self.stream.read(4)
        return self.stream.read(int.from_bytes(head[2:], "big")) if len(head) == 4 else b""

    def await_key_frame(self):
        """Returns the seconds from PLAY's reply to the key frame's last packet."""
        seen = set()
        while packet := self.packet():
            kind = packet[12] & 0x1F
            seen.add(packet[13] & 0x1F if kind == 28 else kind)
            if packet[1] & 0x80 and {5, 7, 8} <= seen:  # a key slice, SPS and PPS
                return time.monotonic() - self.begin
        sys.exit("the connection ended before a key frame")

    def close(self):
        self.stream.close()
        self.connection.close()


def check_key_frame(program, work):
    """The encoder's own key frames are 50 pictures apart: 1.7 s."""
    host = Host(program, ["--video", LIVE, "--audio", TONE], work)
    try:
        waits = []
        for i in range(10):
            time.sleep(0.6 + 0.013 * i)  # more than the interval between two requests
            client = Client(host)
            waits.append(1000 * client.await_key_frame())
            client.close()
        print("milliseconds to the first key frame:", *(f"{wait:.0f}" for wait in sorted(waits)))
        median = statistics.median(waits)
        return ([] if median <= 60 else [f"{median:.0f} ms to the first key frame"]) + host.end()
    finally:
        host.kill()


def cpu_share(process, seconds):
    """Returns the share of one processor, as a fraction."""
    def spent():
        with open(f"/proc/{process.pid}/stat", encoding="ascii") as stat:
            return sum(map(int, stat.read().rsplit(")", 1)[1].split()[11:13]))
    before = spent()
    time.sleep(seconds)
    return (spent() - before) / os.sysconf("SC_CLK_TCK") / seconds


def check_rest(program, work):
    """While no client plays, the host uses little CPU time. Each new client restarts the encoder."""
    faults = []
    host = Host(program, ["--rest", "--video", LIVE, "--audio", TONE], work)
    try:
        for _ in range(2):
            time.sleep(0.5)
            share = cpu_share(host.process, 3)
            print(f"CPU time while no client plays: {100 * share:.1f} %")
            if share >= 0.02:
                faults.append(f"{100 * share:.1f} % of a processor while no client plays")
            client = Client(host)
            client.await_key_frame()
            for _ in range(50):
                client.packet()
            client.close()
        return faults + host.end()
    finally:
        host.kill()


def fails(program, pipeline, line, work):
    """The host exits with 1, prints the reason, and ends its client."""
    host = Host(program, ["--video", pipeline], work)
    client = Client(host)
    while client.packet():
        pass
    code = host.process.wait(left())
    found = [text for text in host.output().splitlines() if text.startswith("gst_host: ")]
    good = code == 1 and len(found) == 1 and line in found[0]
    return [] if good else [f"{pipeline}: exit code {code}, {found}"]


def check_failure(program, work):
    faults = []
    for pipeline, line in ((LIVE.replace(" ! x264", " ! identity error-after=60 ! x264"),
                            "chan1 main: identity0: Failed after iterations as requested."),
                           (LIVE.replace("is-live=true", "is-live=true num-buffers=60"),
                            "chan1 main: the pipeline has ended")):
        faults += fails(program, pipeline, line, work)
    return faults


class Camera:
    """Sends pictures to each client that connects. Stops after a while, with the connection open."""

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        connections = []
        while True:
            connections.append(self.listener.accept()[0])
            with contextlib.suppress(OSError):
                for number in range(100):
                    connections[-1].sendall(draw_number(number))
                    time.sleep(1 / RATE)


def check_restart(program, work):
    """A camera stops: the host reports it and restarts the pipeline. The client sees only a gap."""
    camera = Camera()
    host = Host(program, ["--video", f"tcpclientsrc host=127.0.0.1 port={camera.port} ! {NUMBERED}"],
                work)
    try:
        client = Client(host)
        last, begin, gap, faults = client.packet(), time.monotonic(), None, []
        while not gap and (packet := client.packet()):
            step = (int.from_bytes(packet[2:4], "big") - int.from_bytes(last[2:4], "big")) % 2**16
            if step != 1:
                faults.append(f"a sequence number is {step} after the last one")
            waited = time.monotonic() - begin
            if waited > 3:
                gap = (int.from_bytes(packet[4:8], "big") - int.from_bytes(last[4:8], "big")) % 2**32
                if abs(gap / 90000 - waited) > 0.5:
                    faults.append(f"RTP time went on by {gap / 90000:.2f} s in {waited:.2f} s")
            last, begin = packet, time.monotonic()
        for line in ("chan1 main: no packets for 5 s; next try in 1 s", "chan1 main works again"):
            if not host.wait_for(line, 1):
                faults.append(f"it does not say: {line}")
        return faults + ([] if gap else ["the client was ended"]) + host.end()
    finally:
        host.kill()


def main():
    case, *program = sys.argv[1:]
    for tool in ("ffmpeg", "ffprobe", "gst-launch-1.0"):
        if shutil.which(tool) is None:
            program = []
    if not program:
        print("skipped: no gst_host in this build, no gst-launch-1.0 or no ffmpeg")
        return 77  # CTest reports this as skipped
    check = {"frames": check_frames, "key_frame": check_key_frame, "rest": check_rest,
             "failure": check_failure, "restart": check_restart}[case]
    with tempfile.TemporaryDirectory() as work:
        faults = check(program, work)
    print(*faults, sep="\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
