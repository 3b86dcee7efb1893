# SPDX-License-Identifier: MIT
"""Shared by the relay tests: a clip with numbered pictures, the relay, a browser."""

import contextlib
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import urllib.error
import urllib.request

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))
# pylint: disable=wrong-import-position
from playback import FFMPEG, SOURCE, Fault, Process, free_ports, output_of  # noqa: E402

FPS = 25
WIDTH, HEIGHT = 320, 180
BITS, BLOCK = 12, 20  # each picture carries its number in black and white blocks at the top


def make_clip(path, seconds, key_frame_every=1, noise=False):
    """Whole groups of pictures, without B-frames, each picture with a delimiter before it."""
    number = f"if(lt(Y,1)*lt(X,{BITS}),255*mod(floor(N/pow(2,X)),2),64+mod(N,128))"
    pictures = (f"nullsrc=size={WIDTH // BLOCK}x{HEIGHT // BLOCK}:rate={FPS}:duration={seconds},"
                f"format=gray,geq='{number}',scale={WIDTH}:{HEIGHT}:flags=neighbor,format=yuv420p")
    group = key_frame_every * FPS
    output_of(*FFMPEG, "-f", "lavfi", "-i", pictures + (",noise=alls=60:allf=t" if noise else ""),
              "-c:v", "libx264", "-preset", "ultrafast", "-crf", "10", "-bf", "0", "-x264-params",
              f"keyint={group}:min-keyint={group}:scenecut=0:aud=1", path)


class Relay(Process):
    """The relay, with the working directory as the folder for its temporary folder."""

    def __init__(self, url, *arguments, scheme="http", before=()):
        self.port = free_ports()
        self.page = f"{scheme}://127.0.0.1:{self.port}/"
        self.viewer = ()  # options of curl
        super().__init__("relay", [*before, SOURCE / "examples/relay/relay", "--http-port",
                                   str(self.port), "--folder", os.getcwd(), *arguments, url])
        self.wait_for("open http")

    def get(self, path, *options):
        """Returns a line of status, type and cache header, and the body."""
        reply = output_of("curl", "--silent", "--path-as-is", *self.viewer, *options, "--write-out",
                          "\n%{http_code} %{content_type} %header{cache-control}", self.page + path)
        body, _, line = reply.rpartition(b"\n")
        return line.decode(), body

    def segments(self):
        """The playlist's segments, in order; none while there is no playlist."""
        line, body = self.get("live/stream.m3u8")
        return re.findall("^[^#].*", body.decode(), re.MULTILINE) if line.startswith("200") else []

    def children(self, name):
        """Returns the ids of the relay's child processes with this name."""
        found = subprocess.run(["pgrep", "-P", str(self.process.pid), "-x", name],
                               stdout=subprocess.PIPE, text=True, check=False)
        return [int(pid) for pid in found.stdout.split()]


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

    def __init__(self):
        port = free_ports()
        self.session = f"http://127.0.0.1:{port}/session"
        self.driver = Process("chromedriver", ["chromedriver", f"--port={port}"])
        self.driver.wait_for("started successfully")
        options = {"args": [
            "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync",
            f"--user-data-dir={tempfile.mkdtemp(dir=os.getcwd())}", "--window-size=1000,700"]}
        capabilities = {"goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}
        value = self.ask("POST", "", {"capabilities": {"alwaysMatch": capabilities}})
        self.session += "/" + value["sessionId"]

    def ask(self, method, path, body=None):
        request = urllib.request.Request(
            self.session + path, method=method, data=json.dumps(body).encode() if body else None,
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
