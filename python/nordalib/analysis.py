"""Saved images analysed in bulk: temperatures over a series (trend) and tables over whole archives
(archive), measured with the camera's own measurement code (measure, measure_point, measure_area)
on the stored pixels, re-analysed through Rix.reanalyze when new object parameters are given.

    t = nordalib.analysis.trend(sorted(glob("IR*.RIX")), points=[(320, 240)], areas=[(80, 60, 160, 120)])
    t["time"], t["values"][:, t["tools"].index("P1 (320,240)")]
    t = nordalib.analysis.trend("RAW20261123-154730.pxm", points=[(320, 240)])  # through nordacam
    table = nordalib.analysis.archive("survey/", areas=[(0, 0, 64, 48)], emissivity=0.9)   # DataFrame
    table = nordalib.analysis.archive("survey/", client=dask.distributed.Client(...))     # on a cluster

docs/python.md describes both.
"""

import os

from ._nordalib import Rix, measure, measure_area, measure_point

_NAN = float("nan")


def _numpy():
    import numpy
    return numpy


def _tool_names(points, areas):
    names = ["hot"]
    names += ["P%d (%d,%d)" % (i + 1, x, y) for i, (x, y) in enumerate(points)]
    for i, (x, y, w, h) in enumerate(areas):
        names += ["A%d mean (%d,%d,%d,%d)" % (i + 1, x, y, w, h), "A%d max" % (i + 1)]
    return names


def _check_tools(points, areas, shape, name):
    height, width = shape
    for x, y in points:
        if not (0 <= x < width and 0 <= y < height):
            raise ValueError("point (%d, %d) lies outside the %d x %d image of %s" % (x, y, width, height, name))
    for x, y, w, h in areas:
        if w <= 0 or h <= 0 or x < 0 or y < 0 or x + w > width or y + h > height:
            raise ValueError("area (%d, %d, %d, %d) lies outside the %d x %d image of %s"
                             % (x, y, w, h, width, height, name))


def trend(images, points=(), areas=(), *, calibration=None, nordacam=None):
    """The image's hot spot, each point and each area's mean and maximum over a series of saved
    images, or over the frames of one raw recording (a .pxm path), as `nordacam analyze` measures
    them. Returns a dict of NumPy arrays: "time" (s since the first image, float64), "values" (°C,
    float32, samples x tools), "marks" (uint8 validity marks), and the lists "tools", "files" (file
    names; frame numbers of a recording), "errors" (an image that cannot be read gets NaN and its
    error).

    A raw recording becomes temperatures only through the camera's chain, which lives in the host
    program: `nordacam analyze` (the program `nordacam`, else $NORDACAM, else the one built beside
    this module, else nordacam on PATH) runs it with the calibration folder `calibration` and its
    table is read back."""
    if isinstance(images, (str, os.PathLike)) and os.fspath(images).lower().endswith(".pxm"):
        return _recording_trend(os.fspath(images), points, areas, calibration, nordacam)
    np = _numpy()
    points = [tuple(int(v) for v in p) for p in points]
    areas = [tuple(int(v) for v in a) for a in areas]
    images = [os.fspath(f) for f in images]
    if not images:
        raise ValueError("argument 'images' is empty")
    tools = _tool_names(points, areas)
    times, values, marks, errors = [], [], [], []
    first = shape = None
    for path in images:
        name = os.path.basename(path)
        try:
            rix = Rix.load(path, pictures=False)
            raw = rix.raw
            if shape is None:
                _check_tools(points, areas, raw.shape, path)
                shape = raw.shape
            elif raw.shape != shape:
                raise ValueError("%s: is %d x %d, the series %d x %d" % (name, raw.shape[1], raw.shape[0],
                                                                          shape[1], shape[0]))
        except (ValueError, OSError) as e:
            if shape is None and str(e).startswith(("point", "area")):
                raise
            times.append(_NAN)
            values.append([_NAN] * len(tools))
            marks.append([1] * len(tools))
            errors.append(str(e))
            continue
        borders = rix.borders
        row = [measure(raw, borders).max]
        row += [measure_point(raw, x, y, borders).value for x, y in points]
        for a in areas:
            area = measure_area(raw, a, borders)
            row += [area.mean, area.hot.value]
        stamp = rix.time.timestamp()
        first = stamp if first is None else first
        times.append(stamp - first)
        values.append([float(v) for v in row])
        marks.append([v.mark for v in row])
        errors.append("")
    if shape is None:
        raise ValueError("no readable image among the %d given (%s)" % (len(images), errors[0]))
    return {"time": np.array(times, dtype=np.float64), "values": np.array(values, dtype=np.float32),
            "marks": np.array(marks, dtype=np.uint8), "tools": tools,
            "files": [os.path.basename(f) for f in images], "errors": errors}


