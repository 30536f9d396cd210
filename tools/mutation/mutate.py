#!/usr/bin/env python3
"""Mutation testing for nordalib and nordacam.

Applies the one-line mutations of a list (tools/mutation/mutations.txt) one at a time to the
sources, rebuilds the test program incrementally, runs the suite with ctest and records whether
the suite noticed (killed) or not (survived). The source file is restored after each mutation,
also when the run is interrupted.

A mutation is located by file and the exact original text (and which occurrence of it), never by
line number, so the same list applies after other changes moved lines; when the text has left its
file altogether, the one library or host source that now holds it is used (with a note).

    tools/mutation/mutate.py check                     # every mutation still applies
    tools/mutation/mutate.py run --results out.tsv     # the whole list (resumes an unfinished file)
    tools/mutation/mutate.py run --only O01,R02        # a few
    tools/mutation/mutate.py summary out.tsv           # killed/total and the survivors
    tools/mutation/mutate.py compare before.tsv after.tsv

A build that fails counts as "uncompilable" (the mutation is then worthless, not killed); a test
that fails, crashes or runs past --timeout kills the mutation. The whole suite runs for every
mutation, the slow tests (--slow) last and only when the others have passed.
"""

import argparse
import os
import re
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
DEFAULT_LIST = os.path.join(ROOT, "tools", "mutation", "mutations.txt")
# Run after the rest of the suite has passed: a mutation the quick tests kill costs seconds.
SLOW_TESTS = "NordacamServerLoad|StalledViewer|ThreeHundredFrame|InstallConsumer"


class Mutation:
    def __init__(self, ident, area):
        self.id = ident
        self.area = area
        self.file = None
        self.find = None
        self.replace = None
        self.occurrence = 1
        self.why = ""

    def locate(self, text):
        """Offset of the chosen occurrence of the original text, or -1."""
        pos = -1
        for _ in range(self.occurrence):
            pos = text.find(self.find, pos + 1)
            if pos < 0:
                return -1
        return pos

    def count(self, text):
        return text.count(self.find)


def parse_list(path):
    """Blocks of 'key: value' lines, each opened by '== <id> <area>'; '#' starts a comment line."""
    mutations = []
    current = None
    with open(path, encoding="utf-8") as f:
        for number, raw in enumerate(f, 1):
            line = raw.rstrip("\n")
            if not line.strip() or line.lstrip().startswith("#"):
                continue
            if line.startswith("== "):
                parts = line[3:].split(None, 1)
                current = Mutation(parts[0], parts[1] if len(parts) > 1 else "")
                mutations.append(current)
                continue
            m = re.match(r"^(file|find|replace|occurrence|why):\s?(.*)$", line)
            if not m or current is None:
                sys.exit(f"{path}:{number}: expected '== ID area' or 'key: value', got: {line}")
            key, value = m.group(1), m.group(2)
            if key == "occurrence":
                current.occurrence = int(value)
            else:
                setattr(current, key, value)
    seen = set()
    for mu in mutations:
        if mu.id in seen:
            sys.exit(f"{path}: mutation {mu.id} is listed twice")
        seen.add(mu.id)
        if not mu.file or mu.find is None or mu.replace is None:
            sys.exit(f"{path}: mutation {mu.id} needs file, find and replace")
        if mu.find == mu.replace:
            sys.exit(f"{path}: mutation {mu.id} changes nothing")
    return mutations


