#!/usr/bin/env python3
"""Makes the tables and plots of bench/README.md out of the benchmark's own output.

    bench/report.py DIRECTORY LEVEL=FILE[,FILE...] ...

A file is what this wrote at a level of the processor:

    kip_bench --level=LEVEL --plain --benchmark_format=json --benchmark_filter=^transform/ \\
        --benchmark_repetitions=5

The least of the repetitions counts, of either library, since other work on the machine only adds to a time. The tables
go to the standard output, angle.svg and reduction.svg into the directory. Needs matplotlib.
"""

import collections
import json
import pathlib
import re
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

plt.rcParams.update({"font.size": 8, "axes.titlesize": 8, "figure.constrained_layout.use": True,
                     "svg.hashsalt": "kip", "svg.fonttype": "none"})
NAME = re.compile(r"transform/(\w+)/(u\d+)/(.*)/(kip|opencv)(?:/real_time)?$")
SIDES = re.compile(r"(\d+)(?:x(\d+))?/")
PLAIN = re.compile(r"1024/rotate([\d.]+)/(scale|reduce)([\d.]+)$")
NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6}
COLUMNS = [(mode, depth) for depth in ("u8", "u16") for mode in ("nearest", "bilinear", "separable", "cubic")]
COLORS = ("#2a6fbb", "#e07b00", "#3a9a5c")


def read(paths):
    """Nanoseconds per destination pixel by (mode, depth, geometry, library), in the order of the cases."""
    runs = collections.defaultdict(list)
    for run in (run for path in paths for run in json.loads(pathlib.Path(path).read_text())["benchmarks"]):
        name = NAME.match(run["run_name"])
        if not name or run["run_type"] != "iteration":
            continue
        width, height = SIDES.match(name[3]).groups()
        clock = "real_time" if "/threads" in name[3] else "cpu_time"
        runs[name.groups()].append(run[clock] * NANOSECONDS[run["time_unit"]] / (int(width) * int(height or width)))
    return {case: min(times) for case, times in runs.items()}


def print_table(title, geometries, cell):
    print(f"\n| {title} | " + " | ".join(f"{mode} {depth}" for mode, depth in COLUMNS) + " |")
    print("|---|" + "--:|" * len(COLUMNS))
    for geometry in geometries:
        print(f"| {geometry} | " + " | ".join(cell(mode, depth, geometry) for mode, depth in COLUMNS) + " |")


def title_of(geometry):
    """The table that a case belongs into."""
    if "/threads" in geometry:
        return "two threads / one"
    if re.search("reduce|scale2|shear", geometry):
        return "steps"
    return "angles" if PLAIN.match(geometry) else "sizes, widths, pitches"


def print_tables(level, runs):
    tables = collections.defaultdict(dict)
    for _, _, geometry, _ in runs:
        tables[title_of(geometry)][geometry] = True

    def speed(mode, depth, geometry):
        ours, theirs = (runs.get((mode, depth, geometry, library)) for library in ("kip", "opencv"))
        if ours is None:
            return ""
        return f"{ours:.2f} ({theirs / ours:.1f})" if theirs else f"{ours:.2f}"

    def gain(mode, depth, geometry):
        one, two = (runs.get((mode, depth, f"{geometry}/threads{count}", "kip")) for count in (1, 2))
        return f"{one / two:.2f}" if one and two else ""

    for title, geometries in tables.items():
        if "threads" in title:
            print_table(f"{level}: {title}", [g[:-9] for g in geometries if g.endswith("/threads2")], gain)
        else:
            print_table(f"{level}: {title}", geometries, speed)


def points_of(runs, mode, depth, library, place):
    """The points of a line. place(degrees, step): where on the x axis, None where a case is not of this plot."""
    for (its_mode, its_depth, geometry, its_library), time in runs.items():
        plain = PLAIN.match(geometry)
        if plain and (its_mode, its_depth, its_library) == (mode, depth, library):
            step = float(plain[3]) if plain[2] == "reduce" else 1.0 / float(plain[3])
            at = place(float(plain[1]), step)
            if at is not None:
                yield at, time


def draw(levels, title, label, place):
    figure, axes = plt.subplots(2, 4, figsize=(9.6, 4.4), sharex=True)
    lines = [("opencv", "OpenCV", next(iter(levels.values())), "#8a8a8a")]
    lines += [("kip", f"kip, {level}", runs, color) for (level, runs), color in zip(levels.items(), COLORS)]
    for panel, (mode, depth) in zip(axes.flat, COLUMNS):
        for library, name, runs, color in lines:
            points = sorted(points_of(runs, mode, depth, library, place))
            panel.plot(*zip(*points), marker="o", markersize=3, linewidth=1.2, color=color, label=name)
        panel.set_title(f"{mode}, {depth}")
        panel.set_ylim(bottom=0)
        panel.grid(alpha=0.3)
    for panel in axes[1]:
        panel.set_xlabel(label)
    for panel in axes[:, 0]:
        panel.set_ylabel("ns per pixel")
    axes[0, 0].legend(fontsize=7)
    figure.suptitle(title, fontsize=9)
    return figure


def main():
    directory = pathlib.Path(sys.argv[1])
    levels = {level: read(paths.split(",")) for level, paths in (argument.split("=", 1) for argument in sys.argv[2:])}
    for level, runs in levels.items():
        print_tables(level, runs)
    plots = {
        "angle.svg": draw(levels, "1024 x 1024 destination pixels, one source pixel each", "degrees",
                          lambda degrees, step: degrees if step == 1.0 else None),
        "reduction.svg": draw(levels, "1024 x 1024 destination pixels, turned by 10 degrees", "source pixels a step",
                              lambda degrees, step: step if degrees == 10.0 else None),
    }
    for name, figure in plots.items():
        figure.savefig(directory / name, metadata={"Date": None})


if __name__ == "__main__":
    main()
