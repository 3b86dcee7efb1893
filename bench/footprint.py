# SPDX-License-Identifier: MIT
"""Measures for ./scripts/bench --footprint how large the library is on each processor, and what memory,
threads and time it takes in a host on this machine. Writes footprint.json and prints tables."""
import argparse
import json
import os
import pathlib
import re
import socket
import subprocess

import report
import run

CLIENTS = 100
ROUNDS = 5
PROCESSORS = {  # preset: name, prefix of the tools, goal for the stripped library in kB
    "release": ("amd64", "", 200),
    "arm64": ("arm64", "aarch64-linux-gnu-", 200),
    "armhf": ("armhf", "arm-linux-gnueabihf-", 120),
    "riscv64": ("riscv64", "riscv64-linux-gnu-", 200),
}
REQUEST = b"OPTIONS rtsp://127.0.0.1/ RTSP/1.0\r\nCSeq: 1\r\n\r\n"


def sizes(out):
    """Bytes of the library for each processor."""
    results = {}
    for preset, (name, tools, _) in PROCESSORS.items():
        library = pathlib.Path("build", preset, "librtspserver.so").resolve()
        stripped = out / f"stripped-{name}.so"
        subprocess.run([f"{tools}strip", "--strip-unneeded", "-o", stripped, library], check=True)
        numbers = run.output_of(f"{tools}size", str(library)).splitlines()[1].split()
        results[name] = {"text": int(numbers[0]), "data": int(numbers[1]), "bss": int(numbers[2]),
                         "stripped": stripped.stat().st_size}
    return results


class Host:
    """A process of footprint_host, from before it loads the library to the end of the block."""

    def __init__(self, program, library, preload):
        self.port = run.free_port()
        command = [program, library, str(self.port)] + ([preload] if preload else [])
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.PIPE, text=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.communicate()

    def stage(self, name):
        """Waits for the stage; returns the numbers of its line."""
        line = self.process.stderr.readline()
        if not line.startswith(name):
            raise run.Failure(f"footprint_host: {line.strip() or 'has ended'}")
        return [float(number) for number in line.split()[1:]]

    def proceed(self):
        self.process.stdin.write("\n")
        self.process.stdin.flush()

    def memory(self):
        """Kilobytes: all resident pages, and the anonymous ones."""
        text = pathlib.Path(f"/proc/{self.process.pid}/smaps_rollup").read_text()
        resident, anonymous = (int(re.search(rf"^{field}: +(\d+) kB", text, re.MULTILINE)[1])
                             for field in ("Rss", "Anonymous"))
        return resident, anonymous

    def threads(self):
        return len(os.listdir(f"/proc/{self.process.pid}/task"))


def connect(port):
    """A client that has the reply to its first request."""
    client = socket.create_connection(("127.0.0.1", port), 10)
    client.sendall(REQUEST)
    if not client.recv(4096).startswith(b"RTSP/1.0 200"):
        raise run.Failure("OPTIONS failed")
    return client


def host_round(program, library, preload, clients):
    """One life of a host with idle clients."""
    with Host(program, library, preload) as host:
        host.stage("bare")
        bare = host.memory()
        host.proceed()
        load, start = host.stage("started")
        started, threads = host.memory(), host.threads()
        connected = [connect(host.port) for _ in range(clients)]
        full, all_threads = host.memory(), host.threads()
        host.proceed()
        stop, = host.stage("stopped")
        for client in connected:
            client.close()
    result = {"load_ms": load, "start_ms": start, "stop_ms": stop, "threads": threads - 1,
              "resident_kb": started[0] - bare[0], "anonymous_kb": started[1] - bare[1]}
    if clients:
        result["client_kb"] = (full[0] - started[0]) / clients
        result["client_threads"] = (all_threads - threads) / clients
    return result


