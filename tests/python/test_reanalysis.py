import numpy as np
import pytest

import nordalib
from conftest import nordacam
from nordalib.values import OUT_OF_TOLERANCE, OVER_RANGE, UNDER_RANGE, VALID

BORDERS = nordalib.MeasRangeBorders(tolerance_top=nordalib.Temperature(120.0),
                                    tolerance_bottom=nordalib.Temperature(-20.0),
                                    display_top=nordalib.Temperature(150.0),
                                    display_bottom=nordalib.Temperature(-40.0))


def raw(celsius):
    return np.round((np.asarray(celsius, dtype="float64") + 273.15) * 100).astype("uint16")


def test_measurements_follow_the_min_max_element():
    t = np.full((6, 8), 25.0)
    t[1, 5] = t[4, 2] = 130.0  # hottest twice: the first in row order counts
    t[3, 0] = t[5, 7] = -50.0
    t[2, 3] = 120.0  # the tolerance top: not inside the band the mean covers
    image = raw(t)
    s = nordalib.measure(image, BORDERS)
    assert (s.hot.position, s.cold.position) == ((5, 1), (0, 3))
    assert s.hot.value.mark == OUT_OF_TOLERANCE and s.cold.value.mark == UNDER_RANGE
    inside = image[(image > raw(-20.0)) & (image < raw(120.0))]
    assert s.mean == pytest.approx(int(inside.sum()) // inside.size / 100 - 273.15)
    assert nordalib.measure(image).mean == pytest.approx(int(image.sum()) // image.size / 100 - 273.15)
    assert nordalib.measure(raw(np.full((2, 2), 370.0)), BORDERS).max.mark == OVER_RANGE
    assert nordalib.measure_point(t, 0, 0, BORDERS).value.mark == VALID

    area = nordalib.measure_area(image, borders=BORDERS)  # the centre half: x 2..5, y 1..3 (lround)
    assert area.rect == (2, 1, 4, 3)
    block = image[1:4, 2:6]
    assert area.hot.position == (5, 1) and area.mean == pytest.approx(
        float(np.float32(block.sum()) / np.float32(block.size) + np.float32(0.5)) // 1 / 100 - 273.15)
    assert nordalib.measure_area(image, (0, 0, 1, 1)).mean == pytest.approx(25.0, abs=0.005)

    wet = nordalib.measure_area(image, (0, 0, 2, 2), humidity=(20.0, 0.5))  # humidity mode
    assert isinstance(wet.mean, nordalib.Relation) and wet.mean == pytest.approx(
        nordalib.surface_moisture(25.0, 20.0, 0.5), abs=1e-4)
    for call, error, message in ((lambda: nordalib.measure_point(image, 8, 0), ValueError, "argument 'x' = 8"),
                                 (lambda: nordalib.measure_area(image, (5, 0, 4, 2)), ValueError, "not inside"),
                                 (lambda: nordalib.measure(image, (1, 2, 3, 4)), TypeError, "argument 'borders'"),
                                 (lambda: nordalib.measure(image.astype("int64")), TypeError, "argument 'image'")):
        with pytest.raises(error, match=message):
            call()


def test_reanalysis_through_the_camera_model(demo_images, tmp_path):
    rix = nordalib.Rix.load(demo_images[0])
    stored = rix.object_parameters
    assert rix.reanalyze(emissivity=stored["emissivity"]).raw.tobytes() == rix.raw.tobytes()

    other = rix.reanalyze(emissivity=0.8, reflected=30.0)
    # Written out on the image's Planck curve S(T) = R1 / (R2 (exp(B / (T + T0)) - F)) - O (no glass in front):
    # what left the surface under the stored parameters, solved for the object with 0.8 and 30 °C.
    assert (stored["glass_transmission"], stored["glass_emissivity"]) == (1.0, 0.0)
    p = rix.planck
    S = lambda kelvin: p.R1 / (p.R2 * (np.exp(p.B / (kelvin + p.T0)) - p.F)) - p.O
    e0, r0 = stored["emissivity"], stored["reflected"] + 273.15
    scene = e0 * S(rix.temperatures.astype("float64") + 273.15) + (1 - e0) * S(r0)
    own = (scene - 0.2 * S(303.15)) / 0.8
    expected = p.B / np.log(p.R1 / (p.R2 * (own + p.O)) + p.F) - p.T0 - 273.15
    assert np.abs(other.temperatures - expected).max() <= 0.0051
    assert (other.emissivity, other.reflected) == (0.8, pytest.approx(30.0))
    # behind a window transmitting 0.9 and emitting 0.1 at the reflected temperature
    glass = rix.reanalyze(glass_transmission=0.9, glass_emissivity=0.1)
    own = ((scene - 0.1 * S(r0)) / 0.9 - (1 - e0) * S(r0)) / e0
    behind = p.B / np.log(p.R1 / (p.R2 * (own + p.O)) + p.F) - p.T0 - 273.15
    assert np.abs(glass.temperatures - behind).max() <= 0.0051
    # its results are those of its own temperatures
    meta = other.metadata
    assert meta["MeasPoints.HotSpot.MeasPoint"] == nordalib.measure(other.raw).hot
    assert meta["MeasPoints.HotSpot.MeasPoint"].position == other.max.position
    centre = meta["MeasPoints.CenterSpot.MeasPoint"]
    assert centre.position == rix.metadata["MeasPoints.CenterSpot.MeasPoint"].position
    assert centre.value == pytest.approx(float(other.temperatures[centre.y, centre.x]), abs=1e-4)
    assert other.uuid != rix.uuid and not np.array_equal(other.preview, rix.preview)
    # saved and loaded: the temperatures and parameters of the new ones
    other.save(tmp_path / "other.rix")
    back = nordalib.Rix.load(tmp_path / "other.rix")
    assert np.abs(back.temperatures - expected).max() <= 0.0051
    assert back.object_parameters["emissivity"] == pytest.approx(0.8)

    emissivity = np.full(rix.shape, stored["emissivity"], "float32")
    emissivity[:, :100] = 0.8
    mixed = rix.reanalyze(emissivity=emissivity)
    assert np.array_equal(mixed.raw[:, :100], rix.reanalyze(emissivity=0.8).raw[:, :100])
    assert np.array_equal(mixed.raw[:, 100:], rix.raw[:, 100:])
    assert mixed.planck is None and np.array_equal(mixed.metadata["Radiometry.EmissivityMap"], emissivity)
    with pytest.raises(ValueError, match="Planck constants"):
        mixed.reanalyze(emissivity=0.9)  # one emissivity can not describe it any more


def test_air_reanalysis_matches_the_command_line(demo_images, tmp_path):
    rix = nordalib.Rix.load(demo_images[0])
    assert rix.object_parameters["distance"] is None  # taken without the air correction
    far = rix.reanalyze(distance=30.0, humidity=0.8, air_temperature=30.0)
    csv = tmp_path / "far.csv"
    nordacam("rix", "export", demo_images[0], "--csv", csv, "--distance", 30, "--air", 30, "--humidity", 80)
    # The module holds the humidity as the library's single-precision ratio, the command line as a
    # percentage: a pixel on a rounding edge may differ by one count (0.01 K), never more.
    assert np.abs(far.temperatures - np.loadtxt(csv, delimiter=";")).max() <= 0.0101
    assert far.temperatures.max() > rix.temperatures.max() + 0.1  # warm objects behind humid air
    kept = far.object_parameters
    assert (kept["distance"], kept["humidity"], kept["air_temperature"]) == (
        30.0, pytest.approx(0.8), pytest.approx(30.0))
    with pytest.raises(ValueError, match=r"object distance \(0, 10000\] m"):
        rix.reanalyze(distance=0.0)


def test_humidity_reanalysis_and_surface_moisture(demo_images):
    rix = nordalib.Rix.load(demo_images[0])
    humid = rix.reanalyze(humidity=0.8, air_temperature=21.0)
    assert np.array_equal(humid.raw, rix.raw)
    assert humid.metadata["Environment.Humidity"] == pytest.approx(0.8)
    assert humid.dew_point() == nordalib.dew_point(21.0, 0.8)
    moisture = humid.surface_moisture()
    y, x = rix.min.y, rix.min.x  # the cold object: 4 °C in air of 21 °C at 80 %: water condenses
    assert moisture[y, x] == pytest.approx(nordalib.surface_moisture(float(rix.temperatures[y, x]), 21.0, 0.8),
                                           abs=1e-5) and moisture[y, x] > 1.0
    assert np.array_equal(rix.surface_moisture(0.8, 21.0), moisture)


def test_reanalysis_rejects_bad_parameters_by_name(demo_images):
    rix = nordalib.Rix.load(demo_images[0])
    for kwargs, error, message in ((dict(emissivity=0.0), ValueError, "emissivity"),
                                   (dict(emissivity=np.ones((3, 3))), ValueError, "argument 'emissivity' must have"),
                                   (dict(emissivity=np.ones(rix.shape, "int32")), TypeError, "argument 'emissivity'"),
                                   (dict(emissivity=np.full(rix.shape, 1.5)), ValueError, "emissivity 1.5"),
                                   (dict(reflected="warm"), TypeError, "argument 'reflected'"),
                                   (dict(humidity=1.7), ValueError, "argument 'humidity' must be a fraction")):
        with pytest.raises(error, match=message):
            rix.reanalyze(**kwargs)
