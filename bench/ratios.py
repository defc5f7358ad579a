#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs (or reads) the benchmark binary's JSON and prints one table of time ratios per operation.

Benchmarks are named BM_<Operation>_Ombrel, BM_<Operation>_OpenCV (and optionally BM_<Operation>_Packed);
BM_Memcpy is the memory limit. Usage: bench/ratios.py build-release/bench/ombrel_bench [--filter REGEX]
or bench/ratios.py --json results.json
"""
import argparse, json, re, subprocess, sys
from collections import defaultdict

def load(args):
    if args.json:
        with open(args.json) as f:
            return json.load(f)
    cmd = [args.binary, "--benchmark_format=json", "--benchmark_repetitions=%d" % args.repetitions,
           "--benchmark_report_aggregates_only=true"]
    if args.filter:
        cmd.append("--benchmark_filter=" + args.filter)
    return json.loads(subprocess.run(cmd, check=True, capture_output=True, text=True).stdout)

def main():
    p = argparse.ArgumentParser()
    p.add_argument("binary", nargs="?")
    p.add_argument("--json")
    p.add_argument("--filter")
    p.add_argument("--repetitions", type=int, default=3)
    args = p.parse_args()
    data = load(args)
    times = defaultdict(dict)  # (op, size) -> impl -> ns
    for b in data["benchmarks"]:
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        name = b.get("run_name", b["name"])
        m = re.match(r"BM_(\w+?)(?:_(Ombrel|OpenCV|Packed))?/(\d+)", name)
        if not m:
            continue
        op, impl, size = m.group(1), m.group(2) or "Ref", int(m.group(3))
        times[(op, size)][impl] = b["real_time"] * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[b["time_unit"]]
    sizes = {0: "1024x1024", 1: "2592x1944"}
    print("%-22s %-10s %12s %12s %12s %9s %9s %9s" % ("operation", "size", "ours us", "opencv us",
          "packed us", "ours/cv", "pack/ours", "ours/mem"))
    for (op, size) in sorted(times):
        if op == "Memcpy":
            continue
        t = times[(op, size)]
        mem = times.get(("Memcpy", size), {}).get("Ref")
        ours, cv, packed = t.get("Ombrel"), t.get("OpenCV"), t.get("Packed")
        fmt = lambda v: "%12.1f" % (v / 1e3) if v else "%12s" % "-"
        ratio = lambda a, b: "%9.2f" % (a / b) if a and b else "%9s" % "-"
        print("%-22s %-10s %s %s %s %s %s %s" % (op, sizes.get(size, size), fmt(ours), fmt(cv), fmt(packed),
              ratio(ours, cv), ratio(packed, ours), ratio(ours, mem)))

if __name__ == "__main__":
    sys.exit(main())
