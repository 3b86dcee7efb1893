# SPDX-License-Identifier: MIT
"""Writes tables and a plot of the results that ./scripts/bench has stored:

    python3 bench/report.py build/bench/results.json [--svg FILE] [--publish]

--publish writes the tables to docs/benchmarks.md, between its markers, and the plot to
docs/cpu-per-packet.svg.
"""
import argparse
import json
import os
import pathlib
import platform
import re
from statistics import median
from xml.sax.saxutils import escape

DOCS = pathlib.Path(__file__).resolve().parent.parent / "docs"
NAMES = {"udp": "UDP", "interleaved": "interleaved"}
COLOURS = {"udp": "#1f6feb", "interleaved": "#c2410c"}


# Figures

def number(value, digits):
    return f"{value:.{digits}f}"


def spread(values, digits=2):
    """The median, and the range when the values differ."""
    text = number(median(values), digits)
    low, high = number(min(values), digits), number(max(values), digits)
    return text if low == high else f"{text} [{low}-{high}]"


def figure(values, digits=2, unit=""):
    return spread(values, digits) + unit if values else "failed"


class FanOut:
    """The whole-process figures by transport and number of clients."""

    def __init__(self, results):
        self.results = results
        self.clients = sorted({result["clients"] for result in results})

    def of(self, transport, clients):
        return [result for result in self.results
                if (result["transport"], result["clients"]) == (transport, clients)]

    def cost(self, transport, clients, who="host"):
        return [result[who]["us_per_packet"] for result in self.of(transport, clients)]

    def ratio(self, transport, clients):
        """The cost divided by that of the floor in the same run."""
        return [result["host"]["us_per_packet"] / result["floor"]["us_per_packet"]
                for result in self.of(transport, clients)]

    def between(self, transport, clients, others):
        """The cost for `clients` divided by that for `others`, for each run."""
        pairs = zip(self.cost(transport, clients), self.cost(transport, others))
        return [cost / other for cost, other in pairs]

    def lost(self):
        return sum(result["host"]["lost"] + result["host"]["out_of_order"]
                   for result in self.results)


class Pieces:
    """The benchmarks of one process. Maps name/variant/argument to the values of all repetitions."""

    def __init__(self, benchmarks):
        self.runs = {}
        for run in benchmarks:
            if run["run_type"] != "iteration" or run.get("error_occurred"):
                continue
            parts = [part for part in run["run_name"].split("/")
                     if ":" not in part and part not in ("manual_time", "real_time")]
            self.runs.setdefault("/".join(parts), []).append(run)

    def of(self, name, key="real_time"):
        return [run[key] for run in self.runs.get(name, [])]


# Tables

def table(head, rows):
    lines = [head, *rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(head))]
    rule = ["-" * width for width in widths]
    return "\n".join("| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |"
                     for line in [head, rule, *rows])


def short_machine():
    return f"{os.cpu_count()} cores, {platform.machine()}, Linux {platform.release()}"


def machine_rows(results):
    machine, settings = results["machine"], results["settings"]
    return [
        ["machine", f"{machine['processor']}, {machine['cores']} cores, "
                    f"{machine['memory_gb']} GB; load before: {machine['load_before']}"],
        ["system", f"{machine['system']}, Linux {machine['kernel']}"],
        ["compiler", f"{machine['compiler']}, {machine['build_type']}"],
        ["commit", f"{machine['commit']} (version {machine['version']}), {machine['date']}"],
        ["measured", f"{settings['runs']} runs of {settings['seconds']} s each"],
    ]


def machine_table(results):
    return table(["", ""], machine_rows(results))


def fan_out_table(results):
    fan_out = FanOut(results["fan_out"])
    head = ["Clients"]
    for name in NAMES.values():
        head += [name, "floor", "ratio"]
    rows = []
    for clients in fan_out.clients:
        row = [str(clients)]
        for transport in NAMES:
            row += [spread(fan_out.cost(transport, clients)),
                    spread(fan_out.cost(transport, clients, "floor")),
                    spread(fan_out.ratio(transport, clients))]
        rows.append(row)
    return table(head, rows)


