"""Draws what docs/measured/speed.json holds: medians of kip_bench on one machine, by docs/measured/measure.py."""

import json
import pathlib

import numpy as np

from pictures import BLUE, ORANGE, plt, save

measured = json.loads((pathlib.Path(__file__).parent.parent / "measured/speed.json").read_text())
runs = {run["run_name"].split("/real_time")[0]: run for run in measured["benchmarks"]}
GREY = "#9a9a9a"
SECONDS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3}
MODES = ("nearest", "bilinear", "separable", "cubic")


def microseconds(name, clock="cpu_time"):
    return runs[name][clock] * SECONDS[runs[name]["time_unit"]] * 1e6


def bars(axes, groups, series, title, unit):
    """series: name, color and one value a group."""
    width = 0.8 / len(series)
    for i, (name, color, values) in enumerate(series):
        drawn = axes.bar(np.arange(len(groups)) + (i + 0.5) * width - 0.4, values, width, label=name, color=color)
        axes.bar_label(drawn, [f"{value:.0f}" if value >= 100 else f"{value:.3g}" for value in values], fontsize=6)
    axes.set_xticks(np.arange(len(groups)), groups)
    axes.set(title=title, ylabel=unit)
    axes.margins(y=0.12)
    axes.legend(fontsize=7)


figure, axes = plt.subplots(1, 2, figsize=(7.6, 3.2), sharey=True)
for place, bits in zip(axes, (8, 16)):
    speeds = {who: [1024 * 1024 / microseconds(f"transform/{mode}/u{bits}/1024/rotate10/scale1/{who}")
                    for mode in MODES] for who in ("kip", "opencv")}
    bars(place, MODES, [("kip", BLUE, speeds["kip"]), ("OpenCV 4.6", GREY, speeds["opencv"])],
         f"{bits} bits, 1024 x 1024 turned by 10 degrees", "megapixels per second" if bits == 8 else "")
save(figure, "speed_transform.png")

figure, axes = plt.subplots(1, 2, figsize=(7.6, 3.0))
for place, side in zip(axes, (16, 64)):
    series = [(word, color, [microseconds(f"cache/{mode}/u8/{side}/{use}") for mode in MODES])
              for word, color, use in (("cache, one rectangle", BLUE, "kept"), ("no cache", ORANGE, "none"),
                                       ("cache, two in turn", GREY, "changing"))]
    bars(place, MODES, series, f"{side} x {side}", "microseconds" if side == 16 else "")
save(figure, "speed_cache.png")

figure, (left, right) = plt.subplots(1, 2, figsize=(7.6, 3.0))
names = [f"projection/{mode}/u8/64x16/rotate10/kip" for mode in MODES]
bars(left, MODES,
     [("kip", BLUE, [microseconds(name) for name in names]),
      ("OpenCV 4.6", GREY, [microseconds(name[:-3] + "opencv") for name in names])],
     "A profile of 64 x 16 samples, 8 bits", "microseconds")
sides = (1024, 2048, 4096)
series = []
for mode, color in (("nearest", ORANGE), ("bilinear", BLUE)):
    prefix = [f"transform/{mode}/u8/{side}/rotate10/scale1/threads" for side in sides]
    series.append((mode, color, [microseconds(p + "1/kip", "real_time") / microseconds(p + "2/kip", "real_time")
                                 for p in prefix]))
bars(right, [f"{side} x {side}" for side in sides], series, "Two threads in place of one", "times as fast")
save(figure, "speed_small.png")
