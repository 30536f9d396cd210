"""nordalib for Python: radiometric images and raw recordings as NumPy arrays, with the camera
library's own conversions, colouring and measurements.

    import nordalib
    rix = nordalib.Rix.load("IR000001.RIX")
    rix.temperatures                    # float32 °C, height x width
    rix.metadata["MeasPoints.HotSpot.MeasPoint"]
    rgb = nordalib.colorize(rix.temperatures, "iron", limits=(20, 40))
    rec = nordalib.pxm.open("RAW20261123-154730.pxm")

docs/python.md describes the module.
"""

import sys as _sys
import sysconfig as _sysconfig

from . import _build

if _sysconfig.get_config_var("EXT_SUFFIX") != _build.EXT_SUFFIX:
    raise ImportError(
        "nordalib was built for %s (extension suffix %s), not for this Python (%s, %s); build it "
        "for this one with cmake -DNORDA_PYTHON=%s" % (
            _build.PYTHON, _build.EXT_SUFFIX, _sys.executable,
            _sysconfig.get_config_var("EXT_SUFFIX"), _sys.executable))


def _numpy():
    """Imports NumPy. An interpreter of the same ABI as the one the module was built for, but
    without a NumPy of its own (a second Python installation beside the system's), loads the
    NumPy the module was built against, and only that package."""
    try:
        import numpy
        return numpy
    except ImportError:
        pass
    import importlib.util
    import os
    import sys

    package = os.path.join(_build.NUMPY_PATH, "numpy")
    if not os.path.isdir(package):
        raise ImportError(
            "nordalib needs NumPy: this Python (%s) has none, and the module was built for %s "
            "with the NumPy in %s; run it with that interpreter or install NumPy for this one"
            % (sys.executable, _build.PYTHON, _build.NUMPY_PATH))
    found = importlib.util.spec_from_file_location(
        "numpy", os.path.join(package, "__init__.py"), submodule_search_locations=[package])
    numpy = importlib.util.module_from_spec(found)
    sys.modules["numpy"] = numpy
    try:
        found.loader.exec_module(numpy)
    except BaseException:
        del sys.modules["numpy"]
        raise
    return numpy


_numpy()

from . import values  # noqa: E402  (NumPy first)
from ._nordalib import (  # noqa: E402
    Planck, Rix, colorize, dew_point, measure, measure_area, measure_point, palette, palettes, surface_moisture)
from . import pxm  # noqa: E402
from . import analysis  # noqa: E402
from .values import (  # noqa: E402
    Marked, MeasArea, MeasPoint, MeasRangeBorders, Metadata, Relation, Statistics, Temperature)

__version__ = _build.VERSION
__all__ = [
    "Rix", "pxm", "analysis", "colorize", "palette", "palettes", "dew_point", "surface_moisture", "Planck",
    "measure", "measure_point", "measure_area",
    "Temperature", "Relation", "Marked", "MeasPoint", "MeasArea", "MeasRangeBorders", "Metadata", "Statistics",
]
