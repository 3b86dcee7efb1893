#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Tests the relay without a browser: the files that it serves, recovery after faults, and cleanup.
Usage: relay_test.py source_folder live_host CASE...    several cases run at once: they mostly wait"""

import contextlib
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

from harness import (FPS, HEIGHT, WIDTH, Fault, Host, Process, Relay, check, free_port, make_clip,
                     picture, wait_until)

LISTED = 6          # segments in the playlist
KEPT = LISTED + 3   # on the disk: players may still load segments that have just left the list


class Setup:
    def __init__(self, source, live_host, work):
        self.source, self.live_host, self.work = source, live_host, work
        self.program = os.path.join(source, "examples", "relay", "relay")
        self.processes = []

    def clip(self, seconds, **options):
        path = os.path.join(self.work, "clip.h264")
        make_clip(path, seconds, **options)
        return path

    def keep(self, process):
        self.processes.append(process)
        return process

    def host(self, *arguments, **options):
        return self.keep(Host(self.live_host, self.work, arguments, **options))

    def relay(self, host, *arguments, **options):
        return self.keep(Relay(self.program, host.url, self.work, arguments, **options))

    def end(self):
        for process in self.processes:
            process.kill()

    def logs(self):
        return "\n".join(f"{process.log}:\n{process.output()}" for process in self.processes)


def wait_for_segments(relay, count=2, seconds=10):
    return wait_until(lambda: len(relay.segments()) >= count, seconds, f"{count} segments")[1]


def wait_for_new_segments(relay, known, seconds=5):
    wait_until(lambda: set(relay.segments()) - set(known), seconds, "new segments")


def live_files(relay):
    [work] = os.listdir(relay.folder)
    return os.listdir(os.path.join(relay.folder, work, "www", "live"))


def decode(url, *options):
    """Returns the raw pictures that ffmpeg decodes."""
    command = ["ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "error", *options, "-i", url,
               "-map", "0:v", "-fps_mode", "passthrough", "-f", "rawvideo", "-pix_fmt", "yuv420p",
               "-"]
    result = subprocess.run(command, stdout=subprocess.PIPE, check=True, timeout=30).stdout
    size = WIDTH * HEIGHT * 3 // 2
    return [result[at:at + size] for at in range(0, len(result), size)]


def number_of(image):
    """Returns the number in a decoded picture, whose blocks the coding has blurred."""
    sharp = [picture(bit and 1 << bit - 1) for bit in range(13)]
    place = [12 * WIDTH + next(x for x in range(WIDTH) if one[12 * WIDTH + x] == 255) + 12
             for one in sharp[1:]]
    return sum(1 << bit for bit, at in enumerate(place) if image[at] > 127)


def check_children_gone(relay, group):
    wait_until(lambda: subprocess.run(["pgrep", "-r", "R,S,D,T", "-s", str(group)], stdout=subprocess.DEVNULL,
                                      check=False).returncode == 1, 2, "no process is left")


def serves(setup):
    """Types, cache headers, segments of one second, unchanged pictures, one client, Ctrl-C."""
    host = setup.host("--video", setup.clip(60), "--no-cue", "--audio",
                      os.path.join(setup.source, "examples", "media", "clip.alaw"))
    relay = setup.relay(host)
    check(wait_for_segments(relay) < 5, "the first segments come late")
    for path, kind, cache in (("", "text/html", "no-cache"),
                              ("page.js", "text/javascript", "no-cache"),
                              ("live/stream.m3u8", "application/vnd.apple.mpegurl", "no-cache"),
                              ("live/" + relay.segments()[-1], "video/mp4", "immutable")):
        status, headers, _ = relay.get(path)
        found = f"{path}: {status} {headers['Content-Type']} {headers['Cache-Control']}"
        check(status == 200 and headers["Content-Type"].startswith(kind) and
              cache in headers["Cache-Control"], found)
    check(relay.get("live/missing.m4s")[0] == 404, "something is served that does not exist")
    check(relay.get("listen.conf")[0] == 404 and relay.get("../nginx.conf")[0] != 200,
          "the configuration is served")
    with socket.socket() as other:  # 127.0.0.2 is this machine's, too
        check(other.connect_ex(("127.0.0.2", relay.port)) != 0, "it listens on all addresses")

    wait_for_segments(relay, LISTED)
    durations = re.findall(r"#EXTINF:([\d.]+)", relay.get("live/stream.m3u8")[2].decode())
    check(all(0.9 < float(each) < 1.1 for each in durations), f"segments of {durations} s")
    streams = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_name", "-of",
                              "csv=p=0", relay.page + "live/stream.m3u8"],
                             stdout=subprocess.PIPE, text=True, check=True, timeout=30).stdout
    check(set(streams.split()) == {"h264", "aac"}, f"it serves {streams.split()}")
    images = decode(relay.page + "live/stream.m3u8", "-t", "3")
    numbers = [number_of(image) for image in images]
    check(len(numbers) >= 2 * FPS and numbers == list(range(numbers[0], numbers[0] + len(numbers))),
          f"pictures {numbers}")

    wait_until(lambda: len(live_files(relay)) == KEPT + 2, 10, "the list is full")
    for _ in range(30):
        names = live_files(relay)
        check(len(names) <= KEPT + 4, f"the disk fills: {names}")  # one of each kind being written
        time.sleep(0.1)
    check(host.output().count("now has") == 1, "the server has seen more than one client")
    group = relay.process.pid
    check(relay.interrupt() < 1.5, "Ctrl-C takes long")
    check(relay.process.returncode == 0, f"it ended with {relay.process.returncode}")
    check_children_gone(relay, group)
    check(not os.listdir(relay.folder), "it leaves files")


def ffmpeg_dies(setup):
    """The pauses grow. No files of earlier runs, hanging processes or orphans remain."""
    host = setup.host("--video", setup.clip(60))
    relay = setup.relay(host, "--patience", "2")
    wait_for_segments(relay)
    known = relay.segments()
    pauses = []
    for expected in (0.25, 0.5, 1):
        [ffmpeg] = relay.children("ffmpeg")
        killed = time.monotonic()
        os.kill(ffmpeg, signal.SIGKILL)
        wait_until(lambda old=ffmpeg: relay.children("ffmpeg") not in ([], [old]), 10, "ffmpeg again")
        pauses.append(time.monotonic() - killed)
        check(expected <= pauses[-1] < expected + 1.5, f"pauses of {pauses} s")
    wait_for_new_segments(relay, known)
    runs = {name.split("-")[0] for name in live_files(relay) if "-" in name}
    check(len(runs) == 1, f"files of runs {runs}")

    [ffmpeg] = relay.children("ffmpeg")
    known = relay.segments()
    os.kill(ffmpeg, signal.SIGSTOP)
    wait_until(lambda: ffmpeg not in relay.children("ffmpeg"), 8, "a new ffmpeg for one that hangs")
    wait_for_new_segments(relay, known, 8)

    group = relay.process.pid
    relay.process.kill()
    check_children_gone(relay, group)


def late_key_frame(setup):
    """One key frame every 8 s: without -probesize, ffmpeg gives up before the first key frame."""
    clip = setup.clip(16, key_frame_every=8, noise=True)
    check(os.path.getsize(clip) > 2 * 6e6, "the clip is too small to tell")
    host = setup.host("--video", clip, "--no-cue")
    time.sleep(0.3)  # the first key frame is gone
    relay = setup.relay(host)
    wait_for_segments(relay, 1, 20)
    check("ffmpeg has ended" not in relay.output(), "ffmpeg gave up")
    _, _, playlist = relay.get("live/stream.m3u8")
    check(b"#EXT-X-TARGETDURATION:8" in playlist, playlist.decode())
    numbers = [number_of(image) for image in decode(relay.page + "live/stream.m3u8", "-t", "5")]
    check(numbers == list(range(numbers[0], numbers[0] + len(numbers))) and
          numbers[0] % (8 * FPS) == 0 and len(numbers) >= 4 * FPS, f"pictures {numbers}")


def full_disk(setup):
    """The disk is full, and then has free space again."""
    if os.geteuid() != 0:
        print("skipped: only root can make a small disk")
        sys.exit(77)
    host = setup.host("--video", setup.clip(60))
    mount = 'mount -t tmpfs -o size=1m,mode=755 tmpfs "$1" && shift && exec "$@"'
    relay = setup.relay(host, before=lambda folder: ["unshare", "--mount", "sh", "-c", mount, "sh",
                                                     folder])
    wait_for_segments(relay)
    filler = f"/proc/{relay.process.pid}/root{relay.folder}/filler"
    with open(filler, "wb", buffering=0) as file:
        try:
            while file.write(bytes(4096)) == 4096:
                pass
        except OSError:
            pass
    known = relay.segments()
    time.sleep(4)
    check(relay.process.poll() is None, "the relay has ended")
    check(relay.get("")[0] == 200, "the page is not served")
    os.remove(filler)
    wait_for_new_segments(relay, known, 12)


def protected(setup):
    """HTTPS and passwords: without a password refused, with one played."""
    certificate, key, users = (os.path.join(setup.work, name) for name in ("cert", "key", "users"))
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "1", "-subj", "/CN=localhost",
                    "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", certificate],
                   check=True, stderr=subprocess.DEVNULL)
    hashed = subprocess.run(["openssl", "passwd", "-6", "a password"], check=True, text=True,
                            stdout=subprocess.PIPE).stdout
    with open(users, "w", encoding="ascii") as file:
        file.write("viewer:" + hashed)
    host = setup.host("--video", setup.clip(60))
    relay = setup.relay(host, "--certificate", certificate, "--key", key, "--users", users,
                        scheme="https")

    def curl(path, *options):
        """Returns status and body."""
        body = os.path.join(setup.work, "body")
        done = subprocess.run(["curl", "--silent", "--cacert", certificate, "--output", body,
                               "--write-out", "%{http_code}", *options, relay.page + path],
                              stdout=subprocess.PIPE, text=True, check=False, timeout=10)
        with open(body, "rb") as file:
            return int(done.stdout), file.read()

    viewer = ("--user", "viewer:a password")
    wait_until(lambda: curl("live/stream.m3u8", *viewer)[0] == 200, 10, "a stream")
    playlist = curl("live/stream.m3u8", *viewer)[1].decode()
    names = re.findall(r'URI="(.+)"', playlist) + re.findall("^[^#].*", playlist, re.M)[:1]
    for path in ["", "page.js", "live/stream.m3u8", *("live/" + name for name in names)]:
        check(curl(path)[0] == 401, f"'{path}' is served to everybody")
        check(curl(path, "--user", "viewer:another")[0] == 401, f"any password opens '{path}'")
        check(curl(path, *viewer)[0] == 200, f"'{path}' is refused")
    played = os.path.join(setup.work, "played.mp4")
    with open(played, "wb") as file:
        for name in names:
            file.write(curl("live/" + name, *viewer)[1])
    check(len(decode(played)) in (FPS - 1, FPS), "what was fetched does not play")
    plain = subprocess.run(["curl", "--silent", "--output", os.devnull, "--write-out", "%{http_code}",
                            relay.page.replace("https", "http")], stdout=subprocess.PIPE, text=True,
                           check=False, timeout=10).stdout
    check(plain == "400", f"without TLS it answers {plain}")


@contextlib.contextmanager
def two_networks():
    """Returns two command prefixes that run a command in one of two connected network namespaces."""
    names = [f"relay{os.getpid()}{side}" for side in "ab"]
    setup = [["ip", "netns", "add", name] for name in names]
    setup.append(["ip", "-n", names[0], "link", "add", "veth0", "type", "veth", "peer", "name",
                  "veth0", "netns", names[1]])
    for number, name in enumerate(names, 1):
        setup += [["ip", "-n", name, "link", "set", "lo", "up"],
                  ["ip", "-n", name, "addr", "add", f"198.18.7.{number}/24", "dev", "veth0"],
                  ["ip", "-n", name, "link", "set", "veth0", "up"]]
    try:
        for command in setup:
            if subprocess.run(command, check=False).returncode != 0:
                print("skipped: no network namespaces")
                sys.exit(77)
        yield [["ip", "netns", "exec", name] for name in names]
    finally:
        for name in names:
            subprocess.run(["ip", "netns", "del", name], check=False, stderr=subprocess.DEVNULL)


def closed_port(setup):
    """With the firewall rules, others reach the page, and only the relay reaches the server."""
    if os.geteuid() != 0 or not shutil.which("nft") or not shutil.which("ip"):
        print("skipped: it takes root, nft and ip to close a port")
        sys.exit(77)
    rules = os.path.join(setup.source, "examples", "relay", "rtsp-closed.nft")
    with two_networks() as (inside, outside):
        host = setup.host("--video", setup.clip(60), "--port", "8554", before=inside)
        host.url = "rtsp://127.0.0.1:8554/chan1/main/"
        relay = setup.relay(host, "--listen", "198.18.7.1", before=lambda _: inside)

        def from_outside(*command):
            return subprocess.run([*outside, "timeout", "3", *command], check=False,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode
        rtsp = ("bash", "-c", ": </dev/tcp/198.18.7.1/8554")
        check(from_outside(*rtsp) == 0, "the server cannot be reached anyway")
        subprocess.run([*inside, "nft", "-f", rules], check=True)
        check(from_outside(*rtsp) == 1, "the server's port is not closed")
        for ffmpeg in relay.children("ffmpeg"):  # the connection that it had stays
            os.kill(ffmpeg, signal.SIGKILL)
        playlist = f"http://198.18.7.1:{relay.port}/live/stream.m3u8"
        wait_until(lambda: from_outside("curl", "--fail", playlist) == 0, 10, "a stream outside")


def demo(setup):
    """Host and relay together: when one ends, the other ends too. Ctrl-C ends both."""
    program = os.path.join(setup.source, "examples", "relay", "web_demo")
    ports = [str(free_port()), str(free_port())]
    command = [program, setup.live_host, "--web", "--port", ports[0], "--http-port", ports[1]]
    with open(os.path.join(setup.source, "examples", "media", "clip.h264"), "rb") as clip:
        piped = setup.keep(Process([*command, "--video", "-", "--seconds", "3"], setup.work, "piped",
                                   stdin=clip))
        wait_until(lambda: piped.process.poll() is not None, 10, "the end after 3 s")
    check("watches chan1/main" in piped.output() and piped.process.returncode == 0, "no picture")
    check_children_gone(piped, piped.process.pid)

    both = setup.keep(Process(command, setup.work, "demo", stdin=subprocess.DEVNULL))
    both.wait_for("watches chan1/main")
    second = setup.keep(Process([*command[:4], str(free_port()), *command[5:]], setup.work, "second",
                                stdin=subprocess.DEVNULL))
    wait_until(lambda: second.process.poll() is not None, 10, "a refusal of a port in use")
    check(second.process.returncode == 1, f"a port in use ends with {second.process.returncode}")
    os.killpg(both.process.pid, signal.SIGINT)
    check(both.process.wait(3) == 0, f"Ctrl-C ends with {both.process.returncode}")
    check_children_gone(both, both.process.pid)


CASES = {case.__name__: case for case in (serves, ffmpeg_dies, late_key_frame, full_disk,
                                          protected, closed_port, demo)}


def run(case, source, live_host):
    with tempfile.TemporaryDirectory() as work:
        os.chmod(work, 0o755)  # ffmpeg may run as another user
        setup = Setup(source, live_host, work)
        try:
            CASES[case](setup)
            return 0
        except Fault as fault:
            print(f"{case}: {fault}\n{setup.logs()}")
            return 1
        finally:
            setup.end()


def main():
    source, live_host, *cases = sys.argv[1:]
    for program in ("ffmpeg", "nginx", "curl", "openssl", "pgrep", "setpriv"):
        if shutil.which(program, path=os.environ["PATH"] + ":/usr/sbin") is None:
            print(f"skipped: there is no {program}")
            return 77
    if len(cases) == 1:
        return run(cases[0], source, live_host)
    runs = [subprocess.Popen([sys.executable, *sys.argv[:3], case]) for case in cases]
    results = [each.wait() for each in runs]
    return next((result for result in results if result not in (0, 77)), 0)


if __name__ == "__main__":
    sys.exit(main())