def whole_table(results):
    fan_out = FanOut(results["fan_out"])
    rows = []
    for clients, others, aim in ((16, 100, "1.5"), (128, 32, "1.05")):
        for transport, name in NAMES.items():
            if {clients, others} <= set(fan_out.clients):
                rows.append([f"CPU per packet with {clients} clients, divided by that with {others}, {name}",
                             spread(fan_out.between(transport, clients, others)), aim])
    memory = results["memory_kb"]
    for kind, text, aim in (("idle", "that is connected and idle", "40 kB"),
                            ("udp", "that plays over UDP", "60 kB"),
                            ("interleaved", "that plays interleaved", "60 kB")):
        rows.append([f"resident memory per client {text} (100 clients)",
                     spread([figures[kind] for figures in memory], 1) + " kB", aim])
    for kind, text in (("cue", ""), ("no_cue", ", with `--no-cue`")):
        rows.append([f"from the PLAY reply to the first complete key picture{text}",
                     spread(results["first_picture_ms"][kind], 0) + " ms", ""])
    return table(["What", "Median [range]", "At most"], rows)


# Label, name, counter, digits, unit, aim.
PIECES = [
    ("parse OPTIONS", "ParseRequest/options", "real_time", 0, "ns", ""),
    ("parse DESCRIBE", "ParseRequest/describe", "real_time", 0, "ns", ""),
    ("parse SETUP", "ParseRequest/setup", "real_time", 0, "ns", ""),
    ("reply to OPTIONS: CPU of the server", "AnswerOptions", "server_us", 1, "µs", ""),
    ("reply to OPTIONS: wait of the client", "AnswerOptions", "real_time", 1, "µs", ""),
    ("reply to DESCRIBE: CPU of the server", "AnswerOnce/describe", "server_us", 1, "µs", ""),
    ("reply to SETUP: CPU of the server", "AnswerOnce/setup", "server_us", 1, "µs", ""),
    ("from connect to PLAY reply, UDP: wait of the client", "Dialogue/udp", "real_time", 0, "µs", ""),
    ("from connect to PLAY reply, interleaved: wait of the client", "Dialogue/interleaved",
     "real_time", 0, "µs", ""),
    ("stamp a packet, UDP", "StampPush/udp", "ns_per_packet", 1, "ns", ""),
    ("stamp a packet, interleaved", "StampPush/interleaved", "ns_per_packet", 1, "ns", ""),
    ("a push, per session of another stream (128 sessions)", "PushToNone/other_stream/128",
     "ns_per_session", 1, "ns", "50 ns"),
    ("a push, per session of another channel (128 sessions)", "PushToNone/other_channel/128",
     "ns_per_session", 1, "ns", "50 ns"),
    ("a push, per session that does not play (128 sessions)", "PushToNone/not_playing/128",
     "ns_per_session", 1, "ns", "50 ns"),
    ("`RTSPServer_Stop` with 100 clients, UDP", "StopWhilePlaying/udp", "real_time", 1, "ms",
     "50 ms"),
    ("`RTSPServer_Stop` with 100 clients, interleaved", "StopWhilePlaying/interleaved",
     "real_time", 1, "ms", "50 ms"),
]


def pieces_table(results):
    pieces = Pieces(results["pieces"])
    rows = [[label, figure(pieces.of(name, key), digits, f" {unit}"), aim]
            for label, name, key, digits, unit, aim in PIECES]
    return table(["What", "Median [range]", "At most"], rows)


def push_table(results):
    pieces = Pieces(results["pieces"])
    head = ["Clients"]
    for name in NAMES.values():
        head += [f"push, {name}", "one call per picture", "ratio", "one call per packet"]
    rows = []
    for clients in (1, 16, 32, 100, 128):
        row = [str(clients)]
        for transport in NAMES:
            name = f"PushToAll/{transport}/{clients}"
            row += [figure(pieces.of(name, key)) for key in
                    ("us_per_packet", "floor_us_per_packet", "ratio", "each_us_per_packet")]
        rows.append(row)
    return table(head, rows)


