#!/usr/bin/python3
"""Makes one table in Markdown of what the benchmarks have written.

    table.py JSON...

The files are results of Google Benchmark. "Work_peer/argument" is what "Work/argument" is held
against; "Work" alone is held against a bound in its own unit.
"""
import json
import sys

# What is measured, its name, the peer's, and the bound. A time may be at most so many times the
# peer's; what has no peer is a number. Without a bound it is only shown.
BOUNDS = [
    ("one trivial command", "Trivial", "popen", 1.12),
    ("one trivial command", "Trivial", "doas", 0.35),
    ("one trivial command", "Trivial", "sudo", None),
    ("one trivial command", "Trivial", "pkexec", None),
    ("one refused command", "Refused", "popen", 1.4),
    ("16 callers at once, a command", "Callers", "popen", 1.2),
    ("100 kB of output in one line", "OneLine", "popen", 1.2),
    ("100 kB of output in one-byte lines", "ByteLines", "popen", 2.2),
    ("20 MB of any byte in a line, refused", "LongLine", None, 0.5e9),
    ("memory for it", "LongLineMemory", None, 3),
    ("memory when idle (PSS)", "IdleMemory", "rtkit", 1),
    ("the daemon's file, stripped", "FileSize", None, 110),
    ("policy, --add", "Policy/add", "RE2", 1),
    ("policy, --setIP", "Policy/setIP", "RE2", 1),
    ("policy, --hostapd", "Policy/hostapd", "RE2", 1),
    ("policy, --disconbt", "Policy/disconbt", "RE2", 1),
    ("IsWord, 5 bytes", "IsWord/5", "RE2", 1),
    ("IsWord, 64 bytes", "IsWord/64", "RE2", 1),
    ("IsWord, 4 KiB", "IsWord/4096", "RE2", 1),
    ("IsNumber, 5 bytes", "IsNumber/5", "RE2", 1),
    ("IsNumber, 64 bytes", "IsNumber/64", "RE2", 1),
    ("IsNumber, 4 KiB", "IsNumber/4096", "RE2", 1),
    ("IsMacAddress", "IsMacAddress", "RE2", 1),
    ("IsIpv4Address", "IsIpv4Address", "RE2", 1),
    ("line of the log", "LogLine", "spdlog", 1.1),
    ("rotation of a log of 32 MiB", "Rotation", "filesystem", 1.15),
    ("INI file loaded, 4 KiB", "IniLoad/4096", "SimpleIni", 1),
    ("INI file loaded, 64 KiB", "IniLoad/65536", "SimpleIni", 1),
    ("INI file loaded, 1 MiB", "IniLoad/1048576", "SimpleIni", 0.8),
    ("password of 16 characters", "Password/16", "libsodium", 1.6),
    ("password of 256 characters", "Password/256", "libsodium", 0.12),
    ("32 random letters", "Letters/32", "libsodium", 0.8),
    ("folder of 10000 files removed", "RemoveDir/10000", "filesystem", 1.15),
]
PEERS = {"popen": "popen service", "rtkit": "rtkit-daemon", "filesystem": "std::filesystem"}
HEAD = ["what", "takes", "next to", "takes", "ratio", "at most", ""]
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def key_of(name):
    """The work and the peer in a name, without what Google Benchmark adds of how it has run it."""
    function, *rest = name.split("/")
    work, _, peer = function.partition("_")
    return "/".join([work, *(part for part in rest if ":" not in part and "_time" not in part)]), peer


def read(paths):
    """The 10th percentile of the runs of each benchmark, and its unit: what the machine takes away
    in some of them is left out."""
    runs, units = {}, {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            results = json.load(file)["benchmarks"]
        for run in results:
            if run.get("error_occurred"):
                sys.exit(f"{run['name']}: {run['error_message']}")
            if run.get("run_type") == "aggregate":
                continue
            key, unit = key_of(run["name"]), run["time_unit"]
            time = run["real_time" if "_time" in run["name"] else "cpu_time"]
            runs.setdefault(key, []).append(time * NANOSECONDS.get(unit, 1))
            units[key] = "ns" if unit in NANOSECONDS else unit
    return {key: (sorted(values)[(len(values) - 1) // 10], units[key])
            for key, values in runs.items()}


def show(value, unit):
    if unit == "ns":
        unit, size = next(pair for pair in reversed(NANOSECONDS.items())
                          if value >= pair[1] or pair[1] == 1)
        value /= size
    return f"{value:.0f} {unit}" if value >= 100 else f"{value:.3g} {unit}"


def row(figures, what, work, peer, bound):
    """The cells of a row; None where nothing was measured."""
    own, other = figures.get((work, "")), figures.get((work, peer or ""))
    if own is None or other is None:
        return None
    figure = own[0] / other[0] if peer else own[0]
    verdict = "" if bound is None else "within" if figure <= bound else "NOT within"
    if peer:
        limit = "" if bound is None else f"{bound:.2f}"
        return [what, show(*own), PEERS.get(peer, peer), show(*other), f"{figure:.2f}", limit, verdict]
    return [what, show(*own), "", "", "", show(bound, own[1]), verdict]


def table(figures):
    rows = [HEAD, ["---"] * len(HEAD)]
    missing = []
    for entry in BOUNDS:
        cells = row(figures, *entry)
        if cells:
            rows.append(cells)
        else:
            missing.append(" next to ".join(filter(None, (entry[0], PEERS.get(entry[2], entry[2])))))
    widths = [max(map(len, column)) for column in zip(*rows)]
    lines = ["| " + " | ".join(map(str.ljust, cells, widths)) + " |" for cells in rows]
    return "\n".join(lines) + ("\n\nNot measured: " + ", ".join(missing) + "." if missing else "")


if __name__ == "__main__":
    print(table(read(sys.argv[1:])))
