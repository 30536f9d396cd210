"""Trends and archive tables against the stored pixels (NumPy on Rix.temperatures), against
`nordacam analyze` and `nordacam rix info`, and the simulated scene's known temperatures."""

import csv
import os
import re
import shutil
import subprocess

import numpy as np
import pytest

import nordalib
from conftest import nordacam

POINT, AREA = (320, 240), (80, 60, 160, 120)


@pytest.fixture
def series(demo_images, tmp_path):
    """The demo's images and, between them, a truncated and a foreign file."""
    files = []
    for i, f in enumerate(demo_images):
        files.append(str(shutil.copy(f, tmp_path / os.path.basename(f))))
        if i == 0:
            (tmp_path / "IR900001.RIX").write_bytes(open(f, "rb").read()[:70000])
            (tmp_path / "IR900002.RIX").write_text("not an image")
            files += [str(tmp_path / "IR900001.RIX"), str(tmp_path / "IR900002.RIX")]
    return files


def test_trend_matches_the_pixels_and_the_command_line(series, tmp_path):
    t = nordalib.analysis.trend(series, points=[POINT], areas=[AREA])
    good = [i for i, e in enumerate(t["errors"]) if not e]
    assert len(good) == len(series) - 2 and "truncated" in t["errors"][1] and "IR900002.RIX" in t["errors"][2]
    assert np.isnan(t["values"][1]).all()
    for row, i in enumerate(good):
        temps = nordalib.Rix.load(series[i]).temperatures
        x, y, w, h = AREA
        expected = [temps.max(), temps[POINT[1], POINT[0]], temps[y:y + h, x:x + w].mean(),
                    temps[y:y + h, x:x + w].max()]
        np.testing.assert_allclose(t["values"][i], expected, atol=0.011)  # the stored 0.01 K steps
    assert t["time"][0] == 0 and (np.diff(t["time"][good]) > 0).all()

    out = nordacam("analyze", *series, "--point", "%d,%d" % POINT, "--area", "%d,%d,%d,%d" % AREA,
                   "--out", tmp_path / "trend")
    assert "2 failed" in out and "IR900001.RIX" in out
    rows = list(csv.reader(open(tmp_path / "trend.csv", encoding="utf-8")))
    assert rows[0][2:4] == ["hot °C", "hot validity"]
    for i, r in enumerate(rows[1:]):
        if t["errors"][i]:
            assert r[2] == "" and "IR9000" in r[-1]
            continue
        assert float(r[0]) == pytest.approx(t["time"][i], abs=1e-3)
        np.testing.assert_allclose([float(v) for v in r[2:10:2]], t["values"][i], atol=0.006)
        assert r[3:10:2] == ["valid"] * 4
    assert (tmp_path / "trend.png").stat().st_size > 10000


def test_analyze_a_raw_recording_and_refuse_bad_input(demo_recording, demo_images, tmp_path):
    # The simulated wall is 22 °C and the hot object 85 °C; the recording goes through the chain of
    # `nordacam analyze`, whose table the module reads.
    t = nordalib.analysis.trend(demo_recording, points=[(40, 440)])
    assert t["tools"] == ["hot", "P1 (40,440)"] and len(t["time"]) > 40 and not any(t["errors"])
    hot, wall = t["values"][:, 0], t["values"][:, 1]
    assert abs(np.median(hot) - 85.0) < 1.0 and abs(np.median(wall) - 22.0) < 0.5
    assert (t["marks"] == 0).all()
    assert (np.diff(t["time"]) > 0).all() and np.median(np.diff(t["time"])) == pytest.approx(1 / 30, abs=0.005)
    with pytest.raises(ValueError, match="outside the 640 x 480"):
        nordalib.analysis.trend(demo_recording, points=[(640, 10)])

    bare = tmp_path / "bare.pxm"
    nordalib.pxm.write(str(bare), [np.zeros((48, 64), np.uint16)] * 3)
    for args, message in [((demo_recording, "--area", "1,2,3"), "is not X,Y,W,H"),
                          ((str(bare),), "no radiometric metadata"),
                          ((demo_images[0], demo_recording), "not both"),
                          ((str(tmp_path / "none.RIX"),), "no readable image")]:
        done = subprocess.run([os.environ["NORDACAM"], "analyze", *args, "--out", str(tmp_path / "bad")],
                              capture_output=True, text=True)
        assert done.returncode != 0 and message in done.stderr, (args, done.stderr)
        assert not (tmp_path / "bad.csv").exists()


def test_archive_serial_and_dask_give_the_same_table(series, tmp_path):
    from dask.distributed import Client, LocalCluster

    table = nordalib.analysis.archive(series, areas=[AREA], emissivity=0.95, chunk=2)
    assert list(table["error"] != "") == [False, True, True] + [False] * (len(series) - 3)
    good = table[table["error"] == ""]
    for _, row in good.iterrows():
        info = nordacam("rix", "info", row["file"])
        top = float(re.search(r"maximum\s+(-?[\d.]+) °C", info).group(1))
        assert row["hot"] == pytest.approx(top, abs=0.006) and row["emissivity"] == pytest.approx(0.95)
        # Re-analysed with the parameters it was taken with: the same image, within a count.
        assert row["re_hot"] == pytest.approx(row["hot"], abs=0.011)
        assert row["re_A1_mean"] == pytest.approx(row["A1_mean"], abs=0.011)
    assert table.loc[1, ["hot", "A1_mean"]].isna().all()

    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True) as cluster, Client(cluster) as client:
        spread = nordalib.analysis.archive(series, areas=[AREA], emissivity=0.95, client=client, chunk=2)
    assert spread.equals(table)
