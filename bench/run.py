# SPDX-License-Identifier: MIT
"""Runs the benchmarks for ./scripts/bench, writes results.json and prints the tables. The example
host and the floor are separate processes; the pieces run in one process."""
import argparse
import datetime
import json
import os
import pathlib
import platform
import random
import re
import signal
import socket
import subprocess
import sys
import time

import report

CROWD = 100  # number of clients, except in the fan-out
TRANSPORTS = ("udp", "interleaved")
WARM_UP_MS = 500
START_LIMIT = 10  # seconds


class Failure(Exception):
    pass


def parse_arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--clip", type=pathlib.Path, required=True)
    parser.add_argument("--out", type=pathlib.Path, required=True)
    parser.add_argument("--clients", type=lambda text: [int(n) for n in text.split()])
    parser.add_argument("--seconds", type=int)
    parser.add_argument("--runs", type=int)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--publish", action="store_true")
    arguments = parser.parse_args()
    quick = arguments.quick
    arguments.clients = sorted(set(arguments.clients or ([16, 100] if quick else [16, 32, 100, 128])))
    arguments.seconds = arguments.seconds or (1 if quick else 3)
    arguments.runs = arguments.runs or (2 if quick else 5)
    arguments.joins = 4 if quick else 12
    arguments.storms = 3 if quick else 50
    arguments.memories = 1 if quick else 3
    arguments.repetitions = 1 if quick else 5
    return arguments


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


class Server:
    """A server's process: it serves when the block begins, and is ended at the end of the block."""

    def __init__(self, command, sign, log):
        """command: may contain {port}. sign: text that it prints when it serves. log: receives its
        output."""
        self.port = free_port()
        self.command = [str(part).format(port=self.port) for part in command]
        self.sign = sign
        self.log = log

    def __enter__(self):
        with open(self.log, "wb") as output:
            self.process = subprocess.Popen(
                self.command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT)
        try:
            self.await_sign()
        except BaseException:
            self.end()
            raise
        return self

    def __exit__(self, *_):
        self.end()

    def await_sign(self):
        limit = time.monotonic() + START_LIMIT
        while self.sign not in self.log.read_text(errors="replace"):
            if self.process.poll() is not None or time.monotonic() > limit:
                raise Failure(f"{self.command[0]} does not serve; see {self.log}")
            time.sleep(0.01)

    def end(self):
        self.process.terminate()
        try:
            self.process.wait(5)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()

    def resident_kb(self):
        pages = int(pathlib.Path(f"/proc/{self.process.pid}/statm").read_text().split()[1])
        return pages * os.sysconf("SC_PAGESIZE") // 1024


def ask_clients(program, server, clients, transport="interleaved", warm_up=0, window=0, options=()):
    """Runs bench_clients against the server and returns its results."""
    command = [str(program), "--port", str(server.port), "--clients", str(clients),
               "--server", str(server.process.pid), "--warm-up", str(warm_up),
               "--window", str(window), *options]
    if transport == "udp":
        command.append("--udp")
    result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True)
    if result.returncode != 0:
        raise Failure(f"{' '.join(command)}: {result.stderr.strip()}")
    return json.loads(result.stdout)


class Progress:
    """Prints the progress, and the remaining time if the speed stays the same."""

    def __init__(self, steps):
        """steps: the expected seconds of each step."""
        self.steps = steps
        self.done = 0
        self.begin = time.monotonic()

    def step(self, text):
        self.done += 1
        spent = time.monotonic() - self.begin
        left = spent / sum(self.steps[: self.done]) * sum(self.steps[self.done:])
        print(f"[{self.done:3}/{len(self.steps)}] {text}; {left // 60:.0f}:{left % 60:02.0f} left",
              file=sys.stderr, flush=True)


