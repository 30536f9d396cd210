import errno
import gc
import os
import re
import subprocess
import sys

import numpy as np
import pytest

import nordalib
from conftest import nordacam, reference


def test_temperatures_match_the_cpp_export(demo_images, tmp_path):
    for path in demo_images:
        csv = tmp_path / "t.csv"
        nordacam("rix", "export", path, "--csv", csv)
        expected = np.loadtxt(csv, delimiter=";")
        rix = nordalib.Rix.load(path)
        assert rix.temperatures.shape == expected.shape == rix.shape
        assert np.abs(rix.temperatures - expected).max() <= 0.005
        assert np.abs(rix.raw / 100.0 - 273.15 - expected).max() <= 0.005
        assert not rix.raw.flags.writeable and not rix.temperatures.flags.writeable


def test_fields_and_metadata_match_the_cpp_reading(demo_images):
    path = demo_images[1]
    info = nordacam("rix", "info", path)
    rix = nordalib.Rix.load(path)
    field = lambda name: re.search(r"^\s+%s\s+(.*)$" % name, info, re.M).group(1)  # noqa: E731

    for name, point in (("minimum", rix.min), ("maximum", rix.max)):
        assert field(name) == "%.2f °C at (%d, %d)" % (point.value, point.x, point.y)
        assert rix.temperatures[point.y, point.x] == np.float32(point.value)
    assert field("scaling") == "%.2f .. %.2f °C" % rix.scaling
    assert field("emissivity") == "%.3f, reflected %.2f °C" % (rix.emissivity, rix.reflected)
    assert field("UUID") == rix.uuid
    assert field("taken") == rix.time.strftime("%Y-%m-%d %H:%M:%S.") + "%03d UTC" % (rix.time.microsecond // 1000)
    assert field("file size").endswith("format version " + rix.file_version)

    meta = rix.metadata
    assert len(meta) == int(re.search(r"settings \((\d+)\)", info).group(1))
    assert meta["ActiveLens.Serial"] == "L25-000001" and meta["Palette.ActivePalette"] == "iron"
    assert meta["ActiveMeasRange.Name"] == 1 and meta.types["ActiveMeasRange.Name"] == "u8"
    assert meta["Environment.Humidity"] == pytest.approx(0.5) and isinstance(meta["Environment.Humidity"],
                                                                             nordalib.Relation)
    assert meta["ProtectiveGlass.Transmission"] == 0.92  # the setting, not its float's nearest double
    assert meta["Radiometry.Planck"] == [float(v) for v in re.search(
        r'Radiometry.Planck = "([^"]*)"', info).group(1).split(",")]
    hot = meta["MeasPoints.HotSpot.MeasPoint"]
    assert isinstance(hot, nordalib.MeasPoint) and isinstance(hot.value, nordalib.Temperature)
    assert hot.value.valid and hot.temperature is hot.value
    assert rix.planck.B == meta["Radiometry.Planck"][2]
    assert rix.object_parameters["emissivity"] == pytest.approx(0.95)
    # the demo's visual camera: a 4:3 colour still
    assert rix.preview.shape == rix.shape + (3,) and rix.visual.shape[2] == 3
    assert rix.visual.shape[1] * 3 == rix.visual.shape[0] * 4
    assert (rix.borders.tolerance_bottom, rix.borders.display_top) == (-20.0, 150.0)  # the low range


def test_the_simulated_scene_at_its_true_temperatures(demo_images):
    # Wall 22 °C, warm object 37 °C, cold object 4 °C (apps/nordacam/sim), of emissivity 0.95 and
    # reflecting surroundings at 24 °C, read with the camera's default 20 °C (a short demo does not
    # measure it): Planck's law over 8-14 um puts them at 22.21, 37.18 and 4.25 °C.
    for path in demo_images:
        rix = nordalib.Rix.load(path)
        t = rix.temperatures
        assert abs(rix.max.value - 85.0) < 1.0 and abs(rix.min.value - 4.0) < 1.0
        assert abs(float(np.median(t)) - 22.21) < 0.3
        assert abs(float(np.median(t[231:374, 105:196])) - 37.18) < 0.3  # the warm object's interior
        assert abs(float(np.median(t[t < 10])) - 4.25) < 0.3  # the cold object
        assert abs(rix.metadata["MeasPoints.CenterSpot.MeasPoint"].value - 22.0) < 0.5


def test_save_and_bytes_round_trip(demo_images, tmp_path):
    rix = nordalib.Rix.load(demo_images[0])
    rix.save(tmp_path / "copy.rix")
    data = (tmp_path / "copy.rix").read_bytes()
    assert data == open(demo_images[0], "rb").read() == rix.to_bytes()
    again = nordalib.Rix.from_bytes(data)
    assert np.array_equal(again.raw, rix.raw) and np.array_equal(again.preview, rix.preview)
    assert again.metadata == rix.metadata and again.uuid == rix.uuid
    # Arrays outlive the images they came from: they hold the pixels, not a view into a dead object.
    arrays = [again.raw, again.temperatures, again.preview, again.visual_yuv]
    copies = [a.copy() for a in arrays]
    del again
    gc.collect()
    overwrite = [np.full(a.shape, 7, a.dtype) for a in arrays for _ in range(8)]  # noqa: F841
    assert all(np.array_equal(a, c) for a, c in zip(arrays, copies))


# Files that can not be written raise the system's OSError with the file; the run below writes
# under a file size limit, which cuts the write short as a full disk does (/dev/full does not fit:
# the image is written beside its target and renamed over it).
FULL_DISK = """
import resource, signal, sys, nordalib
rix = nordalib.Rix.load(sys.argv[1])
signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))
try:
    rix.save(sys.argv[2])
except OSError as e:
    print(type(e).__name__, e.errno, e.filename)
"""


def test_save_raises_os_errors_for_the_file_system_and_value_errors_for_arguments(demo_images, tmp_path):
    rix = nordalib.Rix.load(demo_images[0])
    missing = tmp_path / "no such folder" / "IR000001.RIX"
    with pytest.raises(FileNotFoundError, match="can not write") as e:
        rix.save(missing)
    assert (e.value.errno, e.value.filename) == (errno.ENOENT, str(missing))
    full = tmp_path / "full" / "IR000001.RIX"
    full.parent.mkdir()
    done = subprocess.run([sys.executable, "-c", FULL_DISK, demo_images[0], str(full)],
                          capture_output=True, text=True)
    assert done.stdout.split() == ["OSError", str(errno.EFBIG), str(full)], done.stderr
    assert os.listdir(full.parent) == []  # nothing half-written left behind
    with pytest.raises(ValueError, match="no super-resolution image"):
        rix.save(tmp_path / "SR000001.RIX", super_resolution=True)
    with pytest.raises(TypeError):
        rix.save(42)


def test_damaged_and_foreign_files_raise_with_the_library_message(demo_images, tmp_path):
    good = open(demo_images[0], "rb").read()
    flipped = bytearray(good)
    flipped[len(good) // 2] ^= 0x40
    cases = [
        (tmp_path / "missing.rix", None, FileNotFoundError, "missing.rix"),
        (tmp_path, None, IsADirectoryError, ""),
        (tmp_path / "cut.rix", good[: len(good) // 3], ValueError, "truncated chunk"),
        (tmp_path / "flipped.rix", bytes(flipped), ValueError, "checksum mismatch"),
        (tmp_path / "photo.jpg", open(os.path.join(os.path.dirname(demo_images[0]), "TR000001.JPG"), "rb").read(),
         ValueError, "not a radiometric image file"),
        (tmp_path / "empty.rix", b"", ValueError, "not a radiometric image file"),
    ]
    for path, content, error, message in cases:
        if content is not None:
            path.write_bytes(content)
        with pytest.raises(error, match=re.escape(message)):
            nordalib.Rix.load(path)
        if content is not None:
            with pytest.raises(ValueError, match=re.escape(message)):
                nordalib.Rix.from_bytes(content)
    with pytest.raises(TypeError):
        nordalib.Rix.load(42)


def test_visual_image_as_rgb_and_as_stored(tmp_path):
    reference("visual", tmp_path / "v.rix")
    rix = nordalib.Rix.load(tmp_path / "v.rix")
    assert rix.visual_yuv.shape == (2, 8, 2) and rix.visual_yuv[0, 4].tolist() == [90, 81]
    assert rix.visual.shape == (2, 8, 3) and not rix.visual.flags.writeable
    expected = [[255, 255, 255]] * 2 + [[0, 0, 0]] * 2 + [[255, 0, 0]] * 2  # BT.601, video levels
    assert np.abs(rix.visual[0, :6].astype(int) - expected).max() <= 1
    assert (rix.visual_preview_factor, rix.visual_high_resolution) == (0.5, True)
