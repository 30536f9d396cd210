// nordalib.Rix: a saved radiometric image (the library's Rix container) as NumPy arrays and values.
#include "python/src/Arrays.h"
#include "python/src/Bindings.h"
#include "python/src/Values.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/climate/DewPoint.h"
#include "nordalib/vision/imgproc/ColorConvert.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "nordalib/vision/rix/Rix.h"
#include "nordalib/vision/rix/RixMeasurements.h"
#include "nordalib/vision/rix/RixReanalysis.h"

#include <fmt/format.h>

namespace nordapy {

using norda::vision::RadiometricTools;
using norda::vision::Rix;

namespace {

// A loaded image; the container is never changed after loading, so arrays may view its pixels.
struct PyRix {
    std::shared_ptr<const Rix> rix;
    std::string source;
    py::object temperatures, visual; // computed on first use
};

cv::Mat celsius(const cv::Mat_<uint16_t>& raw) {
    cv::Mat_<float> out(raw.size());
    for (int y = 0; y < raw.rows; ++y) {
        const uint16_t* s = raw[y];
        float* d = out[y];
        for (int x = 0; x < raw.cols; ++x)
            d[x] = RadiometricTools::getFloat(s[x]);
    }
    return out;
}

PyRix loaded(Rix&& rix, std::string source) {
    PyRix r;
    r.rix = std::make_shared<const Rix>(std::move(rix));
    r.source = std::move(source);
    return r;
}

py::object extreme(uint16_t value, const cv::Point& position) {
    if (position.x < 0 || position.y < 0)
        return py::none();
    // The pixel's own temperature, as in `temperatures` (not rounded into a marked value).
    auto values = py::module_::import("nordalib.values");
    return values.attr("MeasPoint")(position.x, position.y,
                                    values.attr("Temperature")(RadiometricTools::getFloat(value)));
}

// The air the image was taken in: the arguments where given, the image's own entries otherwise.
norda::vision::MeasurementResults::Humidity airOf(const Rix& rix, py::handle humidity, py::handle air) {
    norda::vision::MeasurementResults::Humidity h;
    auto stored = [&](const std::string& key, auto& out) {
        auto v = rix.getGeneric(key);
        if (!v || !v->holds<std::decay_t<decltype(out)>>())
            throw py::value_error(
                "the image does not say the air's " +
                std::string(key == norda::exp::Id::Environment::Humidity ? "humidity" : "temperature") +
                " (" + key + "); give it as an argument");
        out = v->value<std::decay_t<decltype(out)>>();
    };
    if (humidity.is_none()) {
        stored(norda::exp::Id::Environment::Humidity, h.humidity);
    } else {
        h.humidity = relationFrom(humidity, "humidity");
        if (!(h.humidity.ratio() > 0.0f && h.humidity.ratio() <= 1.0f))
            throw py::value_error(
                fmt::format("argument 'humidity' must be a fraction in (0, 1], not {}", h.humidity.ratio()));
    }
    if (air.is_none())
        stored(norda::exp::Id::Environment::Temperature, h.air);
    else
        h.air = temperatureFrom(air, "air_temperature");
    return h;
}

PyRix reanalyze(const PyRix& r, py::handle emissivity, py::handle reflected, py::handle humidity,
                py::handle air, py::handle tau, py::handle glassEmissivity, py::handle distance) {
    const auto& rad = r.rix->getRadiometricImage();
    auto number = [](py::handle v) {
        return py::float_(py::reinterpret_borrow<py::object>(v)).cast<double>();
    };
    norda::vision::RixReanalysis::Changes changes;
    Emissivity e;
    if (!emissivity.is_none()) {
        e = emissivityArgument(emissivity, "emissivity", rad.size());
        if (!e.perPixel)
            changes.emissivity = e.value;
    }
    if (!reflected.is_none())
        changes.reflectedK = temperatureFrom(reflected, "reflected").kelvin();
    if (!tau.is_none())
        changes.tauPg = number(tau);
    if (!glassEmissivity.is_none())
        changes.emisPg = number(glassEmissivity);
    if (!distance.is_none())
        changes.distanceM = number(distance);
    // The air of the humidity view and of the air path are one: both follow the arguments.
    std::optional<norda::vision::MeasurementResults::Humidity> climate;
    if (!humidity.is_none() || !air.is_none()) {
        climate = airOf(*r.rix, humidity, air);
        changes.humidityPercent = climate->humidity.ratio() * 100.0;
        changes.airK = climate->air.kelvin();
    }
    const auto to = norda::vision::RixReanalysis::parametersFor(*r.rix, changes);
    Rix out;
    {
        py::gil_scoped_release release;
        out = norda::vision::RixReanalysis::reanalysed(*r.rix, to, e.map, climate);
    }
    return loaded(std::move(out), r.source + ", re-analysed");
}

} // namespace

void bindRix(py::module_& m) {
    py::class_<PyRix>(m, "Rix", R"(A saved radiometric image (IR*.RIX, SR*.RIX).

Rix.load(path) or Rix.from_bytes(data) reads one; the image is read-only, and its arrays view
the loaded pixels without copying them.)")
        .def_static(
            "load",
            [](py::handle path, bool pictures) {
                const std::string p = pathArgument(path);
                requireReadable(p);
                Rix rix;
                {
                    py::gil_scoped_release release;
                    rix.load(p, pictures ? Rix::Content::Everything : Rix::Content::Radiometric);
                }
                return loaded(std::move(rix), p);
            },
            py::arg("path"), py::kw_only(), py::arg("pictures") = true,
            "Reads a radiometric image file; ValueError when it is damaged or not one. pictures=False "
            "keeps the temperatures and settings only (preview, visual image and super-resolution "
            "frames are checked, then dropped), for analyses of many files.")
        .def_static(
            "from_bytes",
            [](py::buffer data) {
                const py::buffer_info info = data.request();
                if (info.itemsize != 1 || info.ndim != 1)
                    throw py::type_error("argument 'data' must be bytes or another 1-D byte buffer");
                Rix rix;
                {
                    py::gil_scoped_release release;
                    rix.load(info.ptr, size_t(info.size), "bytes");
                }
                return loaded(std::move(rix), "bytes");
            },
            py::arg("data"), "Reads a radiometric image from the bytes of a file.")
        .def(
            "save",
            [](const PyRix& r, py::handle path, bool superResolution) {
                const std::string p = pathArgument(path);
                py::gil_scoped_release release;
                r.rix->save(p, superResolution);
            },
            py::arg("path"), py::arg("super_resolution") = false,
            "Writes the image (atomically: an existing file is replaced only by a complete new one). "
            "super_resolution=True writes the super-resolution file, which needs a super-resolution image. "
            "OSError (with errno and the file) when it can not be written: a missing folder, a full disk.")
        .def("to_bytes",
             [](const PyRix& r) {
                 std::vector<char> out;
                 {
                     py::gil_scoped_release release;
                     r.rix->save(out, false);
                 }
                 return py::bytes(out.data(), out.size());
             })
        .def_property_readonly(
            "temperatures",
            [](PyRix& r) {
                if (!r.temperatures)
                    r.temperatures = toArray(celsius(r.rix->getRadiometricImage()));
                return r.temperatures;
            },
            "float32 (height, width): every pixel's temperature in °C.")
        .def_property_readonly(
            "raw", [](const PyRix& r) { return toArray(r.rix->getRadiometricImage()); },
            "uint16 (height, width) as stored: 0.01 K per count from absolute zero "
            "(°C = raw / 100 - 273.15); 0 and 65535 mean below and beyond the scale.")
        .def_property_readonly(
            "preview", [](const PyRix& r) { return toArrayOrNone(r.rix->getPreviewImageRgb()); },
            "uint8 (height, width, 3) RGB: the palette image as the user saw it, or None.")
        .def_property_readonly(
            "visual",
            [](PyRix& r) -> py::object {
                if (r.rix->getVisualImageYuv2().empty())
                    return py::none();
                if (!r.visual) {
                    cv::Mat_<cv::Vec3b> rgb;
                    norda::vision::ColorConvert::convertUY1VY0ToRGB(r.rix->getVisualImageYuv2(), rgb);
                    r.visual = toArray(rgb);
                }
                return r.visual;
            },
            "uint8 (height, width, 3) RGB of the visual camera, or None.")
        .def_property_readonly(
            "visual_yuv", [](const PyRix& r) { return toArrayOrNone(r.rix->getVisualImageYuv2()); },
            "uint8 (height, width, 2): the visual image as stored, YUV 4:2:2 (U Y0 V Y1), or None.")
        .def_property_readonly("visual_preview_factor",
                               [](const PyRix& r) { return r.rix->getVisualPreviewFactor(); })
        .def_property_readonly("visual_high_resolution",
                               [](const PyRix& r) { return r.rix->isVisualHighResolution(); })
        .def_property_readonly(
            "metadata", [](const PyRix& r) { return toPython(r.rix->getGenerics()); },
            "The settings and results saved with the image (a new dict on every access).")
        .def_property_readonly("shape",
                               [](const PyRix& r) {
                                   const auto& m = r.rix->getRadiometricImage();
                                   return py::make_tuple(m.rows, m.cols);
                               })
        .def_property_readonly("emissivity",
                               [](const PyRix& r) { return shortestFloat(r.rix->getEmissivityOriginal()); })
        .def_property_readonly("reflected",
                               [](const PyRix& r) { return temperature(r.rix->getReflectedTempOriginal()); })
        .def_property_readonly(
            "scaling",
            [](const PyRix& r) {
                return py::make_tuple(temperature(r.rix->getScalingMin()),
                                      temperature(r.rix->getScalingMax()));
            },
            "(lowest, highest) temperature of the palette scale.")
        .def_property_readonly(
            "min",
            [](const PyRix& r) { return extreme(r.rix->getMinMax().min, r.rix->getMinMax().minPosition); },
            "The coldest pixel (MeasPoint), or None when the file does not say.")
        .def_property_readonly(
            "max",
            [](const PyRix& r) { return extreme(r.rix->getMinMax().max, r.rix->getMinMax().maxPosition); },
            "The hottest pixel (MeasPoint), or None when the file does not say.")
        .def_property_readonly("uuid", [](const PyRix& r) { return r.rix->getFileUuidString(); })
        .def_property_readonly(
            "time",
            [](const PyRix& r) {
                auto dt = py::module_::import("datetime");
                const unsigned long long ms = r.rix->getFileDateTime();
                return dt.attr("datetime").attr("fromtimestamp")(ms / 1000, dt.attr("timezone").attr("utc")) +
                       dt.attr("timedelta")(py::arg("milliseconds") = ms % 1000);
            },
            "Capture time (datetime, UTC).")
        .def_property_readonly("file_version",
                               [](const PyRix& r) { return r.rix->getFileVersion().toString(); })
        .def_property_readonly("is_super_resolution_file",
                               [](const PyRix& r) { return r.rix->isSuperResolutionFile(); })
        .def_property_readonly(
            "super_resolution",
            [](const PyRix& r) -> py::object {
                const auto& sr = r.rix->getSuperResolutionImage();
                return sr.empty() ? py::none() : py::object(toArray(celsius(sr)));
            },
            "float32 °C at twice the resolution, or None.")
        .def_property_readonly("super_resolution_quality",
                               [](const PyRix& r) { return r.rix->getSuperResolutionQuality(); })
        .def_property_readonly(
            "super_resolution_frames",
            [](const PyRix& r) {
                py::list frames;
                for (const auto& f : r.rix->getSrFrames())
                    frames.append(toArray(f));
                return frames;
            },
            "The raw frames kept for a super-resolution calculation (uint16 arrays).")
        .def_property_readonly(
            "planck",
            [](const PyRix& r) -> py::object {
                if (!r.rix->getGeneric(norda::exp::Id::Radiometry::Planck))
                    return py::none();
                const auto c = norda::vision::RixReanalysis::planckConstants(*r.rix);
                return py::module_::import("nordalib").attr("Planck")(c.R1, c.R2, c.B, c.F, c.O, c.T0);
            },
            "The Planck constants of the measurement range the image was taken in, or None.")
        .def_property_readonly(
            "object_parameters",
            [](const PyRix& r) {
                const auto p = norda::vision::RixReanalysis::storedParameters(*r.rix);
                py::dict d;
                d["emissivity"] = p.emissivity;
                d["reflected"] =
                    temperature(Rix::Temperature::fromKelvin(norda::exp::MarkedFloat(float(p.reflectedK))));
                d["glass_transmission"] = p.tauPg;
                d["glass_emissivity"] = p.emisPg;
                d["glass_reflectance"] = p.pgReflectance;
                d["distance"] =
                    p.distanceM > 0.0 ? py::object(py::float_(p.distanceM)) : py::object(py::none());
                if (p.distanceM > 0.0) {
                    d["air_temperature"] = p.airK - 273.15;
                    d["humidity"] = p.humidityPercent / 100.0;
                }
                return d;
            },
            "The object parameters the temperatures were computed with.")
        .def("reanalyze", &reanalyze, py::arg("emissivity") = py::none(), py::arg("reflected") = py::none(),
             py::kw_only(), py::arg("humidity") = py::none(), py::arg("air_temperature") = py::none(),
             py::arg("glass_transmission") = py::none(), py::arg("glass_emissivity") = py::none(),
             py::arg("distance") = py::none(),
             R"(A copy of the image under other object parameters or in other air.

emissivity: a number, or a float array of the image's shape with one emissivity per pixel;
reflected: °C; glass_transmission, glass_emissivity: the protective glass; humidity (0..1) and
air_temperature (°C): the air; distance (m, (0, 10000]): the object's distance, which turns the
air correction on (the air then absorbs and emits along it). What is not given stays as the image
has it. The copy's
temperatures, stored parameters, measurement results (spots, areas, statistics, min/max) and
preview are computed anew by the camera's model. Needs the image's Planck constants when an
object parameter changes.)")
        .def_property_readonly(
            "borders",
            [](const PyRix& r) -> py::object {
                const auto b = norda::vision::RixMeasurements::borders(*r.rix);
                if (!b.allValid())
                    return py::none();
                return toPython(std::make_shared<norda::exp::Variant_<norda::exp::MeasRangeBorders>>(b));
            },
            "The borders of the measurement range the image was taken in (MeasRangeBorders), or None.")
        .def(
            "surface_moisture",
            [](const PyRix& r, py::handle humidity, py::handle air) {
                const auto h = airOf(*r.rix, humidity, air);
                const auto& rad = r.rix->getRadiometricImage();
                cv::Mat_<float> out(rad.size());
                {
                    // One evaluation per pixel value that occurs, as the camera's humidity view does.
                    py::gil_scoped_release release;
                    double mn = 0, mx = 0;
                    cv::minMaxIdx(rad, &mn, &mx);
                    std::vector<float> table(size_t(mx - mn) + 1);
                    for (size_t i = 0; i < table.size(); ++i) {
                        const float t = RadiometricTools::getFloat(static_cast<uint16_t>(mn + double(i)));
                        table[i] = norda::vision::DewPoint::calcSurfaceMoisture(
                                       Rix::Temperature(norda::exp::MarkedFloat(t)), h.air, h.humidity)
                                       .ratio();
                    }
                    for (int y = 0; y < rad.rows; ++y)
                        for (int x = 0; x < rad.cols; ++x)
                            out(y, x) = table[size_t(rad(y, x) - int(mn))];
                }
                return toArray(out);
            },
            py::arg("humidity") = py::none(), py::arg("air_temperature") = py::none(),
            "float32 (height, width): the relative humidity (0..1) right at every pixel's surface in the "
            "image's air (or the one given); 1 at the dew point, above 1 water condenses.")
        .def(
            "dew_point",
            [](const PyRix& r, py::handle humidity, py::handle air) {
                const auto h = airOf(*r.rix, humidity, air);
                return temperature(norda::vision::DewPoint::calcDewPoint(h.air, h.humidity));
            },
            py::arg("humidity") = py::none(), py::arg("air_temperature") = py::none(),
            "The dew point (Temperature) of the image's air (or the one given).")
        .def("__repr__", [](const PyRix& r) {
            const auto& m = r.rix->getRadiometricImage();
            return fmt::format("<nordalib.Rix {} x {} from {}>", m.cols, m.rows, r.source);
        });
}

} // namespace nordapy
