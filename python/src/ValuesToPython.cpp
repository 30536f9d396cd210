// The library's values as plain Python values (Values.h).
#include "python/src/Arrays.h"
#include "python/src/ValueTypes.h"

#include <fmt/format.h>
#include <pybind11/stl.h>

#include <functional>
#include <map>
#include <typeindex>

namespace nordapy {

using namespace norda::exp;
using Temperature = quantity::Temperature<MarkedFloat>;
using Relation = quantity::Relation<MarkedFloat>;

namespace {
ValueClasses* g_classes = nullptr;
} // namespace

const ValueClasses& valueClasses() {
    return *g_classes;
}

py::str pyText(const std::string& s) {
    PyObject* o = PyUnicode_DecodeUTF8(s.data(), py::ssize_t(s.size()), "surrogateescape");
    if (!o)
        throw py::error_already_set();
    return py::reinterpret_steal<py::str>(o);
}

std::string utf8(py::handle text) {
    py::bytes b =
        py::reinterpret_steal<py::bytes>(PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogateescape"));
    if (!b)
        throw py::error_already_set();
    return b;
}

// A float setting (an emissivity of 0.95) as the number it was set to, not as the nearest double
// of its single-precision value (0.949999988...); converting back gives the same float.
py::float_ shortestFloat(float f) {
    return py::float_(std::strtod(fmt::format("{}", f).c_str(), nullptr));
}

namespace {

template <typename T> py::object toPy(const T& v) {
    if constexpr (std::is_same_v<T, bool>)
        return py::bool_(v);
    else if constexpr (std::is_integral_v<T>)
        return py::int_(v);
    else if constexpr (std::is_same_v<T, float>)
        return shortestFloat(v);
    else if constexpr (std::is_floating_point_v<T>)
        return py::float_(v);
    else if constexpr (std::is_same_v<T, std::vector<float>>) {
        py::list l;
        for (float f : v)
            l.append(shortestFloat(f));
        return l;
    } else if constexpr (std::is_same_v<T, std::string>)
        return pyText(v);
    else if constexpr (std::is_same_v<T, std::vector<char>> || std::is_same_v<T, std::vector<unsigned char>>)
        return py::bytes(reinterpret_cast<const char*>(v.data()), v.size());
    else if constexpr (std::is_same_v<T, std::vector<std::string>>) {
        py::list l;
        for (const auto& s : v)
            l.append(pyText(s));
        return l;
    } else if constexpr (std::is_same_v<T, std::vector<norda::vision::BadPixel>>) {
        py::list l;
        for (const auto& p : v)
            l.append(toPy(p));
        return l;
    } else if constexpr (std::is_same_v<T, norda::vision::BadPixel>)
        return py::make_tuple(v.x, v.y, int(v.origin));
    else if constexpr (std::is_same_v<T, cv::Mat>)
        return toArray(v);
    else if constexpr (std::is_same_v<T, cv::Point_<int>>)
        return py::make_tuple(v.x, v.y);
    else if constexpr (std::is_same_v<T, cv::Rect_<int>>)
        return py::make_tuple(v.x, v.y, v.width, v.height);
    else if constexpr (std::is_same_v<T, MarkedFloat>)
        return valueClasses().marked(v.toFloat(), v.getMark());
    else if constexpr (std::is_same_v<T, Temperature>)
        return temperature(v);
    else if constexpr (std::is_same_v<T, Relation>)
        return relation(v);
    else if constexpr (std::is_same_v<T, MeasPoint>)
        return valueClasses().measPoint(v.getX(), v.getY(), toPython(v.getValue()));
    else if constexpr (std::is_same_v<T, MeasArea>) {
        const auto r = v.getAreaRect();
        return valueClasses().measArea(r.x, r.y, r.width, r.height, toPy(v.getHotSpot()),
                                       toPy(v.getColdSpot()), toPython(v.getMeanValue()));
    } else if constexpr (std::is_same_v<T, MeasRangeBorders>) {
        auto t = [](const MarkedFloat& m) { return temperature(Temperature(m)); };
        return valueClasses().borders(t(v.toleranceTop), t(v.toleranceBottom), t(v.displayTop),
                                      t(v.displayBottom));
    } else if constexpr (std::is_same_v<T, Version>)
        return py::str(v.toString());
    else if constexpr (std::is_same_v<T, DataStorage<std::string>>)
        return nordapy::toPython(v);
    else
        return py::cast(v); // vectors of numbers
}

using ToPython = std::function<py::object(const Variant&)>;

template <typename... Ts> struct ToPythonTable {
    static std::map<std::type_index, ToPython> make() {
        return {{typeid(Ts), [](const Variant& v) { return toPy<Ts>(v.value<Ts>()); }}...};
    }
};

const std::map<std::type_index, ToPython>& toPythonTable() {
    static const auto table = StoredTypes<ToPythonTable>::make();
    return table;
}

} // namespace

void initValues() {
    if (g_classes)
        return;
    auto m = py::module_::import("nordalib.values");
    g_classes = new ValueClasses{m.attr("Marked"),    m.attr("Temperature"), m.attr("Relation"),
                                 m.attr("MeasPoint"), m.attr("MeasArea"),    m.attr("MeasRangeBorders"),
                                 m.attr("Metadata")};
}

py::object temperature(const Temperature& t) {
    return valueClasses().temperature(t.celsius(), t.getValue().getMark());
}

py::object relation(const Relation& r) {
    return valueClasses().relation(r.ratio(), r.getValue().getMark());
}

py::object toPython(const std::shared_ptr<Variant>& value) {
    if (!value)
        return py::none();
    auto it = toPythonTable().find(value->type());
    if (it == toPythonTable().end())
        return py::str(value->toString()); // a type without a stored form: its text
    return it->second(*value);
}

py::object toPython(const DataStorage<std::string>& storage) {
    py::dict values, types;
    for (const auto& [key, value] : storage) {
        values[pyText(key)] = toPython(value);
        if (value)
            types[pyText(key)] = value->typeTag();
    }
    return valueClasses().metadata(values, py::arg("types") = types);
}

} // namespace nordapy