def read(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as f:
        return f.read()


def write(path, text):
    with open(os.path.join(ROOT, path), "w", encoding="utf-8") as f:
        f.write(text)


SOURCE_DIRS = ("nordalib", "apps")


def relocate(mu):
    """When the text left its file (code moved to another class), the one source file that now
    holds it; the mutation is updated and a note printed. None if there is no single such file."""
    holders = []
    for top in SOURCE_DIRS:
        for folder, _, names in os.walk(os.path.join(ROOT, top)):
            for name in names:
                if name.endswith((".cpp", ".h")):
                    path = os.path.relpath(os.path.join(folder, name), ROOT)
                    if mu.locate(read(path)) >= 0:
                        holders.append(path)
    if len(holders) != 1:
        return None
    print(f"{mu.id}: note: the text moved from {mu.file} to {holders[0]}")
    mu.file = holders[0]
    return holders[0]


def check(mutations):
    bad = 0
    for mu in mutations:
        try:
            text = read(mu.file)
        except OSError:
            text = ""
        if mu.locate(text) < 0 and relocate(mu):
            text = read(mu.file)
        n = mu.count(text)
        if mu.locate(text) < 0:
            print(f"{mu.id}: '{mu.find}' occurs {n} times in {mu.file}, occurrence {mu.occurrence} wanted")
            bad += 1
        elif n > 1 and mu.occurrence == 1:
            print(f"{mu.id}: note: '{mu.find}' occurs {n} times in {mu.file}; the first is mutated")
    print(f"{len(mutations) - bad} of {len(mutations)} mutations apply")
    return bad == 0


def run(cmd, timeout, log):
    log.write(f"$ {' '.join(cmd)}\n")
    log.flush()
    try:
        p = subprocess.run(cmd, cwd=ROOT, stdout=log, stderr=subprocess.STDOUT, timeout=timeout)
        return p.returncode
    except subprocess.TimeoutExpired:
        return None


def failed_tests(build):
    path = os.path.join(build, "Testing", "Temporary", "LastTestsFailed.log")
    try:
        with open(path) as f:
            return [line.strip().split(":", 1)[-1] for line in f if line.strip()]
    except OSError:
        return []


def suite(args, log):
    """Runs the whole suite with ctest, the quick tests first and the slow ones (--slow) only when
    the quick ones all pass; returns (status, failing tests)."""
    last = os.path.join(args.build, "Testing", "Temporary", "LastTestsFailed.log")
    phases = [["-E", args.slow], ["-R", args.slow]] if args.slow else [[]]
    for selection in phases:
        if os.path.exists(last):
            os.remove(last)
        cmd = ["ctest", "--test-dir", args.build, "-j", str(args.jobs), "--timeout", str(args.timeout),
               "--stop-on-failure"] + selection + args.ctest_args
        rc = run(cmd, args.suite_timeout, log)
        if rc is None:
            return "killed", ["(suite time limit)"]
        if rc != 0:
            return "killed", failed_tests(args.build) or [f"(ctest exit {rc})"]
    return "survived", []


def build(args, log):
    cmd = ["cmake", "--build", args.build, "-j", str(args.jobs), "--target"] + args.target.replace(",", " ").split()
    return run(cmd, args.build_timeout, log) == 0


def load_results(path):
    done = {}
    if path and os.path.exists(path):
        with open(path, encoding="utf-8") as f:
            for line in f:
                if line.startswith("#") or line.startswith("id\t") or not line.strip():
                    continue
                cols = line.rstrip("\n").split("\t")
                done[cols[0]] = cols
    return done


class Restorer:
    """Puts the original text back, also on SIGINT/SIGTERM."""

    def __init__(self):
        self.path = None
        self.text = None
        signal.signal(signal.SIGTERM, self._signal)

    def _signal(self, signum, frame):
        raise KeyboardInterrupt()

    def hold(self, path, text):
        self.path, self.text = path, text

    def restore(self):
        if self.path is not None:
            write(self.path, self.text)
            self.path = self.text = None


def cmd_run(args):
    mutations = parse_list(args.list)
    if args.only:
        wanted = set(args.only.split(","))
        mutations = [m for m in mutations if m.id in wanted]
    if not check(mutations):
        sys.exit("some mutations do not apply; fix the list first")
    args.build = os.path.abspath(args.build)
    done = load_results(args.results)
    log = open(args.log, "a", encoding="utf-8")
    new_file = not os.path.exists(args.results)
    out = open(args.results, "a", encoding="utf-8")
    if new_file:
        out.write("id\tarea\tstatus\tseconds\tfailing tests\twhy\n")
        out.flush()

    if not args.no_sanity:
        print("sanity: the unmutated suite must pass", flush=True)
        if not build(args, log):
            sys.exit("the unmutated sources do not build; see " + args.log)
        status, failing = suite(args, log)
        if status != "survived":
            sys.exit("the unmutated suite fails (" + ", ".join(failing) + "); see " + args.log)

    restorer = Restorer()
    try:
        for mu in mutations:
            if mu.id in done:
                continue
            start = time.time()
            original = read(mu.file)
            pos = mu.locate(original)
            mutated = original[:pos] + mu.replace + original[pos + len(mu.find):]
            restorer.hold(mu.file, original)
            write(mu.file, mutated)
            log.write(f"\n==== {mu.id} {mu.file}: {mu.find!r} -> {mu.replace!r}\n")
            try:
                if not build(args, log):
                    status, failing = "uncompilable", []
                else:
                    status, failing = suite(args, log)
            finally:
                restorer.restore()
            seconds = int(time.time() - start)
            shown = " ".join(failing[:3]) + (f" (+{len(failing) - 3})" if len(failing) > 3 else "")
            out.write(f"{mu.id}\t{mu.area}\t{status}\t{seconds}\t{shown}\t{mu.why}\n")
            out.flush()
            print(f"{mu.id:5} {status:12} {seconds:4d} s  {shown}", flush=True)
    except KeyboardInterrupt:
        restorer.restore()
        print("interrupted; the source is restored and the results so far are kept", flush=True)
    finally:
        restorer.restore()
        # Leave the build matching the sources.
        build(args, log)
    summary(args.results)


def summary(path):
    rows = [r for r in load_results(path).values()]
    counted = [r for r in rows if r[2] in ("killed", "survived")]
    killed = [r for r in counted if r[2] == "killed"]
    print(f"{path}: {len(killed)} killed of {len(counted)}"
          + (f" ({100.0 * len(killed) / len(counted):.0f} %)" if counted else ""))
    for r in rows:
        if r[2] != "killed":
            print(f"  {r[2]:12} {r[0]:5} {r[1]}: {r[5] if len(r) > 5 else ''}")
    return {r[0]: r[2] for r in rows}


def compare(before, after):
    b, a = load_results(before), load_results(after)
    lost = [k for k, r in b.items() if r[2] == "killed" and k in a and a[k][2] != "killed"]
    gained = [k for k, r in b.items() if r[2] != "killed" and k in a and a[k][2] == "killed"]
    missing = [k for k, r in b.items() if r[2] == "killed" and k not in a]
    for k in lost:
        print(f"LOST   {k}: killed before, {a[k][2]} now ({b[k][5]})")
    for k in missing:
        print(f"MISSING {k}: killed before, not run now")
    for k in gained:
        print(f"GAINED {k}: {b[k][2]} before, killed now ({b[k][5]})")
    print(f"{len(lost)} lost, {len(missing)} not run, {len(gained)} newly killed")
    return not lost and not missing


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = p.add_subparsers(dest="command", required=True)
    c = sub.add_parser("check", help="every mutation of the list applies")
    c.add_argument("--list", default=DEFAULT_LIST)
    r = sub.add_parser("run", help="apply, build and test each mutation")
    r.add_argument("--list", default=DEFAULT_LIST)
    r.add_argument("--build", default=os.path.join(ROOT, "build"))
    r.add_argument("--target", default="nordalib_tests nordacam nordalib_python nordapy_reference",
                   help="what is rebuilt before each run (space or comma separated): the test "
                        "program, the host the command-line tests start, the Python module and the "
                        "C++ reference its tests compare with")
    r.add_argument("--results", default=os.path.join(ROOT, "build", "mutation-results.tsv"))
    r.add_argument("--log", default=os.path.join(ROOT, "build", "mutation.log"))
    r.add_argument("--only", help="comma-separated mutation ids")
    r.add_argument("--jobs", type=int, default=2)
    r.add_argument("--timeout", type=int, default=180, help="seconds a single test may take")
    r.add_argument("--suite-timeout", type=int, default=900, help="seconds the whole suite may take")
    r.add_argument("--build-timeout", type=int, default=1800)
    r.add_argument("--no-sanity", action="store_true", help="skip the run of the unmutated suite")
    r.add_argument("--slow", default=SLOW_TESTS,
                   help="ctest regex of the slow tests, run after the others pass ('' runs all at once)")
    r.add_argument("ctest_args", nargs="*", help="further ctest arguments (after --)")
    s = sub.add_parser("summary", help="killed/total and the survivors of a results file")
    s.add_argument("results")
    m = sub.add_parser("compare", help="mutations killed in the first results but not in the second")
    m.add_argument("before")
    m.add_argument("after")
    args = p.parse_args()
    if args.command == "check":
        sys.exit(0 if check(parse_list(args.list)) else 1)
    if args.command == "run":
        cmd_run(args)
    elif args.command == "summary":
        summary(args.results)
    elif args.command == "compare":
        sys.exit(0 if compare(args.before, args.after) else 1)


if __name__ == "__main__":
    main()