def delivery_table(results):
    pieces = Pieces(results["pieces"])
    rows = []
    for transport, name in NAMES.items():
        row = [f"{name}, 100 clients"]
        row += [figure(pieces.of(f"Delivery/{transport}", key), 0)
                for key in ("p50_us", "p99_us", "max_us")]
        rows.append(row)
    return table(["Microseconds", "p50", "p99", "longest"], rows)


def storm_table(results):
    storms = results["storms"]
    rows = [["runs in which a client waited for a lost SYN",
             f"{sum(storm['lost_syn'] for storm in storms)} of {len(storms)}", ""]]
    for lost, text, aim in ((False, "the other runs", "60 ms"), (True, "these runs", "")):
        times = [storm["all_ready_ms"] for storm in storms if storm["lost_syn"] == lost]
        if times:
            rows.append([f"until all 100 clients have the PLAY reply, {text}",
                         spread(times, 1) + " ms", aim])
    return table(["What", "Median [range]", "At most"], rows)


def bad_table(results):
    fan_out, pieces = FanOut(results["fan_out"]), Pieces(results["pieces"])
    rows = []
    for transport, name in NAMES.items():
        cost, clients = max((max(fan_out.cost(transport, clients)), clients)
                            for clients in fan_out.clients)
        ratio, of = max((max(fan_out.ratio(transport, clients)), clients)
                        for clients in fan_out.clients)
        rows.append([f"most expensive run, {name}: CPU per packet",
                     f"{cost:.2f} µs, {clients} clients", ""])
        rows.append([f"highest ratio to the floor, {name}",
                     f"{ratio:.2f}, {of} clients", ""])
    rows.append(["packets lost or out of order, of "
                 f"{sum(result['host']['packets'] for result in fan_out.results) / 1e6:.1f} million",
                 str(fan_out.lost()), "0"])
    for label, key, digits, unit, aim in (
            ("a push to 64 interleaved clients that all read", "reading_us", 0, "µs", ""),
            ("the same push when one of them does not read", "stalled_us", 0, "µs", ""),
            ("the change by that client", "change_percent", 1, "%", "10 %")):
        rows.append([label, figure(pieces.of("OneStalled", key), digits, f" {unit}"), aim])
    return table(["What", "Figure", "At most"], rows)


TABLES = {
    "machine": machine_table,
    "fan-out": fan_out_table,
    "whole": whole_table,
    "pieces": pieces_table,
    "push": push_table,
    "delivery": delivery_table,
    "storm": storm_table,
    "bad": bad_table,
}
TITLES = {
    "machine": "Machine",
    "fan-out": "CPU microseconds of the server process per packet and client",
    "whole": "The whole process",
    "pieces": "The pieces, in one process",
    "push": "A push, in one process: CPU microseconds per packet and client",
    "delivery": "From the push to the last byte in a client's socket",
    "storm": "100 clients that connect at once",
    "bad": "The bad cases",
}


# The plot

WIDTH, HEIGHT = 760, 420
LEFT, RIGHT, TOP, BOTTOM = 60, 20, 70, 50


def nice_step(largest):
    return next(step for step in (0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50, 100, 1e9)
                if largest / step <= 8)


class Axes:
    def __init__(self, most_clients, most_cost):
        self.step = nice_step(most_cost)
        self.top = self.step * (int(most_cost / self.step) + 1)
        self.most_clients = most_clients

    def x(self, clients):
        return LEFT + (WIDTH - LEFT - RIGHT) * clients / (self.most_clients * 1.03)

    def y(self, cost):
        return HEIGHT - BOTTOM - (HEIGHT - TOP - BOTTOM) * cost / self.top


def text(x, y, content, anchor="middle", size=12):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}">'
            f"{escape(content)}</text>")


def line(x1, y1, x2, y2, style):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" {style}/>'


