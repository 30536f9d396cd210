// Colouring, climate and Planck conversions: thin calls into the library's own code.
#include "python/src/Arrays.h"
#include "python/src/Bindings.h"
#include "python/src/Values.h"

#include "nordalib/vision/climate/DewPoint.h"
#include "nordalib/vision/imgproc/ColorPaletteConverter.h"
#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "nordalib/vision/radiometry/Reanalysis.h"

#include <fmt/format.h>
#include <pybind11/stl.h>

#include <cmath>

namespace nordapy {

using namespace norda::vision;
using norda::exp::MarkedFloat;
using Temperature = norda::exp::quantity::Temperature<MarkedFloat>;
using Relation = norda::exp::quantity::Relation<MarkedFloat>;

namespace {

constexpr double kKelvin = 273.15;

uint32_t colourArgument(py::handle c, const char* name) {
    if (PyLong_Check(c.ptr()) && !PyBool_Check(c.ptr())) {
        const auto v = c.cast<long long>();
        if (v < 0 || v > 0xFFFFFF)
            throw py::value_error(fmt::format("argument '{}': colour 0x{:X} is not 0xRRGGBB", name, v));
        return uint32_t(v);
    }
    if (PySequence_Check(c.ptr()) && py::len(c) == 3) {
        uint32_t rgb = 0;
        for (auto part : py::reinterpret_borrow<py::sequence>(c)) {
            const int v = part.cast<int>();
            if (v < 0 || v > 255)
                throw py::value_error(
                    fmt::format("argument '{}': colour component {} is not 0..255", name, v));
            rgb = rgb << 8 | uint32_t(v);
        }
        return rgb;
    }
    throw py::type_error(fmt::format("argument '{}': a colour is 0xRRGGBB or (r, g, b)", name));
}

// (t1, ..., colour) tuples of the colour-region arguments.
py::sequence regionArgument(py::handle arg, const char* name, size_t temperatures) {
    if (!PySequence_Check(arg.ptr()) || PyUnicode_Check(arg.ptr()) || py::len(arg) != temperatures + 1)
        throw py::type_error(fmt::format("argument '{}' must be ({}colour)", name,
                                         temperatures == 2 ? "low °C, high °C, " : "°C, "));
    return py::reinterpret_borrow<py::sequence>(arg);
}

std::vector<uint8_t> paletteArgument(py::handle palette) {
    if (PyUnicode_Check(palette.ptr()))
        return Palettes::colors(palette.cast<std::string>());
    const ArrayView view = viewArray(palette, "palette", {CV_8U}, 1);
    if (view.mat.cols != 3)
        throw py::value_error("argument 'palette' must be a name or an (n, 3) uint8 array of colours");
    const cv::Mat colours = view.mat.clone();
    return std::vector<uint8_t>(colours.data, colours.data + colours.total());
}

py::array colorize(py::handle image, py::handle palette, py::handle limits, py::handle isotherm,
                   py::handle above, py::handle below, py::handle humidity, bool bgr) {
    py::object keep;
    const cv::Mat_<uint16_t> raw = encodedTemperatures(image, "image", keep);
    ColorPaletteConverter converter(bgr);
    cv::Mat_<cv::Vec3b> rgb;
    if (!humidity.is_none()) {
        if (!PySequence_Check(humidity.ptr()) || py::len(humidity) != 2)
            throw py::type_error("argument 'humidity' must be (air temperature °C, relative humidity 0..1)");
        const Temperature air = temperatureFrom(humidity[py::int_(0)], "humidity");
        const Relation rh = relationFrom(humidity[py::int_(1)], "humidity");
        {
            py::gil_scoped_release release;
            converter.palletizeHumid(raw, rgb, air, rh, true, {});
        }
        return toArray(rgb, true);
    }
    const std::vector<uint8_t> colours = paletteArgument(palette);
    uint16_t lower = 0, upper = 0;
    if (limits.is_none()) {
        double mn = 0, mx = 0;
        cv::minMaxIdx(raw, &mn, &mx);
        lower = uint16_t(mn);
        upper = uint16_t(mx);
    } else {
        if (!PySequence_Check(limits.ptr()) || py::len(limits) != 2)
            throw py::type_error("argument 'limits' must be (low °C, high °C)");
        lower = RadiometricTools::getUint16(temperatureFrom(limits[py::int_(0)], "limits").celsius());
        upper = RadiometricTools::getUint16(temperatureFrom(limits[py::int_(1)], "limits").celsius());
    }
    auto pixel = [](py::handle t, const char* name) {
        return RadiometricTools::getUint16(temperatureFrom(t, name).celsius());
    };
    if (!isotherm.is_none()) {
        auto r = regionArgument(isotherm, "isotherm", 2);
        converter.createColorRegion(ColorPaletteConverter::kIsotherm, pixel(r[1], "isotherm"),
                                    pixel(r[0], "isotherm"), colourArgument(r[2], "isotherm"));
    }
    if (!above.is_none()) {
        auto r = regionArgument(above, "above", 1);
        converter.createColorRegion(ColorPaletteConverter::kUpperAlarm, 65535, pixel(r[0], "above"),
                                    colourArgument(r[1], "above"));
    }
    if (!below.is_none()) {
        auto r = regionArgument(below, "below", 1);
        converter.createColorRegion(ColorPaletteConverter::kLowerAlarm, pixel(r[0], "below"), 0,
                                    colourArgument(r[1], "below"));
    }
    {
        py::gil_scoped_release release;
        converter.palletize(raw, rgb, lower, upper, true, colours);
    }
    return toArray(rgb, true);
}

// Scalars stay scalars, anything array-like becomes a float64 array; `f` maps one value.
template <typename F> py::object elementwise(py::handle x, const char* name, F f) {
    if (PyFloat_Check(x.ptr()) || (PyLong_Check(x.ptr()) && !PyBool_Check(x.ptr())))
        return py::float_(f(x.cast<double>()));
    py::array_t<double> in;
    bool numeric = !PyUnicode_Check(x.ptr()) && !PyBytes_Check(x.ptr());
    if (numeric) {
        try {
            in = py::array_t<double>::ensure(py::module_::import("numpy").attr("asarray")(x, "float64"));
        } catch (const py::error_already_set&) {
            numeric = false;
        }
    }
    if (!numeric)
        throw py::type_error(fmt::format("argument '{}' must be a number or an array of numbers, not {}",
                                         name, Py_TYPE(x.ptr())->tp_name));
    if (in.ndim() == 0)
        return py::float_(f(*in.data()));
    py::array_t<double> out(std::vector<py::ssize_t>(in.shape(), in.shape() + in.ndim()));
    auto contiguous = py::array_t<double, py::array::c_style>::ensure(in);
    const double* s = contiguous.data();
    double* d = out.mutable_data();
    const py::ssize_t n = contiguous.size();
    {
        py::gil_scoped_release release;
        for (py::ssize_t i = 0; i < n; ++i)
            d[i] = f(s[i]);
    }
    return out;
}

ObjectParameters objectParameters(double emissivity, double reflectedC, double tauPg, double emisPg) {
    ObjectParameters p{emissivity, reflectedC + kKelvin, tauPg, emisPg};
    p.validate();
    return p;
}

} // namespace

void bindTools(py::module_& m) {
    m.def("palettes", &Palettes::names, "Names of the library's colour palettes.");
    m.def(
        "palette",
        [](const std::string& name) {
            cv::Mat table(int(Palettes::kEntries), 1, CV_8UC3,
                          const_cast<uint8_t*>(Palettes::colors(name).data()));
            return toArray(table.reshape(1), false).attr("reshape")(Palettes::kEntries, 3);
        },
        py::arg("name"), "The (256, 3) uint8 RGB table of a palette, coldest first.");
    m.def("colorize", &colorize, py::arg("image"), py::arg("palette") = "iron",
          py::arg("limits") = py::none(), py::kw_only(), py::arg("isotherm") = py::none(),
          py::arg("above") = py::none(), py::arg("below") = py::none(), py::arg("humidity") = py::none(),
          py::arg("bgr") = false,
          R"(Colours a temperature image (float °C, or uint16 raw) as the camera does.

palette: a palette name or an (n, 3) uint8 table; limits: (low °C, high °C), default the image's
minimum and maximum; isotherm=(low, high, colour), above=(°C, colour), below=(°C, colour) paint
bands in one colour (0xRRGGBB or (r, g, b)); humidity=(air °C, relative humidity 0..1) colours by
the surface's humidity instead (green dry, yellow, red from 80 %, blue at condensation).
Returns uint8 (height, width, 3), RGB (BGR with bgr=True).)");

    m.def(
        "dew_point",
        [](py::handle air, py::handle humidity) {
            return temperature(DewPoint::calcDewPoint(temperatureFrom(air, "air_temperature"),
                                                      relationFrom(humidity, "humidity")));
        },
        py::arg("air_temperature"), py::arg("humidity"),
        "Dew point (Temperature, °C) of air at air_temperature °C with relative humidity 0..1.");
    m.def(
        "surface_moisture",
        [](py::handle surface, py::handle air, py::handle humidity) -> py::object {
            const Temperature a = temperatureFrom(air, "air_temperature");
            const Relation h = relationFrom(humidity, "humidity");
            if (!py::isinstance<py::array>(surface))
                return relation(DewPoint::calcSurfaceMoisture(temperatureFrom(surface, "surface"), a, h));
            return elementwise(surface, "surface", [&](double t) {
                return double(
                    DewPoint::calcSurfaceMoisture(Temperature(MarkedFloat(float(t))), a, h).ratio());
            });
        },
        py::arg("surface"), py::arg("air_temperature"), py::arg("humidity"),
        "Relative humidity (0..1) right at a surface of `surface` °C (a number or an array) in air of "
        "air_temperature °C and humidity 0..1; 1 at the dew point, above 1 water condenses.");

    py::class_<Reanalysis>(
        m, "Planck",
        R"(The Planck curve of a measurement range: S(T) = R1 / (R2 (exp(B / (T + T0)) - F)) - O.

Temperatures are °C; signal() and temperature() take numbers or arrays. emissivity() and
convert() go through the object side of the camera model (emissivity, reflected temperature,
protective glass) exactly as the camera's re-analysis does.)")
        .def(py::init([](double r1, double r2, double b, double f, double o, double t0) {
                 return Reanalysis(PlanckConstants{r1, r2, b, f, o, t0});
             }),
             py::arg("R1"), py::arg("R2"), py::arg("B"), py::arg("F"), py::arg("O"), py::arg("T0") = 0.0)
        .def_property_readonly("R1", [](const Reanalysis& r) { return r.planck().R1; })
        .def_property_readonly("R2", [](const Reanalysis& r) { return r.planck().R2; })
        .def_property_readonly("B", [](const Reanalysis& r) { return r.planck().B; })
        .def_property_readonly("F", [](const Reanalysis& r) { return r.planck().F; })
        .def_property_readonly("O", [](const Reanalysis& r) { return r.planck().O; })
        .def_property_readonly("T0", [](const Reanalysis& r) { return r.planck().T0; })
        .def(
            "signal",
            [](const Reanalysis& r, py::handle celsius) {
                const PlanckConstants c = r.planck();
                return elementwise(celsius, "celsius",
                                   [c](double t) { return RadiometricTools::planckSignal(c, t + kKelvin); });
            },
            py::arg("celsius"), "Detector signal of a black body at `celsius` (NaN outside the curve).")
        .def(
            "temperature",
            [](const Reanalysis& r, py::handle signal) {
                const PlanckConstants c = r.planck();
                return elementwise(signal, "signal", [c](double s) {
                    return RadiometricTools::planckTemperature(c, s) - kKelvin;
                });
            },
            py::arg("signal"), "Temperature (°C) of a signal (NaN where it has none).")
        .def(
            "convert",
            [](const Reanalysis& r, py::handle celsius, double e0, double r0, double e1, double r1,
               double tau, double glassEmis) {
                const ObjectParameters from = objectParameters(e0, r0, tau, glassEmis);
                const ObjectParameters to = objectParameters(e1, r1, tau, glassEmis);
                return elementwise(celsius, "celsius",
                                   [&](double t) { return r.convert(t + kKelvin, from, to) - kKelvin; });
            },
            py::arg("celsius"), py::arg("emissivity"), py::arg("reflected"), py::arg("to_emissivity"),
            py::arg("to_reflected"), py::arg("glass_transmission") = 1.0, py::arg("glass_emissivity") = 0.0,
            "A temperature measured with emissivity and reflected °C -> the one to_emissivity and "
            "to_reflected give.")
        .def(
            "emissivity",
            [](const Reanalysis& r, double measured, double actual, double emissivity, double reflected,
               double tau, double glassEmis) {
                return r.emissivity(measured + kKelvin, actual + kKelvin,
                                    objectParameters(emissivity, reflected, tau, glassEmis));
            },
            py::arg("measured"), py::arg("actual"), py::arg("emissivity") = 1.0, py::arg("reflected") = 20.0,
            py::arg("glass_transmission") = 1.0, py::arg("glass_emissivity") = 0.0,
            "Emissivity of a surface whose actual temperature is known, from the temperature measured "
            "with `emissivity` and `reflected` °C (NaN when the surface is too close to the reflected "
            "temperature).")
        .def("__repr__", [](const Reanalysis& r) {
            const auto& c = r.planck();
            return fmt::format("Planck(R1={}, R2={}, B={}, F={}, O={}, T0={})", c.R1, c.R2, c.B, c.F, c.O,
                               c.T0);
        });
}

} // namespace nordapy
