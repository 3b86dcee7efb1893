#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures CPU, memory and latency of the relay, and prints tables.
Usage: relay_bench.py [--publish] live_host [viewers [seconds]]    (1000 30)
--publish writes the figures to docs/scaling.md. Requires the packages that ./scripts/test web installs,
and wrk."""

import json
import os
import statistics
import subprocess
import sys
import tempfile
import threading
import time

BENCH = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path += [BENCH, os.path.join(BENCH, "..", "tests", "relay")]
import report  # noqa: E402
from harness import FPS, Browser, Relay, make_clip  # noqa: E402
from playback import Host, wait_until  # noqa: E402

LATENCY_SAMPLES = 40
DELIMITER = b"\0\0\0\1\x09"


class Feeder:
    """Writes a picture to live_host every 40 ms, at known times."""

    def __init__(self, live_host, clip):
        self.host = Host([live_host], "--video", "-", stdin=subprocess.PIPE)
        with open(clip, "rb") as file:
            self.pictures = [DELIMITER + each for each in file.read().split(DELIMITER)[1:]]
        self.begin = time.time()
        threading.Thread(target=self.feed, daemon=True).start()

    def feed(self):
        pipe = self.host.process.stdin
        for number, picture in enumerate(self.pictures):
            time.sleep(max(0.0, self.begin + number / FPS - time.time()))
            try:
                pipe.write(picture)
                pipe.flush()
            except OSError:
                return

    def latency(self, page):
        return page["clock"] - (self.begin + page["counter"] / FPS)


def measure_latency(live_host, player):
    """Seconds from the pipe into live_host to the canvas of the page."""
    make_clip("clip.h264", 60)
    feeder = Feeder(live_host, "clip.h264")
    relay = Relay(feeder.host.url())
    wait_until(lambda: len(relay.segments()) >= 6, 20, "a full playlist")
    browser = Browser()
    samples = []
    try:
        browser.open(f"{relay.page}?player={player}")
        wait_until(lambda: browser.read_page()["state"] == "live", 20, "a live picture")
        time.sleep(3)
        for _ in range(LATENCY_SAMPLES):
            samples.append(feeder.latency(browser.read_page()))
            time.sleep(0.5)
    finally:
        browser.close()
        browser.driver.kill()
        relay.kill()
        feeder.host.kill()
    return samples


def cpu_seconds(pids):
    total = 0
    for pid in pids:
        with open(f"/proc/{pid}/stat", encoding="ascii") as file:
            fields = file.read().rsplit(")", 1)[1].split()
        total += int(fields[11]) + int(fields[12])
    return total / os.sysconf("SC_CLK_TCK")


def memory_mb(pids):
    pages = 0
    for pid in pids:
        with open(f"/proc/{pid}/statm", encoding="ascii") as file:
            pages += int(file.read().split()[1])
    return pages * os.sysconf("SC_PAGE_SIZE") / 1e6


def descendants(pid):
    found = subprocess.run(["pgrep", "-P", str(pid)], stdout=subprocess.PIPE, text=True, check=False)
    children = [int(each) for each in found.stdout.split()]
    return [pid] + [each for child in children for each in descendants(child)]


def watch_costs(processes, seconds, load=None):
    before = {name: cpu_seconds(pids) for name, pids in processes.items()}
    begin = time.monotonic()
    result = load() if load else time.sleep(seconds)
    took = time.monotonic() - begin
    return result, {name: (100 * (cpu_seconds(pids) - before[name]) / took, memory_mb(pids))
                    for name, pids in processes.items()}


def measure_load(live_host, viewers, seconds):
    host = Host([live_host])
    relay = Relay(host.url())
    wait_until(lambda: len(relay.segments()) >= 6, 20, "a full playlist")
    [nginx], [ffmpeg] = relay.children("nginx"), relay.children("ffmpeg")
    processes = {"live_host": [host.process.pid], "ffmpeg": [ffmpeg], "nginx": descendants(nginx)}
    script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "viewers.lua")

    def load():
        done = subprocess.run(["wrk", "--threads", "2", "--connections", str(viewers), "--duration",
                               f"{seconds}s", "--timeout", "5s", "--script", script,
                               relay.page], stdout=subprocess.PIPE, text=True, check=True)
        return json.loads(done.stdout.splitlines()[-1])
    try:
        idle = watch_costs(processes, seconds)[1]
        result, busy = watch_costs(processes, seconds, load)
        clients = host.output().count("now has")
    finally:
        relay.kill()
        host.kill()
    return idle, busy, result, clients


def latency_figures(results):
    return report.table(["Player", "median", "shortest", "longest"],
                        [[name, *(f"{value:.1f} s" for value in (statistics.median(samples),
                                                                  min(samples), max(samples)))]
                         for name, samples in results["latency"].items()])


def load_figures(results):
    idle, busy, wrk, clients = results["load"]
    costs = report.table(["Process", "CPU, no viewer", f"CPU, {results['viewers']} viewers", "Memory"],
                         [[name, f"{idle[name][0]:.1f} %", f"{percent:.1f} %", f"{megabytes:.0f} MB"]
                          for name, (percent, megabytes) in busy.items()])
    return (f"{costs}\n\nnginx answered {wrk['requests']} requests in {wrk['seconds']:.0f} s, "
            f"{wrk['bytes'] * 8 / wrk['seconds'] / 1e6:.0f} Mbit/s; {wrk['failed']} failed. A reply took "
            f"{wrk['p50_ms']:.1f} ms\n(median) and {wrk['p99_ms']:.1f} ms (99th percentile). Clients of "
            f"the server: {clients}. Measured on\n{report.short_machine()}.")


def main():
    publishing = "--publish" in sys.argv
    live_host, *rest = [each for each in sys.argv[1:] if each != "--publish"]
    live_host = os.path.abspath(live_host)
    viewers, seconds = int(rest[0]) if rest else 1000, int(rest[1]) if rest[1:] else 30
    with tempfile.TemporaryDirectory() as work:
        os.chmod(work, 0o755)
        os.chdir(work)
        results = {
            "viewers": viewers,
            "latency": {name: measure_latency(live_host, player)
                        for name, player in (("Chromium's own", "native"), ("hls.js", "hls.js"))},
            "load": measure_load(live_host, viewers, seconds),
        }
    tables = {"relay-latency": latency_figures, "relay-load": load_figures}
    for figures in tables.values():
        print(f"\n{figures(results)}")
    if publishing:
        report.publish_tables(results, tables, "scaling.md")


if __name__ == "__main__":
    main()
