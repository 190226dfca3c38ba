#!/usr/bin/python3
"""Draws for the README what the benchmarks have written: plot.py SVG JSON..."""
import io
import sys

import matplotlib.pyplot

from table import read, show

OURS, OTHERS, TEXT = "#2f81d6", "#8f959c", "#767c84"  # all are seen on white and on black
LIBRARY = [("line of the log", "LogLine", "spdlog"), ("INI, 4 KiB", "IniLoad/4096", "SimpleIni"),
           ("INI, 64 KiB", "IniLoad/65536", "SimpleIni"),
           ("INI, 1 MiB", "IniLoad/1048576", "SimpleIni")]


def draw(axes, title, names, bars):
    """Bars from top to bottom: place, length, colour, label."""
    places, lengths, colours, labels = zip(*bars)
    axes.set_title(title, loc="left", color=TEXT, fontsize=11, fontweight="bold")
    axes.bar_label(axes.barh(places, lengths, color=colours), labels, padding=4, color=TEXT)
    axes.set_xlim(0, max(lengths) * 1.45)  # leaves room for the labels
    axes.set_ylim(max(places) + 0.5, -0.5)
    axes.set_xticks([])
    axes.set_yticks(*names)
    axes.tick_params(axis="y", length=0, labelcolor=TEXT)
    axes.spines[:].set_visible(False)


def main():
    # The same bytes for the same figures; text stays text, in the reader's own font.
    matplotlib.rcParams.update({"svg.hashsalt": "brimlet", "svg.fonttype": "none"})
    figure, axes = matplotlib.pyplot.subplots(1, 2, figsize=(7.3, 2.6), layout="constrained")
    figures = read(sys.argv[2:])
    peers = [peer for peer in ("", "doas", "sudo", "pkexec") if ("Trivial", peer) in figures]
    times = [figures["Trivial", peer] for peer in peers]
    draw(axes[0], "One trivial command as root", (range(len(peers)), ["brimletd", *peers[1:]]),
         [(i, time[0], OTHERS if i else OURS, show(*time)) for i, time in enumerate(times)])
    bars = []
    for i, (_, work, peer) in enumerate(LIBRARY):
        own, other = figures[work, ""], figures[work, peer]
        bars += [(2.4 * i, own[0] / other[0], OURS, show(*own) + ", brimlet"),
                 (2.4 * i + 0.9, 1, OTHERS, f"{show(*other)}, {peer}")]
    draw(axes[1], "The library beside its peers",
         ([2.4 * i + 0.45 for i in range(len(LIBRARY))], [name for name, _, _ in LIBRARY]), bars)
    svg = io.StringIO()
    figure.savefig(svg, format="svg", transparent=True, metadata={"Date": None, "Creator": None})
    with open(sys.argv[1], "w", encoding="utf-8") as file:
        file.write(" ".join(svg.getvalue().split()) + "\n")


main()