class Bench:
    def __init__(self, arguments):
        self.arguments = arguments
        bench = arguments.build / "bench"
        self.clients_program = bench / "bench_clients"
        self.pieces_program = bench / "bench_pieces"
        self.host_command = [arguments.build / "examples" / "live_host", "--video", arguments.clip,
                             "--port", "{port}"]
        self.floor_command = [bench / "bench_floor", "{port}", arguments.clip]
        pair = 2 * (arguments.seconds + 0.8)
        self.progress = Progress(
            [pair] * (len(TRANSPORTS) * len(arguments.clients) * arguments.runs)
            + [3 * 3.0] * arguments.memories + [0.6] * arguments.storms
            + [0.7] * arguments.joins + [1.2] * arguments.joins
            + [10.0 + 8 * arguments.repetitions])

    def host(self, *options):
        return Server([*self.host_command, *options], "Ctrl-C stops.",
                      self.arguments.out / "live_host.log")

    def floor(self):
        return Server(self.floor_command, "ready", self.arguments.out / "bench_floor.log")

    def serve(self, server, *what, **options):
        return ask_clients(self.clients_program, server, *what, **options)

    def fan_out(self):
        """Each round measures all combinations, so that slow changes of the machine affect all of
        them equally."""
        results = []
        window = self.arguments.seconds * 1000
        for run in range(self.arguments.runs):
            for clients in self.arguments.clients:
                for transport in TRANSPORTS:
                    with self.host("--no-cue") as host:
                        cost = self.serve(host, clients, transport, WARM_UP_MS, window)
                    with self.floor() as floor:
                        least = self.serve(floor, clients, transport, WARM_UP_MS, window)
                    results.append({"run": run, "clients": clients, "transport": transport,
                                    "host": cost, "floor": least})
                    self.progress.step(
                        f"{transport}, {clients} clients: {cost['us_per_packet']:.2f} µs per packet, "
                        f"floor {least['us_per_packet']:.2f}")
        return results

    def memory(self):
        """Kilobytes per client: idle, and playing over each transport."""
        results = []
        for _ in range(self.arguments.memories):
            figures = {}
            for kind in ("idle", *TRANSPORTS):
                with self.host("--no-cue") as host:
                    time.sleep(1)  # the host allocates its own memory for the stream
                    own = host.resident_kb()
                    options = ["--idle"] if kind == "idle" else []
                    full = self.serve(host, CROWD, kind, WARM_UP_MS, 1000, options)
                figures[kind] = (full["server_rss_kb"] - own) / CROWD
            results.append(figures)
            self.progress.step("memory: " + ", ".join(
                f"{kind} {size:.1f} kB per client" for kind, size in figures.items()))
        return results

    def storms(self):
        """Many clients connect at the same time, to a new server each time."""
        results = []
        for _ in range(self.arguments.storms):
            with self.host("--no-cue") as host:
                storm = self.serve(host, CROWD, options=["--at-once"])
            results.append({name: storm[name]
                            for name in ("all_ready_ms", "slowest_connect_ms", "lost_syn")})
            self.progress.step(f"{CROWD} clients at once: {storm['all_ready_ms']:.1f} ms")
        return results

    def joins(self, *options):
        """Milliseconds from the reply to PLAY to a whole key picture, for one client after another."""
        results = []
        name = "without a jump" if options else "with a jump"
        with self.host(*options) as host:
            for _ in range(self.arguments.joins):
                time.sleep(0.05 + random.random())  # a random time between two key pictures
                join = self.serve(host, 1, options=["--until-picture"])
                results.append(join["first_picture_ms_median"])
                self.progress.step(f"first picture, {name} to it: {results[-1]:.1f} ms")
        return results

    def pieces(self):
        output = self.arguments.out / "pieces.json"
        command = [str(self.pieces_program), f"--benchmark_out={output}",
                   "--benchmark_out_format=json", "--benchmark_min_time=0.2",
                   f"--benchmark_repetitions={self.arguments.repetitions}"]
        with open(self.arguments.out / "pieces.log", "wb") as log:
            process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                       stderr=log, text=True, errors="replace")
            try:
                last = None
                for line in process.stdout:  # log lines of the library, and lines of the benchmarks
                    found = re.match(r"(\w+(?:/[a-z_]+(?=[/ ]))?)\S* +[\d.]+ [num]s ", line)
                    if found and found[1] != last:
                        last = found[1]
                        print(f"{'':10}{last}", file=sys.stderr, flush=True)
                process.wait()
            except BaseException:
                process.kill()
                process.wait()
                raise
        if process.returncode != 0:
            raise Failure(f"{command[0]} has failed; see {log.name}")
        self.progress.step("the pieces")
        runs = json.loads(output.read_text())["benchmarks"]
        for run in runs:
            if run.get("error_occurred"):
                print(f"error: {run['name']}: {run['error_message']}", file=sys.stderr)
        return runs


def output_of(*command):
    try:
        return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              text=True).stdout.strip()
    except OSError:
        return ""


def first_match(pattern, text, fallback):
    found = re.search(pattern, text, re.MULTILINE)
    return found[1].strip() if found else fallback


def describe_machine(build):
    cache = (build / "CMakeCache.txt").read_text()
    compiler = first_match(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", cache, "c++")
    commit = output_of("git", "rev-parse", "--short=12", "HEAD") or "unknown"
    if output_of("git", "status", "--porcelain", "--", "src", "include", "examples", "bench"):
        commit += ", changed"
    memory = os.sysconf("SC_PAGESIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    return {
        "processor": first_match(r"^model name\s*:(.*)$",
                                 pathlib.Path("/proc/cpuinfo").read_text(), platform.machine()),
        "cores": os.cpu_count(),
        "memory_gb": round(memory, 1),
        "kernel": platform.release(),
        "system": platform.freedesktop_os_release().get("PRETTY_NAME", "Linux"),
        "compiler": first_match(r"^(.*)$", output_of(compiler, "--version"), compiler),
        "build_type": first_match(r"^CMAKE_BUILD_TYPE:\w+=(.*)$", cache, "?"),
        "commit": commit,
        "version": pathlib.Path("VERSION").read_text().strip(),
        "date": datetime.date.today().isoformat(),
    }


def main():
    arguments = parse_arguments()
    for name in (signal.SIGINT, signal.SIGTERM):
        signal.signal(name, signal.default_int_handler)
    arguments.out.mkdir(parents=True, exist_ok=True)
    bench = Bench(arguments)
    load = os.getloadavg()[0]
    results = {
        "machine": describe_machine(arguments.build),
        "settings": {name: getattr(arguments, name)
                     for name in ("clients", "seconds", "runs", "quick")},
        "fan_out": bench.fan_out(),
        "memory_kb": bench.memory(),
        "storms": bench.storms(),
        "first_picture_ms": {"cue": bench.joins(), "no_cue": bench.joins("--no-cue")},
        "pieces": bench.pieces(),
    }
    results["machine"]["load_before"] = round(load, 2)
    path = arguments.out / "results.json"
    path.with_suffix(".new").write_text(json.dumps(results, indent=1) + "\n")
    path.with_suffix(".new").replace(path)
    report.write(results, arguments.out / "cpu-per-packet.svg", arguments.publish)


def run_to_the_end(work):
    try:
        work()
    except Failure as failure:
        sys.exit(f"error: {failure}")
    except KeyboardInterrupt:
        print("Stopped. No results were stored.", file=sys.stderr)
        sys.exit(130)


if __name__ == "__main__":
    run_to_the_end(main)
