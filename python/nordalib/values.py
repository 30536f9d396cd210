"""Plain Python forms of the library's measurement values.

Temperatures are degrees Celsius and ratios (emissivity, relative humidity) fractions, each a
``float`` carrying the validity mark the camera gave it:

    0  valid
    1  outside the tolerance band of the measurement range (shown, accuracy not guaranteed)
    3  below the display band (under range)
    5  above the display band (over range)

so they work wherever a float does and still say whether they can be trusted.
"""

from dataclasses import dataclass
from typing import Optional, Union

VALID, OUT_OF_TOLERANCE, UNDER_RANGE, OVER_RANGE = 0, 1, 3, 5
_MARK_NAMES = {0: "valid", 1: "outside tolerance", 3: "under range", 5: "over range"}


class _Marked(float):
    __slots__ = ("mark",)

    def __new__(cls, value, mark=0):
        obj = super().__new__(cls, value)
        obj.mark = int(mark)
        return obj

    @property
    def valid(self):
        return self.mark == VALID

    def __reduce__(self):
        return (type(self), (float(self), self.mark))

    def _suffix(self):
        return "" if self.mark == VALID else ", " + _MARK_NAMES.get(self.mark, "mark %d" % self.mark)


class Marked(_Marked):
    """A measured value with a validity mark (the library's MarkedFloat)."""

    def __repr__(self):
        return "Marked(%r%s)" % (float(self), self._suffix())


class Temperature(_Marked):
    """A temperature in degrees Celsius with its validity mark."""

    @property
    def kelvin(self):
        return float(self) + 273.15

    def __repr__(self):
        return "Temperature(%.2f °C%s)" % (float(self), self._suffix())


class Relation(_Marked):
    """A ratio as a fraction (0.5 is 50 %) with its validity mark: relative humidity, emissivity."""

    @property
    def percent(self):
        return float(self) * 100.0

    def __repr__(self):
        return "Relation(%.1f %%%s)" % (self.percent, self._suffix())


@dataclass(frozen=True)
class MeasPoint:
    """A measurement at an image position; the value is a Temperature, or a Relation (the
    relative humidity at the surface) for points measured in humidity mode."""

    x: int
    y: int
    value: Optional[Union[Temperature, Relation]]

    @property
    def position(self):
        return (self.x, self.y)

    @property
    def temperature(self):
        """The value when it is a temperature, else None."""
        return self.value if isinstance(self.value, Temperature) else None


@dataclass(frozen=True)
class MeasArea:
    """A rectangular measurement area with its hot spot, cold spot and mean value."""

    x: int
    y: int
    width: int
    height: int
    hot: MeasPoint
    cold: MeasPoint
    mean: Optional[Union[Temperature, Relation]]

    @property
    def rect(self):
        return (self.x, self.y, self.width, self.height)


@dataclass(frozen=True)
class MeasRangeBorders:
    """The limits of a measurement range, in degrees Celsius: within the tolerance band the camera
    measures within its stated accuracy, beyond the display band it cannot measure at all."""

    tolerance_top: Temperature
    tolerance_bottom: Temperature
    display_top: Temperature
    display_bottom: Temperature


@dataclass(frozen=True)
class Statistics:
    """An image's statistics as the camera's min/max extraction finds them (nordalib.measure)."""

    cold: MeasPoint
    hot: MeasPoint
    min: Temperature
    max: Temperature
    mean: Temperature


class Metadata(dict):
    """Settings and results stored with an image or a frame, key to plain Python value.

    ``types`` remembers the library's type of every value that was read (its type tag: "ull",
    "f32", "Temperature", ...), so that writing the values back stores them as the same types."""

    def __init__(self, *args, types=None, **kwargs):
        super().__init__(*args, **kwargs)
        self.types = dict(types or {})

    def copy(self):
        return Metadata(self, types=self.types)
