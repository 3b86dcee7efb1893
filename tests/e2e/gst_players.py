#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Tests the GStreamer host with ffmpeg, rtspsrc and its own client.
Usage: gst_players.py frames|key_frame|rest|failure|restart [gst_host]"""

import os
import socket
import statistics
import time

from playback import (CLIP, FFMPEG, GOP, SOUND, Fault, Host, Player, Process, Skipped, check,
                      check_recording, ffmpeg, free_ports, frame_sums, left, main, output_of,
                      read_sound, require_programs, source_frames)

RATE = 50        # pictures per second
SECONDS = 5      # of media that each player records
RUN_FRAMES = 50  # frames that must arrive in a row, with their sound
WIDTH, HEIGHT = 160, 90

X264 = "x264enc tune=zerolatency speed-preset=ultrafast"
ENCODER = f"{X264} key-int-max=50"
LOSSLESS = f"{X264} key-int-max={GOP} pass=quant quantizer=0"
LIVE = f"videotestsrc is-live=true ! video/x-raw,format=I420,framerate=30/1 ! {ENCODER}"
TONE = "audiotestsrc is-live=true ! alawenc"


def start_host(program, *arguments):
    require_programs("ffmpeg", "ffprobe", "gst-launch-1.0")
    if not program:
        raise Skipped("no gst_host in this build")
    return Host(program, *arguments)


def rtspsrc(url, transport, seconds, path):
    # No caps filter after rtspsrc, whose pads appear in two threads: gst-launch links each of them
    # with a filter of its own, and now and then neither thread completes a link. The depayloaders
    # accept their own medium only.
    return (f"gst-launch-1.0 -q rtspsrc location={url} protocols={transport} latency=200 name=s "
            f"s. ! rtph264depay ! h264parse ! identity eos-after={RATE * seconds} ! file. "
            f"s. ! rtppcmadepay ! identity eos-after={50 * seconds} ! file. "
            f"matroskamux name=file ! filesink location={path}").split()


def first_time(recording, stream):
    times = output_of("ffprobe", "-v", "error", "-select_streams", stream, "-of", "csv=p=0",
                      "-show_entries", "packet=pts_time", recording)
    return float(times.split()[0].strip(b","))


def check_offset(recording, frames):
    """Picture n and the sound after n / RATE seconds belong together."""
    picture = frames.index(frame_sums(recording)[0]) / RATE
    sound = (2 * SOUND.read_bytes()).index(read_sound(recording)[:800]) / 8000
    away = (first_time(recording, "a") - sound) - (first_time(recording, "v") - picture)
    away = (away + 2.5) % 5 - 2.5  # the pictures repeat after 5 s, the sound after 10 s
    check(abs(away) < 0.040, f"{recording}: the sound is {1000 * away:.0f} ms late")


def frames(program):
    """The encoder is lossless, so the frames that arrive are those of the clip."""
    raw = ("-f", "rawvideo", "-pix_fmt", "yuv420p", "-s", f"{WIDTH}x{HEIGHT}")
    output_of(*FFMPEG, "-i", CLIP, *raw, "clip.i420")
    host = start_host(program, "--video", f"multifilesrc location={os.path.abspath('clip.i420')} "
                      f"loop=true ! rawvideoparse width={WIDTH} height={HEIGHT} format=i420 "
                      f"framerate={RATE}/1 ! {LOSSLESS}",
                      "--audio", f"multifilesrc location={SOUND} loop=true ! "
                      "rawaudioparse format=alaw sample-rate=8000 num-channels=1")
    players = [Player(host.url(), transport, SECONDS, make_command=command)
               for command in (ffmpeg, rtspsrc) for transport in ("udp", "tcp")]
    clip = source_frames("clip.i420", *raw)
    for player in players:
        check_recording(player, clip, RUN_FRAMES, SOUND)
    for player in players[:2]:
        check_offset(player.recording, clip)
    host.end()


class Client:
    """Plays the video on the RTSP connection."""

    def __init__(self, host):
        self.connection = socket.create_connection(("127.0.0.1", host.port), timeout=10)
        self.stream = self.connection.makefile("rb")
        for cseq, (method, tail, headers) in enumerate((
                ("DESCRIBE", "", ""),
                ("SETUP", "streamid=0", "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n"),
                ("PLAY", "", "")), 1):
            self.connection.sendall(f"{method} {host.url()}{tail} RTSP/1.0\r\nCSeq: {cseq}\r\n"
                                    f"{headers}\r\n".encode())
            # Skips what is left of the reply before.
            while (status := self.stream.readline()) and not status.startswith(b"RTSP/1.0 "):
                pass
            check(b" 200 " in status, f"{method}: {status}")
        while self.stream.readline() not in (b"\r\n", b""):
            pass
        self.begin = time.monotonic()

    def packet(self):
        """Returns the next RTP packet; empty at the end of the connection."""
        check(left() > 1, "the client still plays at the deadline")
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
        raise Fault("the connection ended before a key frame")

    def close(self):
        self.stream.close()
        self.connection.close()


def key_frame(program):
    """The encoder's own key frames are 50 pictures apart: 1.7 s."""
    host = start_host(program, "--video", LIVE, "--audio", TONE)
    waits = []
    for i in range(10):
        time.sleep(0.6 + 0.013 * i)  # more than the interval between two requests
        client = Client(host)
        waits.append(1000 * client.await_key_frame())
        client.close()
    check(statistics.median(waits) <= 200, f"the first key frame comes late: {waits} ms")
    host.end()


