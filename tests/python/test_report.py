"""`nordacam report` read back with pdftotext against `nordacam rix info` and the Python module on the
same files; damaged files listed, bad arguments refused. The pages go to the test's folder as PNG."""

import os
import re
import shutil
import subprocess

import pytest

import nordalib
from conftest import nordacam

NOTE = "Bearing east side 12 K above the others.\nCheck lubrication at the next stop."


def info_value(info, key):
    """'(x, y) 85.05 °C, valid' of a point in `rix info`."""
    return re.search(re.escape(key) + r" = (\(\d+, \d+\) -?[\d.]+ °C), (\w[\w ]*)", info).groups()


@pytest.mark.skipif(not shutil.which("pdftotext"), reason="poppler-utils not installed")
def test_report_agrees_with_rix_info_and_the_module(demo_images, tmp_path):
    images = [str(shutil.copy(f, tmp_path)) for f in demo_images]
    nordacam("rix", "note", images[1], NOTE)
    (tmp_path / "IR999999.RIX").write_bytes(open(images[0], "rb").read()[:5000])
    selection = images[:1] + [str(tmp_path / "IR999999.RIX")] + images[1:]

    out = nordacam("report", *selection, "--alarm", "80", "--out", tmp_path / "report.pdf")
    assert "1 damaged" in out
    text = subprocess.run(["pdftotext", "-layout", str(tmp_path / "report.pdf"), "-"], capture_output=True,
                          text=True, check=True).stdout
    pages = text.split("\f")
    subprocess.run(["pdftoppm", "-png", "-r", "50", str(tmp_path / "report.pdf"), str(tmp_path / "page")], check=True)
    summary = " ".join(pages[0].split())  # a long path wraps the error onto the next line
    assert "IR999999.RIX: truncated" in summary and "3 images, 1 could not be read" in summary
    assert NOTE.split()[0] in summary and "lubrication" not in summary  # the first line only

    for path, page in zip(images, pages[1:]):
        name = os.path.basename(path)
        info = nordacam("rix", "info", path)
        rix = nordalib.Rix.load(path)
        assert page.lstrip().startswith(name)
        top = re.search(r"maximum\s+(-?[\d.]+ °C at \(\d+, \d+\))", info).group(1)
        assert top in page
        summary_row = next(line for line in summary.splitlines() if name in line)
        assert top.split(" at")[0] in summary_row
        assert ("above" if rix.temperatures.max() > 80 else "below") in summary_row
        for key, label in [("MeasPoints.HotSpot.MeasPoint", "hot spot"), ("MeasPoints.CenterSpot.MeasPoint", "centre spot"),
                           ("MeasPoints.ColdSpot.MeasPoint", "cold spot")]:
            where_value, validity = info_value(info, key)
            point = rix.metadata[key]
            assert where_value == "(%d, %d) %.2f °C" % (point.x, point.y, point.value)  # rix info = module
            row = re.search(label + r"\s+(\(\d+, \d+\))\s+(-?[\d.]+ °C)\s+(\w[\w ]*?)\s+([\d.]+)", page).groups()
            assert "%s %s" % row[:2] == where_value and row[2] == validity
            assert float(row[3]) == pytest.approx(rix.emissivity, abs=0.005)
        area = rix.metadata["MeasAreas.CenterArea.MeasArea"]
        assert re.search(r"centre area mean\s+320 x 240 at \(160, 120\)\s+%.2f °C" % area.mean, page)
        assert str(rix.uuid) in page
        note = rix.metadata.get("Image.Note", "")
        assert (" ".join(note.split()) in " ".join(page.split())) if note else "no note" in page
    assert nordalib.Rix.load(images[1]).metadata["Image.Note"] == NOTE

    for args, message in [(("--out", tmp_path / "r.txt", images[0]), ".pdf or .html"),
                          (("--out", tmp_path / "r.pdf", tmp_path / "IR999999.RIX"), "0 image pages")]:
        done = subprocess.run([os.environ["NORDACAM"], "report", *map(str, args)], capture_output=True, text=True)
        assert done.returncode != 0 and message in done.stdout + done.stderr, done.stderr
