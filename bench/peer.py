# SPDX-License-Identifier: MIT
"""Compares the example host with GStreamer's RTSP server library, for ./scripts/bench --peer. Both
serve the same clip to the same clients, in turn. Writes peer.json and cpu-peer.svg, and prints
tables."""
import json
import os
import signal
import subprocess
import sys
import time

import report
import run

LEAST, MOST = 1, 100  # the memory per client is the difference between these numbers of clients
STOP_AFTER = 2        # seconds; all clients play by then


class Peers:
    def __init__(self, arguments):
        self.arguments = arguments
        bench = arguments.build / "bench"
        self.clients_program = bench / "bench_clients"
        self.commands = {
            "host": ([arguments.build / "examples" / "live_host", "--no-cue", "--video",
                      arguments.clip, "--port", "{port}"], "Ctrl-C stops."),
            "peer": ([bench / "peer_server", "{port}", arguments.clip.resolve()], "ready"),
        }
        rounds = len(run.TRANSPORTS) * arguments.runs
        self.progress = run.Progress([2 * (arguments.seconds + 1)] * len(arguments.clients) * rounds
                                     + [2 * (STOP_AFTER + 0.5)] * rounds)

    def server(self, who):
        command, sign = self.commands[who]
        return run.Server(command, sign, self.arguments.out / f"{who}.log")

    def fan_out(self):
        results = []
        window = self.arguments.seconds * 1000
        for turn in range(self.arguments.runs):
            for clients in self.arguments.clients:
                for transport in run.TRANSPORTS:
                    result = {"run": turn, "clients": clients, "transport": transport}
                    for who in self.commands:
                        with self.server(who) as server:
                            result[who] = run.ask_clients(self.clients_program, server, clients,
                                                          transport, run.WARM_UP_MS, window)
                    results.append(result)
                    self.progress.step(f"{transport}, {clients} clients: " + ", ".join(
                        f"{who} {result[who]['us_per_packet']:.2f} µs" for who in self.commands))
        return results

    def stops(self):
        """Milliseconds from the signal to the end of the process, while all clients play."""
        results = []
        for _ in range(self.arguments.runs):
            for transport in run.TRANSPORTS:
                times = {who: self.stop(who, transport) for who in self.commands}
                results.append({"transport": transport, **times})
                self.progress.step(f"stop, {transport}: " + ", ".join(
                    f"{who} {spent:.1f} ms" for who, spent in times.items()))
        return results

    def stop(self, who, transport):
        with self.server(who) as server:
            command = [str(self.clients_program), "--port", str(server.port), "--clients",
                       str(MOST), "--window", "60000", *(["--udp"] if transport == "udp" else [])]
            clients = subprocess.Popen(command, stderr=subprocess.DEVNULL)
            try:
                time.sleep(STOP_AFTER)
                if clients.poll() is not None:
                    raise run.Failure(f"{' '.join(command)} has ended")
                begin = time.monotonic()
                server.process.terminate()
                server.process.wait(5)
                return 1000 * (time.monotonic() - begin)
            finally:
                clients.kill()
                clients.wait()


def memory_of_one(fan_out, transport, who):
    """Kilobytes for one more client, for each run."""
    full, least = (
        [result[who]["server_rss_kb"] for result in fan_out.of(transport, clients)]
        for clients in (MOST, LEAST))
    return [(a - b) / (MOST - LEAST) for a, b in zip(full, least)]


def rows_of(label, ours, theirs, digits, unit):
    """The ratios are per run, because both servers were measured in turn."""
    ratio = report.spread([b / a for a, b in zip(ours, theirs)], 1) if min(ours) > 0 else ""
    return [label, report.spread(ours, digits) + unit, report.spread(theirs, digits) + unit, ratio]


def peer_table(results):
    fan_out, rows = report.FanOut(results["fan_out"]), []
    for transport, name in report.NAMES.items():
        for clients in fan_out.clients:
            rows.append(rows_of(f"CPU per packet and client, {name}, clients: {clients}",
                                *(fan_out.cost(transport, clients, who) for who in ("host", "peer")),
                                2, " µs"))
    for transport, name in report.NAMES.items():
        if {LEAST, MOST} <= set(fan_out.clients):
            rows.append(rows_of(f"resident memory for one more client, {name}",
                                *(memory_of_one(fan_out, transport, who) for who in ("host", "peer")),
                                1, " kB"))
    whole = [[result[who]["server_rss_kb"] / 1024 for result in fan_out.of("udp", LEAST)]
             for who in ("host", "peer")]
    if all(whole):
        rows.append(rows_of("resident memory of the process with one client", *whole, 1, " MB"))
    most = fan_out.clients[-1]
    for transport, name in report.NAMES.items():
        rows.append(rows_of(
            f"until {most} clients play, four dialogues at a time, {name}",
            *([result[who]["all_ready_ms"] for result in fan_out.of(transport, most)]
              for who in ("host", "peer")), 0, " ms"))
    for transport, name in report.NAMES.items():
        rows.append(rows_of(
            f"from the signal to the end of the process, {MOST} clients, {name}",
            *([stop[who] for stop in results["stops"] if stop["transport"] == transport]
              for who in ("host", "peer")), 1, " ms"))
    lost = [sum(result[who]["lost"] + result[who]["out_of_order"] for result in results["fan_out"])
            for who in ("host", "peer")]
    rows.append(["packets lost or out of order", *map(str, lost), ""])
    return report.table(["What", "This server", "GStreamer's", "Ratio"], rows)


def peer_machine_table(results):
    return report.table(["", ""], report.machine_rows(results) + [["library", results["library"]]])


TABLES = {"peer-machine": peer_machine_table, "peer": peer_table}


def main():
    arguments = run.parse_arguments()
    # The defaults of these options differ from those of the full measurement.
    if "--clients" not in sys.argv:
        arguments.clients = [LEAST, 16, MOST]
    if "--runs" not in sys.argv:
        arguments.runs = 1 if arguments.quick else 3
    for name in (signal.SIGINT, signal.SIGTERM):
        signal.signal(name, signal.default_int_handler)
    arguments.out.mkdir(parents=True, exist_ok=True)
    peers = Peers(arguments)
    load = os.getloadavg()[0]
    results = {
        "machine": {**run.describe_machine(arguments.build), "load_before": round(load, 2)},
        "library": "gstreamer-rtsp-server-1.0 " + run.output_of(
            "pkg-config", "--modversion", "gstreamer-rtsp-server-1.0"),
        "settings": {name: getattr(arguments, name) for name in ("clients", "seconds", "runs")},
        "fan_out": peers.fan_out(),
        "stops": peers.stops(),
    }
    (arguments.out / "peer.json").write_text(json.dumps(results, indent=1) + "\n")
    for make in TABLES.values():
        print(f"\n{make(results)}")
    picture = report.plot(results, "peer")
    (arguments.out / "cpu-peer.svg").write_text(picture)
    if arguments.publish:
        report.publish_tables(results, TABLES)
        (report.DOCS / "cpu-peer.svg").write_text(picture)


if __name__ == "__main__":
    run.run_to_the_end(main)