def _nordacam(given):
    from . import _build
    for candidate in (given, os.environ.get("NORDACAM"), _build.NORDACAM):
        if candidate and os.access(candidate, os.X_OK):
            return candidate
    import shutil
    found = shutil.which("nordacam")
    if not found:
        raise FileNotFoundError("nordacam (the host program, which analyses raw recordings) is not found; "
                                "give its path as nordacam= or in $NORDACAM")
    return found


def _recording_trend(recording, points, areas, calibration, nordacam):
    import csv
    import subprocess
    import tempfile

    from .values import _MARK_NAMES

    np = _numpy()
    args = [_nordacam(nordacam), "analyze", recording]
    for x, y in points:
        args += ["--point", "%d,%d" % (int(x), int(y))]
    for x, y, w, h in areas:
        args += ["--area", "%d,%d,%d,%d" % (int(x), int(y), int(w), int(h))]
    if calibration is not None:
        args += ["--calib", os.fspath(calibration)]
    marks = {name: mark for mark, name in _MARK_NAMES.items()}
    with tempfile.TemporaryDirectory(prefix="nordalib-trend-") as scratch:
        done = subprocess.run(args + ["--out", os.path.join(scratch, "trend")], capture_output=True, text=True)
        table = os.path.join(scratch, "trend.csv")
        if not os.path.exists(table):
            raise ValueError((done.stderr or done.stdout).strip() or "nordacam analyze %s failed" % recording)
        with open(table, encoding="utf-8", newline="") as f:
            rows = list(csv.reader(f))
    # time_s, source, then a value and a validity column per tool, then error
    tools = [h[:-len(" °C")] for h in rows[0][2:-1:2]]
    times, values, validity, files, errors = [], [], [], [], []
    for r in rows[1:]:
        error = r[2 + 2 * len(tools)] if len(r) > 2 + 2 * len(tools) else ""
        times.append(float(r[0]) if r[0] else _NAN)
        files.append(r[1])
        errors.append(error)
        cells = r[2:2 + 2 * len(tools)]
        values.append([float(v) if v and not error else _NAN for v in cells[0::2]])
        validity.append([marks.get(m, 1) if not error else 1 for m in cells[1::2]])
    return {"time": np.array(times, dtype=np.float64), "values": np.array(values, dtype=np.float32),
            "marks": np.array(validity, dtype=np.uint8), "tools": tools, "files": files, "errors": errors}


# ---- archives ---------------------------------------------------------------------------------

_COLUMNS = ["file", "time", "hot", "cold", "mean", "emissivity", "reflected", "air_temperature",
            "humidity", "glass_transmission"]


def _statistics(raw, borders, areas, prefix, row):
    s = measure(raw, borders)
    row[prefix + "hot"], row[prefix + "cold"], row[prefix + "mean"] = float(s.max), float(s.min), float(s.mean)
    for i, a in enumerate(areas):
        area = measure_area(raw, a, borders)
        row["%sA%d_hot" % (prefix, i + 1)] = float(area.hot.value)
        row["%sA%d_cold" % (prefix, i + 1)] = float(area.cold.value)
        row["%sA%d_mean" % (prefix, i + 1)] = float(area.mean)


