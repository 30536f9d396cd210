// Plain Python values as the library's values (Values.h).
#include "python/src/Arrays.h"
#include "python/src/ValueTypes.h"

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"

#include <fmt/format.h>

#include <functional>
#include <limits>
#include <map>

namespace nordapy {

using namespace norda::exp;
using Temperature = quantity::Temperature<MarkedFloat>;
using Relation = quantity::Relation<MarkedFloat>;

namespace {

[[noreturn]] void wrongType(const std::string& key, const std::string& tag, py::handle value) {
    throw py::type_error(fmt::format("metadata '{}': a {} value can not be stored as '{}'", key,
                                     Py_TYPE(value.ptr())->tp_name, tag));
}

// Python and NumPy integers (and bools, which are integers to Python).
bool isInteger(py::handle v) {
    return PyIndex_Check(v.ptr()) && !py::isinstance<py::array>(v);
}
bool isReal(py::handle v) {
    return !PyBool_Check(v.ptr()) && (PyFloat_Check(v.ptr()) || isInteger(v) || PyNumber_Check(v.ptr()));
}

int markOf(py::handle v) {
    return py::hasattr(v, "mark") ? v.attr("mark").cast<int>() : 0;
}

std::string text(py::handle v, const std::string& key, const std::string& tag) {
    if (!PyUnicode_Check(v.ptr()))
        wrongType(key, tag, v);
    return utf8(v);
}

template <typename T> T fromPy(py::handle v, const std::string& key, const std::string& tag);

template <typename T> T integer(py::handle v, const std::string& key, const std::string& tag) {
    if (!isInteger(v))
        wrongType(key, tag, v);
    PyObject* index = PyNumber_Index(v.ptr());
    if (!index)
        throw py::error_already_set();
    const auto i = py::reinterpret_steal<py::object>(index);
    int overflow = 0;
    if constexpr (std::is_signed_v<T>) {
        const long long x = PyLong_AsLongLongAndOverflow(i.ptr(), &overflow);
        if (!overflow && x >= std::numeric_limits<T>::min() && x <= std::numeric_limits<T>::max())
            return T(x);
    } else {
        const unsigned long long x = PyLong_AsUnsignedLongLong(i.ptr());
        if (PyErr_Occurred())
            PyErr_Clear();
        else if (x <= std::numeric_limits<T>::max())
            return T(x);
    }
    throw py::value_error(
        fmt::format("metadata '{}': {} does not fit '{}'", key, py::str(v).cast<std::string>(), tag));
}

template <typename T> std::vector<T> sequence(py::handle v, const std::string& key, const std::string& tag) {
    if (PyUnicode_Check(v.ptr()) || !PySequence_Check(v.ptr()))
        wrongType(key, tag, v);
    std::vector<T> out;
    for (auto item : py::reinterpret_borrow<py::sequence>(v))
        out.push_back(fromPy<T>(item, key, tag));
    return out;
}

template <typename T> T fromPy(py::handle v, const std::string& key, const std::string& tag) {
    if constexpr (std::is_same_v<T, bool>) {
        if (!PyBool_Check(v.ptr()) && !py::isinstance(v, py::module_::import("numpy").attr("bool_")))
            wrongType(key, tag, v);
        return PyObject_IsTrue(v.ptr()) == 1;
    } else if constexpr (std::is_integral_v<T>) {
        return integer<T>(v, key, tag);
    } else if constexpr (std::is_floating_point_v<T>) {
        if (!isReal(v))
            wrongType(key, tag, v);
        return T(py::float_(py::reinterpret_borrow<py::object>(v)).cast<double>());
    } else if constexpr (std::is_same_v<T, std::string>) {
        return text(v, key, tag);
    } else if constexpr (std::is_same_v<T, std::vector<char>> ||
                         std::is_same_v<T, std::vector<unsigned char>>) {
        if (PyBytes_Check(v.ptr()) || PyByteArray_Check(v.ptr())) {
            const std::string s = py::bytes(py::reinterpret_borrow<py::object>(v));
            return T(s.begin(), s.end());
        }
        return sequence<typename T::value_type>(v, key, tag);
    } else if constexpr (std::is_same_v<T, cv::Mat>) {
        return viewArray(v, key.c_str(), {CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F}, 0)
            .mat.clone();
    } else if constexpr (std::is_same_v<T, cv::Point_<int>>) {
        const auto p = sequence<int>(v, key, tag);
        if (p.size() != 2)
            throw py::value_error(fmt::format("metadata '{}': a point is (x, y)", key));
        return {p[0], p[1]};
    } else if constexpr (std::is_same_v<T, cv::Rect_<int>>) {
        const auto r = sequence<int>(v, key, tag);
        if (r.size() != 4)
            throw py::value_error(fmt::format("metadata '{}': a rectangle is (x, y, width, height)", key));
        return {r[0], r[1], r[2], r[3]};
    } else if constexpr (std::is_same_v<T, MarkedFloat>) {
        return MarkedFloat::withMark(fromPy<float>(v, key, tag), uint8_t(markOf(v)));
    } else if constexpr (std::is_same_v<T, Temperature>) {
        return Temperature(fromPy<MarkedFloat>(v, key, tag), quantity::TemperatureUnit::Celsius);
    } else if constexpr (std::is_same_v<T, Relation>) {
        return Relation(fromPy<MarkedFloat>(v, key, tag));
    } else if constexpr (std::is_same_v<T, MeasPoint>) {
        if (!py::hasattr(v, "x") || !py::hasattr(v, "y") || !py::hasattr(v, "value"))
            wrongType(key, tag, v);
        const py::object value = v.attr("value");
        std::shared_ptr<Variant> q;
        if (py::isinstance(value, valueClasses().relation))
            q = makeVariant(fromPy<Relation>(value, key, tag));
        else if (!value.is_none())
            q = makeVariant(fromPy<Temperature>(value, key, tag));
        return MeasPoint(integer<unsigned short>(v.attr("x"), key, tag),
                         integer<unsigned short>(v.attr("y"), key, tag), q);
    } else if constexpr (std::is_same_v<T, MeasArea>) {
        for (const char* a : {"x", "y", "width", "height", "hot", "cold", "mean"})
            if (!py::hasattr(v, a))
                wrongType(key, tag, v);
        auto u16 = [&](const char* a) { return integer<unsigned short>(v.attr(a), key, tag); };
        MeasArea area(u16("x"), u16("y"), u16("width"), u16("height"));
        area.setHotSpot(fromPy<MeasPoint>(v.attr("hot"), key, tag));
        area.setColdSpot(fromPy<MeasPoint>(v.attr("cold"), key, tag));
        const py::object mean = v.attr("mean");
        if (py::isinstance(mean, valueClasses().relation))
            area.setMeanValue(fromPy<Relation>(mean, key, tag));
        else
            area.setMeanValue(fromPy<Temperature>(mean, key, tag));
        return area;
    } else if constexpr (std::is_same_v<T, MeasRangeBorders>) {
        auto m = [&](const char* a) {
            if (!py::hasattr(v, a))
                wrongType(key, tag, v);
            return fromPy<MarkedFloat>(v.attr(a), key, tag);
        };
        return MeasRangeBorders{m("tolerance_top"), m("tolerance_bottom"), m("display_top"),
                                m("display_bottom")};
    } else if constexpr (std::is_same_v<T, Version>) {
        const auto s = text(v, key, tag);
        unsigned a = 0, b = 0, c = 0;
        char tail = 0;
        if (std::sscanf(s.c_str(), "%u.%u.%u%c", &a, &b, &c, &tail) != 3 || a > 65535 || b > 65535 ||
            c > 65535)
            throw py::value_error(
                fmt::format("metadata '{}': a version is \"major.minor.patch\", not \"{}\"", key, s));
        return Version(uint16_t(a), uint16_t(b), uint16_t(c));
    } else if constexpr (std::is_same_v<T, DataStorage<std::string>>) {
        return storageFromPython(v, key.c_str());
    } else if constexpr (std::is_same_v<T, norda::vision::BadPixel>) {
        const auto p = sequence<unsigned>(v, key, tag);
        if (p.size() != 3 || p[0] > 65535 || p[1] > 65535 || p[2] > 3)
            throw py::value_error(fmt::format("metadata '{}': a bad pixel is (x, y, origin 0..3)", key));
        return {uint16_t(p[0]), uint16_t(p[1]), norda::vision::BadPixelOrigin(p[2])};
    } else {
        return sequence<typename T::value_type>(v, key, tag);
    }
}

using FromPython =
    std::function<std::shared_ptr<Variant>(py::handle, const std::string&, const std::string&)>;

template <typename... Ts> struct FromPythonTable {
    static std::map<std::string, FromPython> make() {
        return {{Serializer<Ts>::tag(), [](py::handle h, const std::string& key, const std::string& tag) {
                     return std::static_pointer_cast<Variant>(
                         std::make_shared<Variant_<Ts>>(fromPy<Ts>(h, key, tag)));
                 }}...};
    }
};

const std::map<std::string, FromPython>& fromPythonTable() {
    static const auto table = StoredTypes<FromPythonTable>::make();
    return table;
}

// The type the library keeps under each key of a camera's store, plus the keys only frames carry.
const std::map<std::string, std::string>& libraryTypes() {
    static const std::map<std::string, std::string> types = [] {
        std::map<std::string, std::string> t;
        DataProxy<std::string> store;
        setDefaultParameters(store);
        for (const auto& key : store.keys())
            if (auto v = store.get(key))
                t[key] = v->typeTag();
        t["FrameCnt"] = Serializer<unsigned long long>::tag();
        t[Id::Radiometry::Planck] = Serializer<std::vector<double>>::tag();
        return t;
    }();
    return types;
}

std::string inferredTag(py::handle v, const std::string& key) {
    const ValueClasses& k = valueClasses();
    if (PyBool_Check(v.ptr()))
        return "bool";
    if (py::isinstance(v, k.temperature))
        return "Temperature";
    if (py::isinstance(v, k.relation))
        return "Relation";
    if (py::isinstance(v, k.marked))
        return "MarkedFloat";
    if (py::isinstance(v, k.measPoint))
        return "MeasPoint";
    if (py::isinstance(v, k.measArea))
        return "MeasArea";
    if (py::isinstance(v, k.borders))
        return "MeasRangeBorders";
    if (py::isinstance<py::array>(v))
        return "mat";
    if (py::hasattr(v, "dtype") && py::hasattr(v, "item")) { // a NumPy scalar: its own type
        static const std::map<std::string, std::string> numpyTags = {
            {"bool", "bool"},  {"int8", "i8"},     {"uint8", "u8"},   {"int16", "i16"},
            {"uint16", "u16"}, {"int32", "i32"},   {"uint32", "u32"}, {"int64", "ll"},
            {"uint64", "ull"}, {"float32", "f32"}, {"float64", "f64"}};
        auto it = numpyTags.find(py::str(v.attr("dtype")).cast<std::string>());
        if (it != numpyTags.end())
            return it->second;
    }
    if (PyLong_Check(v.ptr()))
        return "ll";
    if (PyFloat_Check(v.ptr()))
        return "f64";
    if (PyUnicode_Check(v.ptr()))
        return "string";
    if (PyBytes_Check(v.ptr()) || PyByteArray_Check(v.ptr()))
        return "vec<u8>";
    if (PyDict_Check(v.ptr()))
        return "DataStorage";
    if (PyTuple_Check(v.ptr()) || PyList_Check(v.ptr())) {
        auto seq = py::reinterpret_borrow<py::sequence>(v);
        bool ints = true, numbers = true, texts = true;
        for (auto item : seq) {
            ints = ints && PyLong_Check(item.ptr()) && !PyBool_Check(item.ptr());
            numbers = numbers && (PyLong_Check(item.ptr()) || PyFloat_Check(item.ptr())) &&
                      !PyBool_Check(item.ptr());
            texts = texts && PyUnicode_Check(item.ptr());
        }
        if (PyTuple_Check(v.ptr()) && ints && seq.size() == 2)
            return "point";
        if (PyTuple_Check(v.ptr()) && ints && seq.size() == 4)
            return "rect";
        if (texts && seq.size() > 0)
            return "vec<string>";
        if (ints)
            return "vec<i32>";
        if (numbers)
            return "vec<f64>";
    }
    throw py::type_error(
        fmt::format("metadata '{}': a {} value can not be stored", key, Py_TYPE(v.ptr())->tp_name));
}

} // namespace

Temperature temperatureFrom(py::handle value, const char* name) {
    if (!isReal(value))
        throw py::type_error(fmt::format("argument '{}' must be a temperature in °C, not {}", name,
                                         Py_TYPE(value.ptr())->tp_name));
    return fromPy<Temperature>(value, name, "Temperature");
}

Relation relationFrom(py::handle value, const char* name) {
    if (!isReal(value))
        throw py::type_error(fmt::format("argument '{}' must be a fraction (0.5 is 50 %), not {}", name,
                                         Py_TYPE(value.ptr())->tp_name));
    return fromPy<Relation>(value, name, "Relation");
}

std::shared_ptr<Variant> fromPython(py::handle value, const std::string& tag, const std::string& key) {
    auto it = fromPythonTable().find(tag);
    if (it == fromPythonTable().end())
        throw py::value_error(fmt::format("metadata '{}': unknown type '{}'", key, tag));
    return it->second(value, key, tag);
}

DataStorage<std::string> storageFromPython(py::handle dict, const char* argument) {
    if (!PyDict_Check(dict.ptr()))
        throw py::type_error(
            fmt::format("argument '{}' must be a dict, not {}", argument, Py_TYPE(dict.ptr())->tp_name));
    py::dict remembered;
    if (py::hasattr(dict, "types") && PyDict_Check(dict.attr("types").ptr()))
        remembered = dict.attr("types");
    // Nested dicts become nested storages; a dict that contains itself must not recurse forever.
    static thread_local int depth = 0;
    if (depth >= 32)
        throw py::value_error(fmt::format("argument '{}': dicts nested deeper than 32 levels", argument));
    struct Nesting {
        Nesting() { ++depth; }
        ~Nesting() { --depth; }
    } nesting;
    DataStorage<std::string> storage;
    for (auto [k, v] : py::reinterpret_borrow<py::dict>(dict)) {
        if (!PyUnicode_Check(k.ptr()))
            throw py::type_error(
                fmt::format("argument '{}': keys must be str, not {}", argument, Py_TYPE(k.ptr())->tp_name));
        const std::string key = text(k, argument, "key");
        if (v.is_none())
            continue;
        // The type the value was read as, unless the new value does not fit it any more; then the
        // library's type of the key (which must fit), else the value's own type.
        if (remembered.contains(k)) {
            try {
                storage.set(key, fromPython(v, remembered[k].cast<std::string>(), key));
                continue;
            } catch (const py::type_error&) {
            } catch (const py::value_error&) {
            }
        }
        const auto library = libraryTypes().find(key);
        storage.set(
            key, fromPython(v, library != libraryTypes().end() ? library->second : inferredTag(v, key), key));
    }
    return storage;
}

} // namespace nordapy
