#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures the time between two pictures at a viewer that reads, while another viewer has stopped
reading: with a fast standard output, with a serial line of 115200 baud, and with that line through
live_host --log. Usage: console.py live_host [--publish]
--publish writes the figures to docs/host-guide.md."""

import fcntl
import os
import re
import socket
import subprocess
import sys
import tempfile
import threading
import time

import report

SECONDS = 18            # with the stalled viewer
BYTES_PER_SECOND = 11520  # 115200 baud: 8 bits, a start bit and a stop bit
CONSOLE_BUFFER = 4096     # that of a serial driver
MEGABITS = 6
RECEIVE = 32768


def make_clip(path):
    subprocess.run(
        ["ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
         "testsrc2=size=640x360:rate=25:duration=4,noise=alls=40:allf=t", "-pix_fmt", "yuv420p",
         "-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-b:v", f"{MEGABITS}M", "-maxrate",
         f"{MEGABITS}M", "-bufsize", "1200k", "-x264-params",
         "keyint=25:min-keyint=25:scenecut=0:open-gop=0:nal-hrd=cbr:filler=0", "-f", "h264", path],
        check=True)


class Console(threading.Thread):
    """The far end of the line. It reads at the speed of the line."""

    def __init__(self, end, rate):
        super().__init__(daemon=True)
        self.end, self.rate = end, rate
        self.text = b""

    def run(self):
        free = 0.0  # the time at which the line has sent all that it took
        try:
            while piece := os.read(self.end, 64 if self.rate else 65536):
                self.text += piece
                if self.rate:
                    free = max(free, time.monotonic()) + len(piece) / self.rate
                    time.sleep(max(0.0, free - time.monotonic()))
        except OSError:
            pass  # this end of the pipe was closed


class Viewer:
    """An interleaved client for video and sound."""

    def __init__(self, port, receive_buffer=None):
        self.socket = socket.socket()
        if receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.socket.connect(("127.0.0.1", port))
        url, session = f"rtsp://127.0.0.1:{port}/chan1/main", ""
        for cseq, (method, target, field) in enumerate([
                ("DESCRIBE", f"{url}/", "Accept: application/sdp\r\n"),
                ("SETUP", f"{url}/streamid=0", "Transport: RTP/AVP/TCP;interleaved=0-1\r\n"),
                ("SETUP", f"{url}/streamid=1", "Transport: RTP/AVP/TCP;interleaved=2-3\r\n"),
                ("PLAY", f"{url}/", "")]):
            self.socket.sendall(
                f"{method} {target} RTSP/1.0\r\nCSeq: {cseq}\r\n{session}{field}\r\n".encode())
            reply = self.socket.recv(4096)
            if b" 200 " not in reply:
                sys.exit(f"{method}: {reply!r}")
            if found := re.search(rb"Session: *([^;\r]+)", reply):
                session = f"Session: {found[1].decode()}\r\n"

    def gaps(self, seconds):
        """Receives for this time. Returns the milliseconds between the ends of pictures."""
        stream, ends, end = self.socket.makefile("rb", RECEIVE), [], time.monotonic() + seconds
        while time.monotonic() < end:
            head = stream.read(4)
            if head[:1] != b"$":
                sys.exit(f"not a frame: {head!r}")
            packet = stream.read(head[2] << 8 | head[3])
            if head[1] == 0 and packet[1] & 0x80:
                ends.append(time.monotonic())
        return sorted((b - a) * 1000 for a, b in zip(ends, ends[1:]))


def measure(program, arguments, rate, work):
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    far, near = os.pipe()
    fcntl.fcntl(near, fcntl.F_SETPIPE_SZ, CONSOLE_BUFFER)
    console = Console(far, rate)
    console.start()
    host = subprocess.Popen(
        [program, "--port", str(port), "--video", os.path.join(work, "clip.h264"), "--audio",
         os.path.join(work, "clip.alaw"), *arguments],
        stdin=subprocess.DEVNULL, stdout=near, stderr=subprocess.DEVNULL)
    os.close(near)
    try:
        while b"Ctrl-C" not in console.text:
            time.sleep(0.05)
        healthy, stalled = Viewer(port), Viewer(port, 4096)
        gaps = healthy.gaps(SECONDS)
        begin = time.monotonic()
        host.terminate()
        host.wait(60)
        ended = time.monotonic() - begin
        time.sleep(0.2)
        stalled.socket.close()
    finally:
        host.kill()
        host.wait()
        os.close(far)
    dropped = sum(map(int, re.findall(rb"\.\.\. (\d+) lines of the log", console.text)))
    print(f"{console.text.count(bytes([10]))} lines, {len(console.text) / 1000:.0f} kB, {dropped} "
          f"lines dropped, ended in {ended:.1f} s", file=sys.stderr)
    return {"gaps": gaps, "lines": console.text.count(b"\n"), "bytes": len(console.text)}


def console_figures(results):
    rows = [[name, *(f"{gap:.0f} ms" for gap in (gaps[len(gaps) // 2], gaps[len(gaps) * 99 // 100],
                                                 gaps[-1]))]
            for name, gaps in ((name, result["gaps"]) for name, result in results.items())]
    fast = next(iter(results.values()))
    return (report.table(["Standard output", "median", "99 %", "longest"], rows) +
            f"\n\nIn {SECONDS} s at {MEGABITS} Mbit/s, both clients together caused {fast['lines']} lines "
            f"({fast['bytes'] / 1000:.0f} kB) on the fast\noutput. Measured on {report.short_machine()}.")


def main():
    program, publishing = sys.argv[1], "--publish" in sys.argv[2:]
    results = {}
    with tempfile.TemporaryDirectory() as work:
        make_clip(os.path.join(work, "clip.h264"))
        media = os.path.join(os.path.dirname(__file__), "..", "examples", "media", "clip.alaw")
        os.symlink(os.path.abspath(media), os.path.join(work, "clip.alaw"))
        for name, arguments, rate in (
                ("fast: never blocks", [], None),
                (f"serial line of 115200 baud with a buffer of {CONSOLE_BUFFER} bytes", [],
                 BYTES_PER_SECOND),
                ("the same line through `live_host --log`", ["--log", "/dev/stdout"],
                 BYTES_PER_SECOND)):
            results[name] = measure(program, arguments, rate, work)
    print(console_figures(results))
    if publishing:
        report.publish_tables(results, {"console": console_figures}, "host-guide.md")


if __name__ == "__main__":
    main()
