import numpy as np
import pytest

import nordalib

IRON = nordalib.palette("iron")


def test_colorize_maps_limits_regions_and_humidity_like_the_camera():
    t = np.array([[10.0, 20.0, 25.0, 30.0, 40.0]], dtype="float32")
    rgb = nordalib.colorize(t, "iron", limits=(20, 30))
    assert rgb.shape == (1, 5, 3) and rgb.dtype == np.uint8
    assert (rgb[0, 0] == IRON[0]).all() and (rgb[0, 1] == IRON[0]).all()  # at and below the low limit
    assert (rgb[0, 3] == IRON[255]).all() and (rgb[0, 4] == IRON[255]).all()
    assert (rgb[0, 2] == IRON[128]).all()
    raw = (t.astype("float64") + 273.15) * 100
    assert np.array_equal(nordalib.colorize(np.round(raw).astype("uint16"), "iron", (20, 30)), rgb)
    assert np.array_equal(nordalib.colorize(t, "iron"), nordalib.colorize(t, "iron", (10, 40)))  # default span
    assert np.array_equal(nordalib.colorize(t, "iron", (20, 30), bgr=True), rgb[..., ::-1])
    assert np.array_equal(nordalib.colorize(t, IRON, (20, 30)), rgb)
    two = nordalib.colorize(t, np.array([[0, 0, 0], [255, 255, 255]], "uint8"), (20, 30))  # a threshold
    assert two[0, :, 0].tolist() == [0, 0, 255, 255, 255]

    banded = nordalib.colorize(t, "grey", (0, 50), isotherm=(19, 26, 0x00FF00), above=(35, (255, 0, 0)),
                               below=(15, 0x0000FF))
    assert banded[0].tolist() == [[0, 0, 255], [0, 255, 0], [0, 255, 0], list(nordalib.palette("grey")[153]),
                                  [255, 0, 0]]
    # humidity view: air 20 °C at 50 % condenses at 9.26 °C, reaches 80 % near 13 °C
    wet = nordalib.colorize(np.array([[5.0, 12.0, 20.0]]), humidity=(20, 0.5))
    assert wet[0].tolist() == [[0, 0, 255], [255, 0, 0], [0, 200, 0]]


def test_colorize_rejects_bad_arguments_by_name():
    t = np.zeros((2, 2), "float32")
    for kwargs, error, message in (
            (dict(image=t.astype("int32")), TypeError, "argument 'image' must be an array of uint16, float32"),
            (dict(image=np.zeros((2, 2, 3), "float32")), ValueError, "argument 'image' must have the shape "
                                                                     "(height, width)"),
            (dict(image=t, palette="sepia"), ValueError, "iron"),
            (dict(image=t, palette=np.zeros((256, 4), "uint8")), ValueError, "argument 'palette'"),
            (dict(image=t, limits=(1,)), TypeError, "argument 'limits'"),
            (dict(image=t, limits=("a", 3)), TypeError, "argument 'limits' must be a temperature"),
            (dict(image=t, isotherm=(1, 2)), TypeError, "argument 'isotherm' must be (low °C, high °C, colour)"),
            (dict(image=t, above=(30, 0x1000000)), ValueError, "colour 0x1000000 is not 0xRRGGBB"),
            (dict(image=t, humidity=(20, "wet")), TypeError, "argument 'humidity'")):
        with pytest.raises(error, match=message.replace("(", r"\(").replace(")", r"\)")):
            nordalib.colorize(**kwargs)


def test_dew_point_and_surface_moisture():
    dew = nordalib.dew_point(20.0, 0.5)
    assert dew == pytest.approx(9.26, abs=0.01) and dew.valid
    assert nordalib.surface_moisture(float(dew), 20.0, 0.5) == pytest.approx(1.0, abs=1e-3)
    surfaces = np.array([[5.0, 9.26, 20.0]])
    assert np.allclose(nordalib.surface_moisture(surfaces, 20.0, 0.5),
                       [[nordalib.surface_moisture(float(s), 20.0, 0.5) for s in surfaces[0]]])
    assert nordalib.surface_moisture(20.0, 20.0, 0.5) == pytest.approx(0.5, abs=1e-4)
    assert nordalib.dew_point(80.0, 0.5).mark == nordalib.values.OUT_OF_TOLERANCE  # beyond the formula's range
    with pytest.raises(TypeError, match="argument 'humidity'"):
        nordalib.dew_point(20.0, None)


def test_planck_conversions_invert_each_other():
    planck = nordalib.Planck(R1=300000.0, R2=1.0, B=1428.0, F=1.0, O=-40.0)
    t = np.array([-20.0, 0.0, 37.0, 120.0])
    assert np.allclose(planck.temperature(planck.signal(t)), t, atol=1e-9)
    assert planck.signal(37.0) == pytest.approx(300000.0 / (np.exp(1428.0 / 310.15) - 1.0) + 40.0)
    assert np.isnan(planck.temperature(-100.0))
    # what emissivity 0.9 makes of a surface measured at 50 °C with emissivity 1 ...
    actual = planck.convert(50.0, emissivity=1.0, reflected=20.0, to_emissivity=0.9, to_reflected=20.0)
    assert actual > 50.0
    # ... and back: the emissivity that makes a surface at `lower` read 50 °C with emissivity 1
    assert planck.emissivity(measured=50.0, actual=actual, emissivity=1.0, reflected=20.0) == pytest.approx(0.9)
    with pytest.raises(ValueError, match="emissivity"):
        planck.convert(50.0, emissivity=0.0, reflected=20.0, to_emissivity=0.9, to_reflected=20.0)
    with pytest.raises(TypeError, match="argument 'celsius'"):
        planck.signal("hot")
