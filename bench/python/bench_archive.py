#!/usr/bin/env python3
"""Archive throughput of nordalib.analysis.archive: images a second, serially and with Dask on one
and on two worker processes, and the speed-up of two workers over one.

    make bench-python        (or: PYTHONPATH=build/python python3 bench/python/bench_archive.py build)

Makes three images with `nordacam demo` in a scratch folder (or takes --rix), links them into a
folder of --images files, and times the table of the whole folder with one area (the worker
cluster started and warmed up beforehand, as a survey's cluster would be). Goals: 200 images a
second on two cores; two workers 1.7 times one. Wall-clock times: on a shared machine they show
what the machine gave, so the processor times (serial; each worker's and the client's) and the load
average are printed beside them.
"""

import argparse
import glob
import os
import shutil
import statistics
import subprocess
import tempfile
import time

import nordalib

AREA = [(80, 60, 160, 120)]


def timed(run, rounds):
    """Median wall time of `rounds` runs, and the processor time of this process over them."""
    walls = []
    cpu = time.process_time()
    for _ in range(rounds):
        start = time.perf_counter()
        table = run()
        walls.append(time.perf_counter() - start)
    return statistics.median(walls), (time.process_time() - cpu) / rounds, table


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", nargs="?", default="build", help="build folder (default: build)")
    parser.add_argument("--rix", nargs="*", help="saved images to repeat (default: made by nordacam demo)")
    parser.add_argument("--images", type=int, default=600, help="images in the archive (default 600)")
    parser.add_argument("--rounds", type=int, default=3)
    args = parser.parse_args()

    scratch = tempfile.mkdtemp(prefix="nordalib-archive-")
    try:
        sources = args.rix
        if not sources:
            subprocess.run([os.path.join(args.build, "apps", "nordacam", "nordacam"), "demo", "--fast", "--quiet",
                            "--frames", "120", "--out", scratch], check=True, stdout=subprocess.DEVNULL)
            sources = sorted(glob.glob(os.path.join(scratch, "IR*.RIX")))
        folder = os.path.join(scratch, "archive")
        os.mkdir(folder)
        for i in range(args.images):
            os.link(sources[i % len(sources)], os.path.join(folder, "IR%06d.RIX" % (i + 1)))

        n = args.images
        wall, cpu, serial = timed(lambda: nordalib.analysis.archive(folder, areas=AREA), args.rounds)
        assert not serial["error"].any(), serial["error"]
        print("archive of %d images, one area (%d cores)" % (n, os.cpu_count()))
        serial_rate = n / wall
        print("  serial          %7.0f images/s  (%.2f ms processor time an image)" % (serial_rate, cpu / n * 1e3))

        from dask.distributed import Client, LocalCluster
        rates = {}
        for workers in (1, 2):
            with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True) as cluster, \
                    Client(cluster) as client:
                nordalib.analysis.archive(folder, areas=AREA, client=client)  # warm: imports, page cache
                before = client.run(time.process_time)
                wall, client_cpu, table = timed(
                    lambda: nordalib.analysis.archive(folder, areas=AREA, client=client), args.rounds)
                spent = [(t - before[w]) / args.rounds for w, t in client.run(time.process_time).items()]
                assert table.equals(serial), "the Dask table differs from the serial one"
                rates[workers] = n / wall
                # Each worker's share of the processor time: equal shares mean the chunks spread the
                # work; their sum and the client's (with the scheduler) is the cost of an image.
                print("  Dask, %d worker%s %7.0f images/s  (workers %s ms, client and scheduler %.2f ms "
                      "processor time an image)" % (workers, "s" if workers > 1 else " ", rates[workers],
                                                     " + ".join("%.2f" % (t / n * 1e3) for t in spent),
                                                     client_cpu / n * 1e3))
        ratio = rates[2] / rates[1]
        best = max(rates[2], serial_rate)
        print("  two workers / one: %.2f (goal 1.7)%s  (load average %.1f)"
              % (ratio, "" if ratio >= 1.7 else "  MISSED", os.getloadavg()[0]))
        print("  best rate %.0f images/s (goal 200)%s" % (best, "" if best >= 200 else "  MISSED"))
    finally:
        shutil.rmtree(scratch, ignore_errors=True)


if __name__ == "__main__":
    main()
