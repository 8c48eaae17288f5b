#!/usr/bin/env python3
"""Measures what the guide's page about speed shows: measure.py PROGRAM, where PROGRAM is kip_bench. Writes speed.json.

Of Google Benchmark's own output the medians stay, and of its context what tells machines apart.
"""

import json
import pathlib
import subprocess
import sys

FILTER = "|".join([
    "transform/.*/1024/rotate10/scale1/(kip|opencv)$",
    "transform/(nearest|bilinear)/u8/.*/threads./kip",
    "projection/.*/u8/64x16/.*(kip|opencv)$",
    "cache/",
])


def processor():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.split(":")[1].strip()
    return "unknown"


output = subprocess.run(
    [sys.argv[1], "--plain", f"--benchmark_filter={FILTER}", "--benchmark_format=json", "--benchmark_repetitions=7",
     "--benchmark_enable_random_interleaving=true", "--benchmark_report_aggregates_only=true"],
    check=True, stdout=subprocess.PIPE).stdout
measured = json.loads(output)
context = {key: measured["context"][key] for key in ("date", "num_cpus", "mhz_per_cpu")}
context["processor"] = processor()
context["level"] = "AVX-512" if "avx512vbmi" in pathlib.Path("/proc/cpuinfo").read_text() else "AVX2"
medians = [{key: run[key] for key in ("run_name", "real_time", "cpu_time", "time_unit", "Mpixel") if key in run}
           for run in measured["benchmarks"] if run.get("aggregate_name") == "median"]
lines = ",\n".join(json.dumps(run) for run in medians)
pathlib.Path(__file__).with_name("speed.json").write_text(
    f'{{"context": {json.dumps(context)},\n"benchmarks": [\n{lines}\n]}}\n')
