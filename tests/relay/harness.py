# SPDX-License-Identifier: MIT
"""Shared by the relay tests: a clip with numbered pictures, the example host, the relay, a browser."""

import contextlib
import json
import os
import shutil
import signal
import subprocess
import sys
import time
import urllib.error
import urllib.request

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "e2e"))
from playback import free_ports  # pylint: disable=wrong-import-position

FPS = 25
WIDTH, HEIGHT = 320, 180
BITS, BLOCK = 12, 24  # each picture carries its number in black and white blocks at the top


class Fault(Exception):
    """A fault of the relay."""


def check(good, fault):
    if not good:
        raise Fault(fault)


def wait_until(condition, seconds, what):
    """Returns the value of the condition, and the seconds until it was true."""
    begin = time.monotonic()
    while time.monotonic() - begin < seconds:
        result = condition()
        if result:
            return result, time.monotonic() - begin
        time.sleep(0.05)
    raise Fault(f"not within {seconds} s: {what}")


def free_port():
    return free_ports()[0]


def picture(number, noise=False):
    """A picture in yuv420p. Noise makes it large."""
    bits = [255 if number >> bit & 1 else 0 for bit in range(BITS)]
    band = b"".join(bytes([bit]) * BLOCK for bit in bits).ljust(WIDTH, b"\x80") * BLOCK
    size = WIDTH * HEIGHT - len(band)
    body = os.urandom(size) if noise else bytes([64 + number % 128]) * size
    return band + body + b"\x80" * (WIDTH * HEIGHT // 2)


def make_clip(path, seconds, key_frame_every=1, noise=False):
    """Whole groups of pictures, without B-frames, each picture with a delimiter before it."""
    pictures = seconds * FPS
    encoder = subprocess.Popen(
        ["ffmpeg", "-hide_banner", "-loglevel", "error", "-f", "rawvideo", "-pix_fmt", "yuv420p",
         "-s", f"{WIDTH}x{HEIGHT}", "-r", str(FPS), "-i", "-", "-c:v", "libx264",
         "-preset", "ultrafast", "-crf", "10", "-bf", "0", "-x264-params",
         f"keyint={key_frame_every * FPS}:min-keyint={key_frame_every * FPS}:scenecut=0:aud=1",
         "-f", "h264", "-y", path], stdin=subprocess.PIPE)
    for number in range(pictures):
        encoder.stdin.write(picture(number, noise))
    encoder.stdin.close()
    check(encoder.wait() == 0, "ffmpeg could not make the clip")


class Process:
    """A program whose output goes to a file. Its process group ends with it."""

    def __init__(self, command, work, name, **options):
        self.log = os.path.join(work, name + ".log")
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(command, stdout=log, stderr=log,
                                            start_new_session=True, **options)

    def output(self):
        with open(self.log, encoding="utf-8", errors="replace") as log:
            return log.read()

    def wait_for(self, text, seconds=10):
        wait_until(lambda: text in self.output() or self.process.poll() is not None, seconds,
                   f"'{text}'")
        check(text in self.output(), f"ended with {self.process.poll()}:\n{self.output()}")

    def kill(self):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()


class Host(Process):
    """live_host. A restart keeps the port."""

    def __init__(self, program, work, arguments=(), before=()):
        self.command, self.work, self.arguments = [*before, program], work, arguments
        self.port, first = free_ports()
        self.data_ports = f"{first}-{first + 18}"
        self.url = f"rtsp://127.0.0.1:{self.port}/chan1/main/"
        self.start()

    def start(self):
        super().__init__([*self.command, "--port", str(self.port), "--data-ports", self.data_ports,
                          *self.arguments], self.work, "live_host", stdin=subprocess.DEVNULL)
        self.wait_for("Ctrl-C")


class Relay(Process):
    def __init__(self, program, url, work, arguments=(), scheme="http", before=lambda _: []):
        self.folder = os.path.join(work, "tmpfs")
        os.makedirs(self.folder, exist_ok=True)
        os.chmod(self.folder, 0o755)
        self.port = free_port()
        self.page = f"{scheme}://127.0.0.1:{self.port}/"
        super().__init__([*before(self.folder), program, "--http-port", str(self.port), "--folder", self.folder,
                          *arguments, url], work, "relay", stdin=subprocess.DEVNULL)
        self.wait_for("open http")

    def get(self, path):
        """Returns status, headers and body."""
        try:
            with urllib.request.urlopen(self.page + path, timeout=5) as reply:
                return reply.status, reply.headers, reply.read()
        except urllib.error.HTTPError as error:
            return error.code, error.headers, b""

    def segments(self):
        """The playlist's segments, in order; none while there is no playlist."""
        status, _, body = self.get("live/stream.m3u8")
        lines = body.decode().splitlines() if status == 200 else []
        return [line for line in lines if line and not line.startswith("#")]

    def children(self, name):
        """Returns the ids of the relay's child processes with this name."""
        found = subprocess.run(["pgrep", "-P", str(self.process.pid), "-x", name],
                               stdout=subprocess.PIPE, text=True, check=False)
        return [int(pid) for pid in found.stdout.split()]

    def interrupt(self):
        """Ctrl-C: the signal goes to the whole group. Returns the seconds until the end."""
        begin = time.monotonic()
        os.killpg(self.process.pid, signal.SIGINT)
        self.process.wait(10)
        return time.monotonic() - begin


READ_PAGE = f"""
const video = document.querySelector('video');
const canvas = document.createElement('canvas');
canvas.width = {WIDTH}; canvas.height = {HEIGHT};
const context = canvas.getContext('2d');
context.drawImage(video, 0, 0, {WIDTH}, {HEIGHT});
let counter = 0;
for (let bit = 0; bit < {BITS}; bit++) {{
  const place = bit * {BLOCK} + {BLOCK // 2};
  if (context.getImageData(place, {BLOCK // 2}, 1, 1).data[0] > 127)
    counter |= 1 << bit;
}}
return {{state: document.body.dataset.state, text: document.getElementById('state').textContent,
        time: video.currentTime, counter: counter, clock: Date.now() / 1000}};
"""


class Browser:
    """Headless Chromium, driven over the WebDriver protocol."""

    def __init__(self, work):
        self.profile = os.path.join(work, "chromium")
        shutil.rmtree(self.profile, ignore_errors=True)
        port = free_port()
        self.base = f"http://127.0.0.1:{port}"
        self.session = ""
        self.driver = Process(["chromedriver", f"--port={port}"], work, "chromedriver",
                              stdin=subprocess.DEVNULL)
        self.driver.wait_for("started successfully")
        options = {"args": [
            "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync",
            f"--user-data-dir={self.profile}", "--window-size=1000,700"]}
        capabilities = {"goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}
        value = self.ask("POST", "", {"capabilities": {"alwaysMatch": capabilities}})
        self.session = "/" + value["sessionId"]

    def ask(self, method, path, body=None):
        request = urllib.request.Request(
            f"{self.base}/session{self.session}{path}", method=method,
            data=None if body is None else json.dumps(body).encode(),
            headers={"Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=30) as reply:
                return json.load(reply)["value"]
        except urllib.error.HTTPError as error:
            raise Fault(f"the browser: {error.read().decode()[:500]}") from error

    def open(self, url):
        self.ask("POST", "/url", {"url": url})

    def run(self, script):
        return self.ask("POST", "/execute/sync", {"script": script, "args": []})

    def read_page(self):
        return self.run(READ_PAGE)

    def press(self, key):
        actions = [{"type": kind, "value": key} for kind in ("keyDown", "keyUp")]
        self.ask("POST", "/actions",
                 {"actions": [{"type": "key", "id": "keys", "actions": actions}]})

    def devtools(self, command, parameters):
        self.ask("POST", "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def errors(self):
        """Returns the errors on the browser's console since the last call."""
        log = self.ask("POST", "/se/log", {"type": "browser"})
        return [line["message"] for line in log if line["level"] == "SEVERE"]

    def close(self):
        with contextlib.suppress(Fault, OSError):
            self.ask("DELETE", "")
        self.driver.kill()