def _analyse_file(path, areas, reanalysis):
    """One row; a file that fails gives its error instead of its values."""
    row = {"file": path, "error": ""}
    try:
        rix = Rix.load(path, pictures=False)
        height, width = rix.shape
        for x, y, w, h in areas:
            if w <= 0 or h <= 0 or x < 0 or y < 0 or x + w > width or y + h > height:
                raise ValueError("area (%d, %d, %d, %d) lies outside the %d x %d image" % (x, y, w, h, width, height))
        row["time"] = rix.time
        params, meta = rix.object_parameters, rix.metadata
        row["emissivity"] = float(params["emissivity"])
        row["reflected"] = float(params["reflected"])
        row["air_temperature"] = float(meta.get("Environment.Temperature", _NAN))
        row["humidity"] = float(meta.get("Environment.Humidity", _NAN))
        row["glass_transmission"] = float(params["glass_transmission"])
        _statistics(rix.raw, rix.borders, areas, "", row)
        if reanalysis:
            again = rix.reanalyze(**reanalysis)
            _statistics(again.raw, again.borders, areas, "re_", row)
    except Exception as e:  # noqa: BLE001  (any failure of one file is that file's row)
        row["error"] = "%s: %s" % (type(e).__name__, e) if not isinstance(e, (ValueError, OSError)) else str(e)
    return row


def _analyse_files(paths, areas, reanalysis):
    return [_analyse_file(p, areas, reanalysis) for p in paths]


def _files(source):
    if isinstance(source, (str, os.PathLike)) and os.path.isdir(source):
        return sorted(os.path.join(source, f) for f in os.listdir(source) if f.upper().endswith(".RIX"))
    if isinstance(source, (str, os.PathLike)):
        return [os.fspath(source)]
    return [os.fspath(f) for f in source]


def archive(source, areas=(), emissivity=None, reflected=None, *, client=None, dask=False, chunk=None, **more):
    """A pandas DataFrame with a row per saved image of `source` (a folder's *.RIX, sorted by name,
    or a list of files): file, time (UTC), hot, cold, mean (°C: the image's hottest, coldest and
    in-range mean), the object parameters at capture (emissivity, reflected °C, air_temperature
    °C, humidity 0..1, glass_transmission), for each area Ai_hot, Ai_cold, Ai_mean, and
    with new parameters (emissivity, reflected, or any other keyword of Rix.reanalyze) the same
    re-analysed as re_hot, re_cold, re_mean, re_Ai_*. A file that cannot be read or analysed gives
    a row with its error (column "error", values NaN).

    dask=True runs on a local Dask cluster with a worker process per core; client= on an existing
    dask.distributed.Client (a cluster of several machines that see the same files). `chunk` files
    go to a worker at once (by default about a quarter of a worker's share, at most 64, so that no
    worker waits while another finishes a long list). Serial otherwise. Every way gives the same
    table."""
    import pandas

    areas = [tuple(int(v) for v in a) for a in areas]
    reanalysis = dict(more)
    if emissivity is not None:
        reanalysis["emissivity"] = emissivity
    if reflected is not None:
        reanalysis["reflected"] = reflected
    files = _files(source)
    own = None
    if client is None and dask:
        from dask.distributed import Client, LocalCluster
        own = Client(LocalCluster(n_workers=os.cpu_count() or 1, threads_per_worker=1, processes=True))
        client = own
    try:
        if chunk is None:
            threads = sum(client.nthreads().values()) if client is not None else 1
            chunk = min(64, -(-len(files) // (4 * max(1, threads))))
        chunk = max(1, int(chunk))
        chunks = [files[i:i + chunk] for i in range(0, len(files), chunk)]
        if client is not None:
            futures = client.map(_analyse_files, chunks, areas=areas, reanalysis=reanalysis, pure=False)
            parts = client.gather(futures)
        else:
            parts = [_analyse_files(c, areas, reanalysis) for c in chunks]
    finally:
        if own is not None:
            own.close()
    rows = [r for part in parts for r in part]
    columns = list(_COLUMNS)
    for prefix in ([""] + (["re_"] if reanalysis else [])):
        if prefix:
            columns += ["re_hot", "re_cold", "re_mean"]
        for i in range(len(areas)):
            columns += ["%sA%d_%s" % (prefix, i + 1, k) for k in ("hot", "cold", "mean")]
    table = pandas.DataFrame(rows, columns=columns + ["error"])
    table["time"] = pandas.to_datetime(table["time"], utc=True)
    return table
