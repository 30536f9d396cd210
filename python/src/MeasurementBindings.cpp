// nordalib.measure, measure_point, measure_area: the camera's min/max extraction on any image.
#include "python/src/Arrays.h"
#include "python/src/Bindings.h"
#include "python/src/Values.h"

#include "nordalib/vision/measurement/MeasurementResults.h"
#include "nordalib/vision/measurement/MeasurementStatistics.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <fmt/format.h>
#include <pybind11/stl.h>

#include <optional>

namespace nordapy {

using namespace norda::vision;
using norda::exp::MarkedFloat;

namespace {

using norda::exp::MeasRangeBorders;

MeasRangeBorders bordersArgument(py::handle borders) {
    if (borders.is_none()) // unknown borders: values pass unmarked
        return {
            MarkedFloat(0.0f, MarkedFloat::OutOfTolerance), MarkedFloat(0.0f, MarkedFloat::OutOfTolerance),
            MarkedFloat(0.0f, MarkedFloat::OutOfTolerance), MarkedFloat(0.0f, MarkedFloat::OutOfTolerance)};
    if (!py::isinstance(borders, py::module_::import("nordalib.values").attr("MeasRangeBorders")))
        throw py::type_error(fmt::format("argument 'borders' must be a nordalib.MeasRangeBorders, not {}",
                                         Py_TYPE(borders.ptr())->tp_name));
    return fromPython(borders, "MeasRangeBorders", "borders")->value<MeasRangeBorders>();
}

std::optional<MeasurementResults::Humidity> humidityArgument(py::handle humidity) {
    if (humidity.is_none())
        return std::nullopt;
    if (!PySequence_Check(humidity.ptr()) || py::len(humidity) != 2)
        throw py::type_error("argument 'humidity' must be (air temperature °C, relative humidity 0..1)");
    return MeasurementResults::Humidity{relationFrom(humidity[py::int_(1)], "humidity"),
                                        temperatureFrom(humidity[py::int_(0)], "humidity")};
}

py::object measure(py::handle image, py::handle borders, py::handle humidity) {
    py::object keep;
    const cv::Mat_<uint16_t> raw = encodedTemperatures(image, "image", keep);
    const MeasRangeBorders b = bordersArgument(borders);
    const auto h = humidityArgument(humidity);
    const bool known = b.allValid();
    MeasurementStatistics statistics;
    MeasurementStatistics::Extremes e;
    {
        py::gil_scoped_release release;
        e = statistics.scanImage(raw, known ? RadiometricTools::getUint16(b.toleranceBottom.toFloat()) : 0,
                                 known ? RadiometricTools::getUint16(b.toleranceTop.toFloat()) : 65535);
    }
    auto point = [&](cv::Point_<unsigned short> p, unsigned short v) {
        return toPython(
            norda::exp::makeVariant(MeasurementResults::point(p.x, p.y, v, b, h ? &*h : nullptr)));
    };
    auto marked = [&](unsigned short v) { return temperature(MeasurementStatistics::markValidity(v, b)); };
    return py::module_::import("nordalib.values")
        .attr("Statistics")(point(e.cold, e.minRaw), point(e.hot, e.maxRaw), marked(e.minRaw),
                            marked(e.maxRaw), marked(e.mean));
}

py::object measurePoint(py::handle image, py::handle x, py::handle y, py::handle borders,
                        py::handle humidity) {
    py::object keep;
    const cv::Mat_<uint16_t> raw = encodedTemperatures(image, "image", keep);
    auto coordinate = [](py::handle v, const char* name, int size) {
        if (!PyIndex_Check(v.ptr()))
            throw py::type_error(fmt::format("argument '{}' must be an integer", name));
        const auto c = v.cast<long long>();
        if (c < 0 || c >= size)
            throw py::value_error(
                fmt::format("argument '{}' = {} is outside the image (0..{})", name, c, size - 1));
        return static_cast<unsigned short>(c);
    };
    const unsigned short px = coordinate(x, "x", raw.cols), py_ = coordinate(y, "y", raw.rows);
    const auto h = humidityArgument(humidity);
    return toPython(norda::exp::makeVariant(
        MeasurementResults::point(px, py_, raw(py_, px), bordersArgument(borders), h ? &*h : nullptr)));
}

py::object measureArea(py::handle image, py::handle rect, py::handle borders, py::handle humidity) {
    py::object keep;
    const cv::Mat_<uint16_t> raw = encodedTemperatures(image, "image", keep);
    cv::Rect r = MeasurementResults::centreArea(raw.size());
    if (!rect.is_none()) {
        if (!PySequence_Check(rect.ptr()) || py::len(rect) != 4)
            throw py::type_error("argument 'rect' must be (x, y, width, height)");
        const auto v = rect.cast<std::vector<long long>>();
        if (v[2] <= 0 || v[3] <= 0 || v[0] < 0 || v[1] < 0 || v[0] + v[2] > raw.cols ||
            v[1] + v[3] > raw.rows)
            throw py::value_error(
                fmt::format("argument 'rect' ({}, {}, {}, {}) is not inside the {} x {} image", v[0], v[1],
                            v[2], v[3], raw.cols, raw.rows));
        r = cv::Rect(int(v[0]), int(v[1]), int(v[2]), int(v[3]));
    }
    const MeasRangeBorders b = bordersArgument(borders);
    const auto h = humidityArgument(humidity);
    norda::exp::MeasArea area;
    {
        py::gil_scoped_release release;
        area = MeasurementResults::area(raw, r, b, h ? &*h : nullptr);
    }
    return toPython(norda::exp::makeVariant(area));
}

} // namespace

void bindMeasurement(py::module_& m) {
    const char* measurementArguments = R"(

image: float °C or uint16 raw; borders: the measurement range's MeasRangeBorders (values outside
its tolerance band are marked; without borders they come unmarked); humidity=(air °C, humidity
0..1): point values become the relative humidity at the surface, as in the camera's humidity
mode.)";
    m.def("measure", &measure, py::arg("image"), py::arg("borders") = py::none(),
          py::arg("humidity") = py::none(),
          (std::string(R"(The image's statistics as the camera's min/max extraction finds them.

Returns Statistics(cold, hot, min, max, mean): the first coldest and hottest pixel in row order
(MeasPoint), their temperatures, and the mean of the pixels inside the tolerance band (the middle
of the extremes when none is; the mean of all pixels without borders).)") +
           measurementArguments)
              .c_str());
    m.def("measure_point", &measurePoint, py::arg("image"), py::arg("x"), py::arg("y"),
          py::arg("borders") = py::none(), py::arg("humidity") = py::none(),
          (std::string("The MeasPoint at (x, y).") + measurementArguments).c_str());
    m.def("measure_area", &measureArea, py::arg("image"), py::arg("rect") = py::none(),
          py::arg("borders") = py::none(), py::arg("humidity") = py::none(),
          (std::string("The MeasArea of rect=(x, y, width, height), by default the camera's centre area "
                       "(the middle half of the image in each direction): its first coldest and hottest "
                       "pixel and the rounded mean of all its pixels.") +
           measurementArguments)
              .c_str());
}

} // namespace nordapy
