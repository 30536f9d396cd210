"""Shared fixtures: the demo's files (made by the PythonDemoFiles ctest fixture) and the C++
reference tool."""

import glob
import os
import subprocess

import numpy as np
import pytest


def _demo():
    d = os.environ.get("NORDA_DEMO_DIR")
    if not d or not os.path.isdir(d):
        pytest.skip("no demo files (nordacam not built)")
    return d


@pytest.fixture(scope="session")
def demo_images():
    return sorted(glob.glob(os.path.join(_demo(), "IR*.RIX")))


@pytest.fixture(scope="session")
def demo_recording():
    return glob.glob(os.path.join(_demo(), "RAW*.pxm"))[0]


def run(*args):
    """Runs a C++ program of the build; its output, or the test fails with its error."""
    done = subprocess.run([str(a) for a in args], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    return done.stdout


def nordacam(*args):
    return run(os.environ["NORDACAM"], *args)


def reference(*args):
    return run(os.environ["NORDAPY_REFERENCE"], *args)


def cpp_frames(tool_mode, path, out_dir, *extra):
    """Frames as the C++ side delivers them: (array, {key: (tag, text)}) per frame."""
    out_dir.mkdir(exist_ok=True)
    reference(tool_mode, path, *extra, out_dir)
    prefix = "play" if tool_mode == "play" else ""
    frames = []
    while (out_dir / ("%s%d.txt" % (prefix, len(frames)))).exists():
        stem = out_dir / ("%s%d" % (prefix, len(frames)))
        lines = (stem.with_suffix(".txt")).read_text().splitlines()
        rows, cols, cv_type = map(int, lines[0].split())
        depth, channels = cv_type & 7, (cv_type >> 3) + 1
        dtype = ["uint8", "int8", "uint16", "int16", "int32", "float32", "float64"][depth]
        shape = (rows, cols) if channels == 1 else (rows, cols, channels)
        image = np.fromfile(stem.with_suffix(".raw"), dtype=dtype).reshape(shape)
        meta = {}
        for line in lines[1:]:
            key, tag, text = (line.split(" ", 2) + [""])[:3]
            meta[key] = (tag, text)
        frames.append((image, meta))
    return frames
