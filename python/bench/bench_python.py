#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Python-side costs of the ombrel module.

1. Per-call overhead of go() on a 640 x 480 frame: the time of agent.go() called from Python less the time of
   the same agent's Go() called in a C++ loop (agent.native_go_seconds), per call, best of several rounds.
2. Blob analysis of a folder of images from Python beside cv2.threshold + cv2.connectedComponentsWithStats on
   the same files (a generated folder when none is given). Reading the files is timed apart.

Run: PYTHONPATH=build/python /usr/bin/python3 python/bench/bench_python.py [FOLDER] [--band 0:100]
"""
import argparse
import glob
import os
import sys
import tempfile
import time

import cv2
import numpy as np

import ombrel


def best_per_call(fn, calls, rounds=7):
    best = float("inf")
    for _ in range(rounds):
        start = time.perf_counter()
        fn(calls)
        best = min(best, (time.perf_counter() - start) / calls)
    return best


def python_loop(agent):
    def run(calls):
        go = agent.go
        for _ in range(calls):
            go()
    return run


def overhead_table():
    rng = np.random.default_rng(1)
    frame = rng.integers(0, 256, size=(480, 640), dtype=np.uint8)
    other = rng.integers(0, 256, size=(480, 640), dtype=np.uint8)
    parts = np.full((480, 640), 200, np.uint8)
    parts[100:200, 100:300] = 20
    agents = {
        "histogram 640x480": ombrel.HistogramAgent(frame),
        "arith add 640x480": ombrel.ArithAgent("add", frame, other),
        "blob 640x480 (2 parts)": ombrel.BlobAgent(parts),
        "sobel mag 640x480": ombrel.SobelAgent(frame),
        "histogram 8x8 region": ombrel.HistogramAgent(frame, roi=(0, 0, 8, 8)),
    }
    print("Per-call overhead of go() from Python (best of 7 rounds, microseconds per call)")
    print(f"{'agent':<26} {'C++ Go()':>10} {'Python go()':>12} {'overhead':>9}")
    for name, agent in agents.items():
        calls = 2000 if "8x8" in name else 200
        native = best_per_call(lambda n: agent.native_go_seconds(n), calls)
        python = best_per_call(python_loop(agent), calls)
        print(f"{name:<26} {native * 1e6:>10.2f} {python * 1e6:>12.2f} {(python - native) * 1e6:>9.2f}")
    print()


def make_folder(path, count=20):
    rng = np.random.default_rng(7)
    for i in range(count):
        img = np.full((480, 640), 210, np.uint8)
        for _ in range(40):
            x, y = rng.integers(20, 620), rng.integers(20, 460)
            cv2.circle(img, (int(x), int(y)), int(rng.integers(3, 18)), int(rng.integers(0, 90)), -1)
        cv2.imwrite(os.path.join(path, f"part{i:02d}.png"), img)


def folder_table(folder, low, high):
    files = sorted(f for ext in ("png", "pgm", "pbm", "tif", "jpg") for f in glob.glob(os.path.join(folder, "*." + ext)))
    start = time.perf_counter()
    images = [cv2.imread(f, cv2.IMREAD_GRAYSCALE) for f in files]
    read = time.perf_counter() - start

    def ombrel_oneliner():
        return [len(ombrel.blob(img, band=(low, high)).objects) for img in images]

    agent = ombrel.BlobAgent(images[0], band=(low, high))
    buffers = [ombrel.Buffer(img) for img in images]

    def ombrel_agent():
        counts = []
        for buf in buffers:
            agent.go(buf)
            counts.append(int((agent.tree()[1] == 0).sum()))
        return counts

    def ombrel_agent_shapes():
        counts = []
        for buf in buffers:
            agent.go(buf)
            counts.append(int((agent.shapes()[:, 0] > 0).sum() - (agent.tree()[1] != 0).sum()))
        return counts

    def opencv():
        counts = []
        for img in images:
            _, binary = cv2.threshold(img, high, 255, cv2.THRESH_BINARY_INV)  # v <= high (low is 0 here)
            n, _, stats, _ = cv2.connectedComponentsWithStats(binary, connectivity=8)
            counts.append(n - 1)
        return counts

    print(f"Blob analysis of {len(files)} images in {folder} (band {low}..{high}; reading took {read * 1e3:.1f} ms)")
    print(f"{'method':<52} {'ms total':>9} {'ms/image':>9} {'objects':>8}")
    for name, fn in [("ombrel.blob() one-liner (standard figures + features)", ombrel_oneliner),
                     ("ombrel.BlobAgent.go() on Buffers made once", ombrel_agent),
                     ("BlobAgent.go() + shapes() (standard figures)", ombrel_agent_shapes),
                     ("cv2.threshold + connectedComponentsWithStats", opencv)]:
        best, counts = float("inf"), None
        for _ in range(3):
            start = time.perf_counter()
            counts = fn()
            best = min(best, time.perf_counter() - start)
        print(f"{name:<52} {best * 1e3:>9.1f} {best * 1e3 / len(files):>9.2f} {sum(counts):>8}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", nargs="?")
    parser.add_argument("--band", default="0:100")
    args = parser.parse_args()
    low, high = (int(v) for v in args.band.split(":"))
    if low != 0:
        sys.exit("--band: OpenCV's single threshold needs a band starting at 0")
    overhead_table()
    if args.folder:
        folder_table(args.folder, low, high)
    else:
        with tempfile.TemporaryDirectory() as tmp:
            make_folder(tmp)
            folder_table(tmp, low, high)


if __name__ == "__main__":
    main()
