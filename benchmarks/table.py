#!/usr/bin/python3
"""Makes one table in Markdown of what the benchmarks have written: table.py JSON...

The files are results of Google Benchmark. "Work_peer/argument" is what "Work/argument" is held
against; what has no peer is held against a bound in its own unit.

How to read it: a time is the 10th percentile of all runs, which leaves out what the machine takes
away in some; of the line of 20 MB it is the longest. What is compared took turns, but for pkexec.
The ratio is ours divided by the other's. The popen service is a bus service that runs each line
with popen, or replies a fixed text, and does nothing else: it asks nobody who the caller is, judges
and logs nothing. doas, sudo and pkexec run the same line with "sh -c" for a user who may do
everything unasked. Ours and theirs run on one processor.
"""
import json
import sys

JUDGED = ["policy, --add", "policy, --setIP", "policy, --hostapd", "policy, --disconbt",
          "IsWord, 5 bytes", "IsWord, 4 KiB", "IsNumber, 5 bytes", "IsNumber, 4 KiB",
          "IsMacAddress", "IsIpv4Address"]
# What is measured, its name, its peer's, and the most that the ratio may be, or the number where
# there is no peer (nanoseconds for a time). Without a bound it is only shown.
BOUNDS = [
    ("one trivial command", "Trivial", "popen", 1.12),
    ("one trivial command", "Trivial", "doas", 0.35),
    ("one trivial command", "Trivial", "sudo", None),
    ("one trivial command", "Trivial", "pkexec", None),
    ("one refused command", "Refused", "popen", 1.4),
    ("16 callers at once, a command", "Callers", "popen", 1.2),
    ("100 kB of output in one line", "OneLine", "popen", 1.2),
    ("100 kB of output in one-byte lines", "ByteLines", "popen", 2.2),
    ("20 MB of any byte in a line, refused", "LongestLine", None, 0.5e9),
    ("most memory then", "LongestLineMemory", None, 3),
    ("memory when idle (PSS)", "IdleMemory", "rtkit", 1),
    ("the daemon's file, stripped", "FileSize", None, 110),
    *((case, "Judge/" + case, "RE2", 1) for case in JUDGED),
    ("line of the log", "LogLine", "spdlog", 1.1),
    ("rotation of a log of 32 MiB", "Rotation", "filesystem", 1.15),
    ("INI file of 4 KiB loaded", "IniLoad/4096", "SimpleIni", 1),
    ("INI file of 64 KiB loaded", "IniLoad/65536", "SimpleIni", 1),
    ("INI file of 1 MiB loaded", "IniLoad/1048576", "SimpleIni", 0.8),
    ("password of 16 characters", "Password/16", "libsodium", 1.75),
    ("password of 256 characters", "Password/256", "libsodium", 0.12),
    ("folder of 10000 files removed", "RemoveDir/10000", "filesystem", 1.15),
]
PEERS = {"popen": "popen service", "rtkit": "rtkit-daemon", "filesystem": "std::filesystem"}


def key_of(run):
    """The work, with its argument or label, and the peer."""
    function, *rest = run["name"].split("/")
    work, _, peer = function.partition("_")
    arguments = [part for part in rest if part.isdigit()]
    return "/".join([work, *([run["label"]] if "label" in run else arguments)]), peer


def read(paths):
    """The 10th percentile of each benchmark's runs, and its unit."""
    values, units = {}, {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            runs = json.load(file)["benchmarks"]
        for run in runs:
            if run.get("error_occurred"):
                sys.exit(f"{run['name']}: {run['error_message']}")
            if run.get("run_type") != "aggregate":
                time = run["real_time" if "/real_time" in run["name"] else "cpu_time"]
                values.setdefault(key_of(run), []).append(time)
                units[key_of(run)] = run["time_unit"]
    return {key: (sorted(runs)[(len(runs) - 1) // 10], units[key]) for key, runs in values.items()}


def show(value, unit):
    if unit == "ns":
        size, unit = (1e6, "ms") if value >= 1e6 else (1e3, "us") if value >= 1e3 else (1, "ns")
        value /= size
    return f"{value:.3g} {unit}" if value < 100 else f"{value:.0f} {unit}"


def row(figures, what, work, peer, bound):
    """The cells of a row, or None where something was not measured."""
    if (work, "") not in figures or (work, peer or "") not in figures:
        return None
    own, other = figures[work, ""], figures[work, peer or ""]
    figure = own[0] / other[0] if peer else own[0]
    limit = "" if bound is None else f"{bound:.2f}" if peer else show(bound, own[1])
    beside = [PEERS.get(peer, peer), show(*other), f"{figure:.2f}"] if peer else ["", "", ""]
    verdict = "" if bound is None else "within" if figure <= bound else "NOT within"
    return [what, show(*own), *beside, limit, verdict]


def table(figures):
    rows = [["what", "takes", "next to", "takes", "ratio", "at most", ""], ["---"] * 7]
    missing = []
    for entry in BOUNDS:
        cells = row(figures, *entry)
        rows += [cells] if cells else []
        missing += [] if cells else [f"{entry[0]} ({PEERS.get(entry[2], entry[2])})"]
    widths = [max(map(len, column)) for column in zip(*rows)]
    lines = ["| " + " | ".join(map(str.ljust, cells, widths)) + " |" for cells in rows]
    return "\n".join(lines + (["", "Not measured: " + "; ".join(missing) + "."] if missing else []))


if __name__ == "__main__":
    print(table(read(sys.argv[1:])))