def draw_grid(axes, clients):
    parts = []
    for i in range(round(axes.top / axes.step) + 1):
        y = axes.y(i * axes.step)
        parts.append(line(LEFT, y, WIDTH - RIGHT, y, 'stroke="#ddd"'))
        parts.append(text(LEFT - 8, y + 4, f"{i * axes.step:.4g}", "end"))
    for n in clients:
        parts.append(text(axes.x(n), HEIGHT - BOTTOM + 18, str(n)))
    parts.append(text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - 10, "clients"))
    return parts


def draw_curve(axes, points, colour, dash):
    """points: numbers of clients, with the costs of all runs. The range lines of the dashed curve are
    4 units to the right, so that they do not cover those of the other."""
    style = f'stroke="{colour}"'
    path = " ".join(f"{axes.x(n):.1f},{axes.y(median(costs)):.1f}" for n, costs in points)
    parts = [f'<polyline points="{path}" fill="none" {style} stroke-width="2" {dash}/>']
    for n, costs in points:
        x = axes.x(n) + (4 if dash else 0)
        parts.append(line(x, axes.y(min(costs)), x, axes.y(max(costs)), style))
        parts.append(f'<circle cx="{axes.x(n):.1f}" cy="{axes.y(median(costs)):.1f}" r="3" '
                     f'fill="{colour}"/>')
    return parts


def plot(results, other="floor"):
    """The curves of the host and of the program that it is compared with."""
    fan_out, machine = FanOut(results["fan_out"]), results["machine"]
    curves = []
    for transport, name in NAMES.items():
        for who, label, dash in (("host", name, ""),
                                 (other, f"{name}, {other}", 'stroke-dasharray="6 4"')):
            points = [(n, fan_out.cost(transport, n, who)) for n in fan_out.clients]
            curves.append((points, COLOURS[transport], dash, label))
    axes = Axes(max(fan_out.clients),
                max(cost for points, *_ in curves for _, costs in points for cost in costs))
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
             'font-family="sans-serif">',
             f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
             text(WIDTH / 2, 22, "CPU microseconds of the server process per packet and client",
                  size=15),
             text(WIDTH / 2, 40, f"median and range; {machine['cores']} cores, Linux "
                  f"{machine['kernel']}, commit {machine['commit']}", size=11)]
    parts += draw_grid(axes, fan_out.clients)
    for i, (points, colour, dash, label) in enumerate(curves):
        parts += draw_curve(axes, points, colour, dash)
        x = LEFT + 20 + i * 165
        parts.append(line(x, 57, x + 30, 57, f'stroke="{colour}" stroke-width="2" {dash}'))
        parts.append(text(x + 36, 61, label, "start"))
    return "\n".join([*parts, "</svg>", ""])


# Output

def publish_tables(results, tables, page_name="benchmarks.md"):
    page = DOCS / page_name
    content = page.read_text()
    for name, make in tables.items():
        pattern = rf"(<!-- figures: {name} -->\n).*?(<!-- end -->)"
        text_of_table = make(results)
        content, count = re.subn(pattern, lambda m: f"{m[1]}\n{text_of_table}\n\n{m[2]}", content,
                                 flags=re.DOTALL)
        if count != 1:
            raise SystemExit(f"error: {page} has no place for the figures '{name}'")
    page.write_text(content)


def publish(results):
    publish_tables(results, TABLES)
    (DOCS / "cpu-per-packet.svg").write_text(plot(results))


def write(results, svg, publishing):
    for name, make in TABLES.items():
        print(f"\n{TITLES[name]}\n\n{make(results)}")
    if svg is not None:
        svg.write_text(plot(results))
    if publishing:
        publish(results)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("results", type=pathlib.Path)
    parser.add_argument("--svg", type=pathlib.Path)
    parser.add_argument("--publish", action="store_true")
    arguments = parser.parse_args()
    write(json.loads(arguments.results.read_text()), arguments.svg, arguments.publish)


if __name__ == "__main__":
    main()