def hosts(build):
    program = str(build / "bench" / "footprint_host")
    library = str(pathlib.Path("build/release/librtspserver.so").resolve())
    kinds = {"c": (None, 0), "cxx": ("libstdc++.so.6", 0), "crowd": ("libstdc++.so.6", CLIENTS)}
    return {kind: [host_round(program, library, *how) for _ in range(ROUNDS)]
            for kind, how in kinds.items()}


def playing(arguments):
    """Kilobytes of the example host for each client that plays."""
    settings = argparse.Namespace(**vars(arguments), clients=[], seconds=1, runs=0, memories=3,
                                  storms=0, joins=0, repetitions=0)
    return run.Bench(settings).memory()


def stack_size():
    header = pathlib.Path("include/rtsps_server_api.h").read_text()
    return int(re.search(r"define RTSPS_THREAD_STACK_SIZE (\d+)", header)[1])


def kilobytes(size):
    return f"{size / 1000:.1f} kB"


def size_table(results):
    rows = []
    for name, _, goal in PROCESSORS.values():
        size = results["sizes"][name]
        rows.append([name, *(kilobytes(size[part]) for part in ("text", "data", "bss", "stripped")),
                     f"{goal} kB"])
    return report.table(["Processor", "text", "data", "bss", "stripped file", "At most"], rows)


def host_table(results):
    found = results["hosts"]

    def of(kind, key, digits, unit):
        return report.figure([result[key] for result in found[kind]], digits, unit)

    rows = [
        ["resident memory of an idle server, host in C++", of("cxx", "resident_kb", 0, " kB"), "1 MB"],
        ["of it anonymous pages", of("cxx", "anonymous_kb", 0, " kB"), ""],
        ["the same for a host in C, which loads the C++ runtime too", of("c", "resident_kb", 0, " kB"),
         ""],
        ["of it anonymous pages", of("c", "anonymous_kb", 0, " kB"), ""],
        ["resident memory per connected client", of("crowd", "client_kb", 1, " kB"), "40 kB"],
    ]
    for transport, name in report.NAMES.items():
        rows.append([f"resident memory per playing client, {name}",
                     report.figure([result[transport] for result in results["memory_kb"]], 1, " kB"),
                     "60 kB"])
    rows += [
        ["threads of an idle server", of("cxx", "threads", 0, ""), ""],
        ["threads per client", of("crowd", "client_threads", 0, ""), ""],
        ["address space for the stack of a thread", f"{results['stack'] // 1024} KiB", ""],
        ["loading the library, host in C++", of("cxx", "load_ms", 2, " ms"), ""],
        ["`RTSPServer_Init` to the end of `RTSPServer_Start`", of("cxx", "start_ms", 2, " ms"), ""],
        ["`RTSPServer_Stop` without clients", of("cxx", "stop_ms", 2, " ms"), ""],
        [f"`RTSPServer_Stop` with {CLIENTS} connected clients", of("crowd", "stop_ms", 2, " ms"), ""],
    ]
    return report.table(["What", "Median [range]", "At most"], rows)


def machine_table(results):
    return report.table(["", ""], report.machine_rows(results)[:-1])


TABLES = {"machine": machine_table, "sizes": size_table, "host": host_table}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--clip", type=pathlib.Path, required=True)
    parser.add_argument("--out", type=pathlib.Path, required=True)
    parser.add_argument("--publish", action="store_true")
    arguments = parser.parse_args()
    arguments.out.mkdir(parents=True, exist_ok=True)
    load = os.getloadavg()[0]
    results = {
        "machine": run.describe_machine(arguments.build),
        "settings": {"runs": ROUNDS, "seconds": 1},
        "sizes": sizes(arguments.out),
        "hosts": hosts(arguments.build),
        "stack": stack_size(),
        "memory_kb": playing(arguments),
    }
    results["machine"]["load_before"] = round(load, 2)
    (arguments.out / "footprint.json").write_text(json.dumps(results, indent=1) + "\n")
    for make in TABLES.values():
        print(f"\n{make(results)}")
    if arguments.publish:
        report.publish_tables(results, TABLES, "footprint.md")


if __name__ == "__main__":
    run.run_to_the_end(main)
