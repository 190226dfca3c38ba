#!/usr/bin/env python3
"""Runs the benchmarks in rounds and prints one table of ratios in Markdown.

    table.py ROUNDS MIN_TIME UNITS [END_TO_END_JSON]

In each round UNITS runs every benchmark once, each next to its floor and its peers, for at least
MIN_TIME seconds. A benchmark is named "line|who|bound"; of who is "brimlet" the time is ours, of
"#what" it is no time but the counter "count" that is held against the bound.

A figure is the 10th percentile of our times divided by that of the other's times: what the machine
takes away in some rounds is left out on both sides. In brackets stand the 10th and the 90th
percentile of the ratios of the single rounds.

END_TO_END_JSON is a list of what was measured elsewhere: the ratios of the rounds, whose median is
the figure, or a number that is no ratio. Entries of one line belong together; bounds may be missing.
Notes are printed below the table.

    {"line": "trivial command", "floor": [1.1, 1.12], "bound_floor": 1.17}
    {"line": "trivial command", "peer": [0.3, 0.31], "peer_name": "doas", "bound_peer": 0.4}
    {"line": "trivial command", "value": 22, "unit": "system calls", "bound": 24}
    {"note": "doas: not measured: not installed"}
"""

import json
import subprocess
import sys

HEAD = ["line", "takes", "times the floor", "at most", "times the peer", "at most", "within"]


def percentile(values, percent):
    values = sorted(values)
    return values[round((len(values) - 1) * percent / 100)]


def show_ratio(value):
    return f"{value:.2f}" if value >= 1 else f"{value:.3f}"


class Ratio:
    """How many times as long as something else, with its spread and its bound."""

    def __init__(self, figure, rounds, bound, name=""):
        self.figure, self.rounds, self.bound, self.name = figure, rounds, bound, name

    def cells(self):
        low, high = (show_ratio(percentile(self.rounds, percent)) for percent in (10, 90))
        text = f"{show_ratio(self.figure)} ({low}-{high})"
        return [f"{self.name} {text}".strip(), "" if self.bound is None else f"{self.bound:g}"]

    def is_within(self):
        return self.bound is None or self.figure <= self.bound


class Count:
    """A number that is no ratio."""

    def __init__(self, figure, what, bound):
        self.figure, self.what, self.bound = figure, what, bound

    def cells(self):
        return [f"{self.figure:g} {self.what}", "" if self.bound is None else f"{self.bound:g}"]

    def is_within(self):
        return self.bound is None or self.figure <= self.bound


def rows_of(line, takes, floor, peers):
    """A line takes a row for each peer."""
    for i, peer in enumerate(peers or [None]):
        parts = [floor if i == 0 else None, peer]
        bounded = [part for part in parts if part and part.bound is not None]
        cells = [cell for part in parts for cell in (part.cells() if part else ["", ""])]
        within = "" if not bounded else "yes" if all(p.is_within() for p in bounded) else "NO"
        yield [line if i == 0 else "", takes if i == 0 else "", *cells, within]


def run_units(program, min_time):
    """Yields name and result of each benchmark. They run in another order each time: what one of
    them leaves to the kernel to be done later is not always at the expense of the same next one."""
    run = subprocess.run(
        [program, f"--benchmark_min_time={min_time}", "--benchmark_format=json",
         "--benchmark_enable_random_interleaving=true"],
        check=False, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if run.returncode != 0:
        sys.exit(f"\n{run.stderr}{program}: status {run.returncode}")
    results = json.loads(run.stdout)["benchmarks"]
    for result in sorted(results, key=lambda result: result["family_index"]):
        line, who, bound = result["name"].split("|")
        is_real = "real_time" in bound or "manual_time" in bound
        bound = bound.split("/")[0]
        value = result["count"] if "count" in result else result["real_time" if is_real else "cpu_time"]
        yield line, who, float(bound) if bound else None, value


def measure_units(program, rounds, min_time):
    lines, bounds = {}, {}
    for i in range(rounds):
        print(f"\rround {i + 1} of {rounds}", end="", file=sys.stderr, flush=True)
        for line, who, bound, value in run_units(program, min_time):
            lines.setdefault(line, {}).setdefault(who, []).append(value)
            bounds[line, who] = bound
    print(file=sys.stderr)
    return lines, bounds


def show_time(nanoseconds):
    for unit, size in (("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def unit_rows(lines, bounds):
    for line, times in lines.items():
        ours = times.pop("brimlet")
        own = percentile(ours, 10)
        floor, peers = None, []
        for who, others in times.items():
            bound = bounds[line, who]
            if who.startswith("#"):
                peers.append(Count(max(others), who[1:], bound))
                continue
            ratio = Ratio(own / percentile(others, 10), [a / b for a, b in zip(ours, others)], bound)
            if who == "floor":
                floor = ratio
            else:
                ratio.name = who
                peers.append(ratio)
        yield from rows_of(line, show_time(own), floor, peers)


def part_of(entry):
    """What an entry of the list says of its line."""
    if "value" in entry:
        return Count(entry["value"], entry["unit"], entry.get("bound"))
    who = "floor" if "floor" in entry else "peer"
    rounds = entry[who]
    return Ratio(percentile(rounds, 50), rounds, entry.get("bound_" + who),
                 entry.get("peer_name", ""))


def end_to_end_rows(entries):
    lines = {}
    for entry in entries:
        if "note" in entry:
            continue
        floors, others = lines.setdefault(entry["line"], ([], []))
        (floors if "floor" in entry else others).append(part_of(entry))
    for line, (floors, others) in lines.items():
        yield from rows_of(line, "", floors[0] if floors else None, others)


def print_table(rows):
    rows = [HEAD, *rows]
    widths = [max(len(row[i]) for row in rows) for i in range(len(HEAD))]
    rows.insert(1, ["-" * width for width in widths])
    for row in rows:
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |")


def main():
    rounds, min_time, units = int(sys.argv[1]), sys.argv[2], sys.argv[3]
    rows = list(unit_rows(*measure_units(units, rounds, min_time)))
    entries = []
    for path in sys.argv[4:]:
        with open(path, encoding="utf-8") as file:
            entries.extend(json.load(file))
    print_table(rows + list(end_to_end_rows(entries)))
    for entry in entries:
        if "note" in entry:
            print(f"\n{entry['note'].strip()}")


main()