def cpu_seconds(process):
    with open(f"/proc/{process.pid}/stat", encoding="ascii") as stat:
        ticks = stat.read().rsplit(")", 1)[1].split()[11:13]
    return sum(map(int, ticks)) / os.sysconf("SC_CLK_TCK")


def rest(program):
    """While no client plays, the host uses little CPU time. Each new client restarts the encoder."""
    host = start_host(program, "--rest", "--video", LIVE, "--audio", TONE)
    for _ in range(2):
        time.sleep(0.5)
        before = cpu_seconds(host.process)
        time.sleep(3)
        share = (cpu_seconds(host.process) - before) / 3
        check(share < 0.02, f"{100 * share:.1f} % of a processor while no client plays")
        client = Client(host)
        client.await_key_frame()
        for _ in range(50):
            client.packet()
        client.close()
    host.end()


def failure(program):
    """The host exits with 1, prints the reason, and ends its client."""
    for pipeline, line in ((LIVE.replace(" ! x264", " ! identity error-after=60 ! x264"),
                            "chan1 main: identity0: Failed after iterations as requested."),
                           (LIVE.replace("is-live=true", "is-live=true num-buffers=60"),
                            "chan1 main: the pipeline has ended")):
        host = start_host(program, "--video", pipeline)
        client = Client(host)
        while client.packet():
            pass
        code = host.wait()
        found = [text for text in host.output().splitlines() if text.startswith("gst_host: ")]
        check(code == 1 and len(found) == 1 and line in found[0],
              f"{pipeline}: exit code {code}, {found}")


def restart(program):
    """A camera stops: the host reports it and restarts the pipeline. The client sees only a gap."""
    port = free_ports()
    sink = f"rtph264pay config-interval=-1 ! udpsink host=127.0.0.1 port={port}"
    camera = f"gst-launch-1.0 {LIVE} ! {sink}".split()
    first = Process("camera", camera)
    host = start_host(program, "--video", f"udpsrc port={port} caps=application/x-rtp,media=video,"
                      "clock-rate=90000,encoding-name=H264 ! rtph264depay ! h264parse")
    client = Client(host)
    client.await_key_frame()
    last = client.packet()
    first.kill()
    stopped = time.monotonic()
    host.wait_for("chan1 main: no packets for 5 s; next try in 1 s")
    Process("camera again", camera)
    gap = 0
    while gap < 3 and (packet := client.packet()):
        step = int.from_bytes(packet[2:4], "big") - int.from_bytes(last[2:4], "big")
        check(step % 2**16 == 1, f"a sequence number is {step} after the last one")
        ticks = int.from_bytes(packet[4:8], "big") - int.from_bytes(last[4:8], "big")
        gap, last = ticks % 2**32 / 90000, packet
    waited = time.monotonic() - stopped
    check(abs(gap - waited) < 0.5, f"RTP time went on by {gap:.2f} s in {waited:.2f} s")
    host.wait_for("chan1 main works again")
    host.end()


if __name__ == "__main__":
    main(frames, key_frame, rest, failure, restart)
