#include "python/src/Values.h"

#include "python/src/Arrays.h"

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/MeasRangeBorders.h"
#include "nordalib/core/datatypes/Version.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imgproc/BadPixel.h"

#include <fmt/format.h>
#include <pybind11/stl.h>

#include <functional>
#include <limits>
#include <map>
#include <typeindex>

namespace nordapy {

using namespace norda::exp;
using Temperature = quantity::Temperature<MarkedFloat>;
using Relation = quantity::Relation<MarkedFloat>;

// A float setting (an emissivity of 0.95) as the number it was set to, not as the nearest double
// of its single-precision value (0.949999988...); converting back gives the same float.
py::float_ shortestFloat(float f) {
    return py::float_(std::strtod(fmt::format("{}", f).c_str(), nullptr));
}

namespace {

// Classes of nordalib.values, imported once and kept for the life of the process.
struct Classes {
    py::object marked, temperature, relation, measPoint, measArea, borders, metadata;
};
Classes* g_classes = nullptr;

const Classes& classes() {
    return *g_classes;
}

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
    // Bytes that are not UTF-8 came in as surrogate escapes and leave the same way.
    py::bytes b =
        py::reinterpret_steal<py::bytes>(PyUnicode_AsEncodedString(v.ptr(), "utf-8", "surrogateescape"));
    if (!b)
        throw py::error_already_set();
    return b;
}

py::str pyText(const std::string& s) {
    PyObject* o = PyUnicode_DecodeUTF8(s.data(), py::ssize_t(s.size()), "surrogateescape");
    if (!o)
        throw py::error_already_set();
    return py::reinterpret_steal<py::str>(o);
}

// ---- to Python -----------------------------------------------------------------------------

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
        return classes().marked(v.toFloat(), v.getMark());
    else if constexpr (std::is_same_v<T, Temperature>)
        return temperature(v);
    else if constexpr (std::is_same_v<T, Relation>)
        return relation(v);
    else if constexpr (std::is_same_v<T, MeasPoint>)
        return classes().measPoint(v.getX(), v.getY(), toPython(v.getValue()));
    else if constexpr (std::is_same_v<T, MeasArea>) {
        const auto r = v.getAreaRect();
        return classes().measArea(r.x, r.y, r.width, r.height, toPy(v.getHotSpot()), toPy(v.getColdSpot()),
                                  toPython(v.getMeanValue()));
    } else if constexpr (std::is_same_v<T, MeasRangeBorders>) {
        auto t = [](const MarkedFloat& m) { return temperature(Temperature(m)); };
        return classes().borders(t(v.toleranceTop), t(v.toleranceBottom), t(v.displayTop),
                                 t(v.displayBottom));
    } else if constexpr (std::is_same_v<T, Version>)
        return py::str(v.toString());
    else if constexpr (std::is_same_v<T, DataStorage<std::string>>)
        return nordapy::toPython(v);
    else
        return py::cast(v); // vectors of numbers
}

// ---- from Python ---------------------------------------------------------------------------

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
        if (py::isinstance(value, classes().relation))
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
        if (py::isinstance(mean, classes().relation))
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

// ---- the stored types ----------------------------------------------------------------------

struct Codec {
    std::function<py::object(const Variant&)> toPython;
    std::function<std::shared_ptr<Variant>(py::handle, const std::string&, const std::string&)> fromPython;
};

struct Codecs {
    std::map<std::type_index, Codec> byType;
    std::map<std::string, Codec> byTag;
};

template <typename... Ts> Codecs makeCodecs() {
    Codecs c;
    (
        [&c] {
            Codec codec{[](const Variant& v) { return toPy<Ts>(v.value<Ts>()); },
                        [](py::handle h, const std::string& key, const std::string& tag) {
                            return std::static_pointer_cast<Variant>(
                                std::make_shared<Variant_<Ts>>(fromPy<Ts>(h, key, tag)));
                        }};
            c.byType[typeid(Ts)] = codec;
            c.byTag[Serializer<Ts>::tag()] = codec;
        }(),
        ...);
    return c;
}

// Every type the library stores (VariantRegistry.cpp registers the same list).
const Codecs& codecs() {
    static const Codecs c =
        makeCodecs<bool, char, signed char, unsigned char, short, unsigned short, int, unsigned int, long,
                   unsigned long, long long, unsigned long long, float, double, std::string,
                   std::vector<std::string>, std::vector<char>, std::vector<unsigned char>,
                   std::vector<unsigned short>, std::vector<int>, std::vector<float>, std::vector<double>,
                   cv::Mat, cv::Point_<int>, cv::Rect_<int>, MarkedFloat, Temperature, Relation, MeasPoint,
                   MeasArea, MeasRangeBorders, Version, DataStorage<std::string>, norda::vision::BadPixel,
                   std::vector<norda::vision::BadPixel>>();
    return c;
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
    const Classes& k = classes();
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

void initValues() {
    if (g_classes)
        return;
    auto m = py::module_::import("nordalib.values");
    g_classes =
        new Classes{m.attr("Marked"),   m.attr("Temperature"),      m.attr("Relation"), m.attr("MeasPoint"),
                    m.attr("MeasArea"), m.attr("MeasRangeBorders"), m.attr("Metadata")};
    codecs();
    libraryTypes();
}

py::object temperature(const Temperature& t) {
    return classes().temperature(t.celsius(), t.getValue().getMark());
}

py::object relation(const Relation& r) {
    return classes().relation(r.ratio(), r.getValue().getMark());
}

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

py::object toPython(const std::shared_ptr<Variant>& value) {
    if (!value)
        return py::none();
    auto it = codecs().byType.find(value->type());
    if (it == codecs().byType.end())
        return py::str(value->toString()); // a type without a stored form: its text
    return it->second.toPython(*value);
}

py::object toPython(const DataStorage<std::string>& storage) {
    py::dict values, types;
    for (const auto& [key, value] : storage) {
        values[pyText(key)] = toPython(value);
        if (value)
            types[pyText(key)] = value->typeTag();
    }
    return classes().metadata(values, py::arg("types") = types);
}

std::shared_ptr<Variant> fromPython(py::handle value, const std::string& tag, const std::string& key) {
    auto it = codecs().byTag.find(tag);
    if (it == codecs().byTag.end())
        throw py::value_error(fmt::format("metadata '{}': unknown type '{}'", key, tag));
    return it->second.fromPython(value, key, tag);
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
