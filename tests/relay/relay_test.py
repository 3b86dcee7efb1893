#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Tests the relay without a browser: the files that it serves, recovery after faults, and cleanup.
Usage: relay_test.py live_host CASE...    several cases run at once: they mostly wait"""

import glob
import os
import pathlib
import re
import signal
import subprocess
import sys
import time

from harness import Relay, make_clip
from playback import (CLIP, SOUND, SOURCE, Host, Process, Skipped, check, check_frames, feeder,
                      frame_sums, free_ports, output_of, require_programs, run_test, source_frames,
                      wait_until)

LISTED = 6          # segments in the playlist
KEPT = LISTED + 3   # on the disk: players may still load segments that have just left the list


def start(live_host, *arguments, host_arguments=(), **options):
    """Starts a host and a relay of its stream."""
    make_clip("clip.h264", 60)
    host = Host([live_host], "--video", "clip.h264", *host_arguments)
    return host, Relay(host.url(), *arguments, **options)


def wait_for_segments(relay, count=2, known=()):
    """Waits until the playlist has so many segments that are not known."""
    wait_until(lambda: len(set(relay.segments()) - set(known)) >= count, 20, "segments")


def live_files():
    return [os.path.basename(path) for path in glob.glob("relay.*/www/live/*")]


def check_children_gone(process):
    search = ["pgrep", "-r", "R,S,D,T", "-s", str(process.process.pid)]
    wait_until(lambda: subprocess.call(search, stdout=subprocess.DEVNULL) == 1, 5,
               "no process is left")


def serves(live_host):
    """Types, cache headers, segments of one second, unchanged pictures, one client, Ctrl-C."""
    host, relay = start(live_host, host_arguments=["--no-cue", "--audio", SOUND])
    wait_for_segments(relay)
    for path, line in (("", "200 text/html; charset=utf-8 no-cache"),
                       ("page.js", "200 text/javascript no-cache"),
                       ("live/stream.m3u8", "200 application/vnd.apple.mpegurl no-cache"),
                       ("live/" + relay.segments()[-1], "200 video/mp4 max-age=60, immutable"),
                       ("live/missing.m4s", "404"),
                       ("listen.conf", "404"),
                       ("../nginx.conf", "400")):
        found = relay.get(path)[0]
        check(found.startswith(line), f"{path}: {found}")
    elsewhere = relay.page.replace("127.0.0.1", "127.0.0.2")  # this machine, too
    check(subprocess.call(["curl", "--silent", elsewhere]) == 7, "it listens on all addresses")

    wait_for_segments(relay, LISTED)
    durations = re.findall(rb"#EXTINF:([\d.]+)", relay.get("live/stream.m3u8")[1])
    check(all(0.9 < float(each) < 1.1 for each in durations), f"segments of {durations} s")
    playlist = relay.page + "live/stream.m3u8"
    streams = output_of("ffprobe", "-v", "error", "-show_entries", "stream=codec_name", "-of",
                        "csv=p=0", playlist, text=True)
    check(set(streams.split()) == {"h264", "aac"}, f"it serves {streams.split()}")
    check_frames(frame_sums(playlist, "-t", "3"), source_frames("clip.h264"), 50)

    wait_until(lambda: len(live_files()) == KEPT + 2, 10, "the list is full")
    for _ in range(30):
        names = live_files()
        check(len(names) <= KEPT + 4, f"the disk fills: {names}")  # one of each kind being written
        time.sleep(0.1)
    check(host.output().count("now has") == 1, "the server has seen more than one client")
    relay.end()
    check_children_gone(relay)
    check(not glob.glob("relay.*/"), "it leaves files")


def ffmpeg_dies(live_host):
    """The pauses grow. No files of earlier runs, hanging processes or orphans remain."""
    _, relay = start(live_host, "--patience", "8")
    wait_for_segments(relay)
    known = relay.segments()
    pauses = []
    for expected in (0.25, 0.5, 1):
        [ffmpeg] = relay.children("ffmpeg")
        killed = time.monotonic()
        os.kill(ffmpeg, signal.SIGKILL)
        wait_until(lambda old=ffmpeg: relay.children("ffmpeg") not in ([], [old]), 10, "a new one")
        pauses.append(time.monotonic() - killed)
        check(expected <= pauses[-1] < expected + 5, f"pauses of {pauses} s")
    wait_for_segments(relay, 1, known=known)
    runs = {name.split("-")[0] for name in live_files() if "-" in name}
    check(len(runs) == 1, f"files of runs {runs}")

    [ffmpeg] = relay.children("ffmpeg")
    known = relay.segments()
    os.kill(ffmpeg, signal.SIGSTOP)
    wait_until(lambda: ffmpeg not in relay.children("ffmpeg"), 20, "the end of one that hangs")
    wait_for_segments(relay, 1, known=known)

    relay.process.kill()
    relay.wait()
    check_children_gone(relay)


def late_key_frame(live_host):
    """One key frame every 8 s: without -probesize, ffmpeg gives up before the first key frame."""
    make_clip("clip.h264", 16, key_frame_every=8, noise=True)
    check(os.path.getsize("clip.h264") > 2 * 6e6, "the clip is too small to tell")
    host = Host([live_host], "--video", "clip.h264", "--no-cue")
    time.sleep(0.3)  # the first key frame is gone
    relay = Relay(host.url())
    wait_for_segments(relay, 1)
    check("ffmpeg has ended" not in relay.output(), "ffmpeg gave up")
    playlist = relay.get("live/stream.m3u8")[1]
    check(b"#EXT-X-TARGETDURATION:8" in playlist, playlist)
    received = frame_sums(relay.page + "live/stream.m3u8", "-t", "5")
    check_frames(received, source_frames("clip.h264"), 100)


def full_disk(live_host):
    """The disk is full, and then has free space again."""
    if os.geteuid() != 0:
        raise Skipped("only root can make a small disk")
    disk = os.path.abspath("disk")
    os.mkdir(disk)
    mount = 'mount -t tmpfs -o size=1m,mode=755 tmpfs "$0" && exec "$@"'
    _, relay = start(live_host, "--folder", disk,
                     before=["unshare", "--mount", "sh", "-c", mount, disk])
    wait_for_segments(relay)
    filler = f"/proc/{relay.process.pid}/root{disk}/filler"
    fill = 'while sleep 0.05; do cat /dev/zero >>"$0"; done'
    filling = Process("filler", ["sh", "-c", fill, filler])
    time.sleep(4)
    known = relay.segments()
    check(relay.process.poll() is None, "the relay has ended")
    check(relay.get("")[0].startswith("200"), "the page is not served")
    filling.kill()
    os.remove(filler)
    wait_for_segments(relay, 1, known=known)


def protected(live_host):
    """HTTPS and passwords: without a password refused, with one played."""
    output_of("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
              "ec_paramgen_curve:prime256v1", "-nodes", "-days", "1", "-subj", "/CN=localhost",
              "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", "key", "-out", "certificate")
    password = output_of("openssl", "passwd", "-6", "a password", text=True)
    pathlib.Path("users").write_text("viewer:" + password, encoding="ascii")
    _, relay = start(live_host, "--certificate", "certificate", "--key", "key", "--users", "users",
                     scheme="https")
    relay.viewer = ("--cacert", "certificate", "--user", "viewer:a password")
    wait_for_segments(relay)
    playlist = relay.get("live/stream.m3u8")[1].decode()
    names = re.findall(r'URI="(.+)"', playlist) + relay.segments()[-1:]
    played = b"".join(relay.get("live/" + name)[1] for name in names)
    pathlib.Path("played.mp4").write_bytes(played)
    check_frames(frame_sums("played.mp4"), source_frames("clip.h264"), 24)
    check(relay.get("")[0].startswith("200"), "the page is refused")
    for path in ("", "page.js", "live/stream.m3u8", *("live/" + name for name in names)):
        for user in ("", "viewer:another"):
            found = relay.get(path, "--user", user)[0]
            check(found.startswith("401"), f"'{path}' for user '{user}': {found}")
    relay.page = relay.page.replace("https", "http")
    check(relay.get("")[0].startswith("400"), "it answers without TLS")


def demo(live_host):
    """Host and relay together: when one ends, the other ends too. Ctrl-C ends both."""
    port = free_ports()
    command = [SOURCE / "examples/relay/web_demo", live_host, "--web", "--http-port", str(port),
               "--port"]
    feed = feeder(CLIP)
    piped = Process("piped", [*command, str(port + 1), "--video", "-"], stdin=feed.process.stdout)
    piped.wait_for("watches chan1/main")
    feed.kill()
    check(piped.wait() == 0, "the end of the input is an error")
    check_children_gone(piped)

    both = Process("demo", [*command, str(port + 1)])
    both.wait_for("watches chan1/main")
    code = Process("second", [*command, str(port + 2)]).wait()
    check(code == 1, f"a port in use ends with {code}")
    both.end()
    check_children_gone(both)


CASES = {case.__name__: case for case in (serves, ffmpeg_dies, late_key_frame, full_disk, protected,
                                          demo)}


def run(case, live_host):
    require_programs("ffmpeg", "nginx", "curl", "openssl", "pgrep", "setpriv")
    CASES[case](live_host)


def main():
    live_host, *cases = sys.argv[1:]
    os.environ["PATH"] += ":/usr/sbin"  # not in the search path of ordinary users
    if len(cases) == 1:
        run.__name__ = cases[0]
        return run_test(run, cases[0], live_host, seconds=80)
    runs = [subprocess.Popen([sys.executable, *sys.argv[:2], case]) for case in cases]
    results = [each.wait() for each in runs]
    return next((result for result in results if result not in (0, 77)), 0)


if __name__ == "__main__":
    sys.exit(main())
