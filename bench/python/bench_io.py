#!/usr/bin/env python3
"""The Python module against the C++ library on the same files: loading a 640 x 480 radiometric
image into NumPy, and reading the frames of a raw recording.

    make bench-python        (or: PYTHONPATH=build/python python3 bench/python/bench_io.py build)

Makes the files with `nordacam demo` in a scratch folder (or takes --rix and --pxm), times the
Python side, runs the matching Google Benchmark entries of nordabench (BM_Rix_LoadGivenFile,
BM_Pxm_GrabGivenFile) on the same files, and prints both with their ratio. The goal is a ratio of
at most 1.5 for both.
"""

import argparse
import glob
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

import nordalib


def per_item(loop, items, rounds=7):
    """Median over `rounds` of the processor time of loop() divided by `items`, in microseconds.
    Processor time, on both sides: the machine may be shared, and the files are in the page cache."""
    times = []
    for _ in range(rounds):
        start = time.process_time()
        loop()
        times.append((time.process_time() - start) / items * 1e6)
    return statistics.median(times)


def cpp_times(build, rix, pxm):
    env = dict(os.environ, NORDA_BENCH_RIX=rix, NORDA_BENCH_PXM=pxm)
    out = subprocess.run([os.path.join(build, "bench", "nordabench"), "--benchmark_format=json",
                          "--benchmark_filter=GivenFile", "--benchmark_repetitions=5",
                          "--benchmark_report_aggregates_only=true"],
                         env=env, capture_output=True, text=True, check=True).stdout
    result = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("aggregate_name") == "median":
            result[b["run_name"]] = b["cpu_time"]  # microseconds (the benchmarks' unit)
    return result["BM_Rix_LoadGivenFile"], result["BM_Pxm_GrabGivenFile"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", nargs="?", default="build", help="build folder (default: build)")
    parser.add_argument("--rix", help="a saved image (default: made by nordacam demo)")
    parser.add_argument("--pxm", help="a raw recording (default: made by nordacam demo)")
    args = parser.parse_args()

    scratch = tempfile.TemporaryDirectory()
    if not args.rix or not args.pxm:
        subprocess.run([os.path.join(args.build, "apps", "nordacam", "nordacam"), "demo", "--fast", "--quiet",
                        "--frames", "120", "--out", scratch.name], check=True, stdout=subprocess.DEVNULL)
    rix = args.rix or sorted(glob.glob(os.path.join(scratch.name, "IR*.RIX")))[0]
    pxm = args.pxm or glob.glob(os.path.join(scratch.name, "RAW*.pxm"))[0]

    image = nordalib.Rix.load(rix)
    print("image %s: %d x %d, %d bytes" % (rix, image.shape[1], image.shape[0], os.path.getsize(rix)))
    def load_images(n=50):
        # as a program going through images does: each replaces the last
        for _ in range(n):
            image = nordalib.Rix.load(rix)
            image.temperatures
    py_rix = per_item(load_images, 50)

    rec = nordalib.pxm.open(pxm)
    print("recording %s: %d frames of %s %s" % (pxm, len(rec), rec[0].shape, rec[0].dtype))
    def in_order():
        for frame in rec:
            pass

    def backwards():
        for i in range(len(rec) - 1, -1, -1):
            frame = rec[i]  # noqa: F841

    def with_metadata():
        for frame in rec:
            frame.metadata  # noqa: B018 (made into Python values on this first access)

    py_frame = per_item(in_order, len(rec))
    py_random = per_item(backwards, len(rec))
    py_meta = per_item(with_metadata, len(rec))

    cpp_rix, cpp_frame = cpp_times(args.build, rix, pxm)
    print()
    print("processor time per item, medians")
    print("%-48s %10s %10s %7s" % ("", "Python us", "C++ us", "ratio"))
    for name, py, cpp in (("load the image (Python: + temperatures as float32)", py_rix, cpp_rix),
                          ("read a frame, in order", py_frame, cpp_frame),
                          ("read a frame, backwards (seek each time)", py_random, cpp_frame),
                          ("read a frame and make its metadata dict", py_meta, cpp_frame)):
        print("%-48s %10.1f %10.1f %7.2f" % (name, py, cpp, py / cpp))
    return 0


if __name__ == "__main__":
    sys.exit(main())
