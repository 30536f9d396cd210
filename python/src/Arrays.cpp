#include "python/src/Arrays.h"

#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <fmt/format.h>

#include <memory>
#include <vector>

namespace nordapy {

namespace {

struct DepthType {
    int depth;
    char kind;
    int size;
    const char* name;
};
constexpr DepthType kDepths[] = {{CV_8U, 'u', 1, "uint8"},    {CV_8S, 'i', 1, "int8"},
                                 {CV_16U, 'u', 2, "uint16"},  {CV_16S, 'i', 2, "int16"},
                                 {CV_32S, 'i', 4, "int32"},   {CV_32F, 'f', 4, "float32"},
                                 {CV_64F, 'f', 8, "float64"}, {CV_16F, 'f', 2, "float16"}};

const DepthType& depthType(int depth) {
    for (const auto& d : kDepths)
        if (d.depth == depth)
            return d;
    throw std::invalid_argument(fmt::format("matrix depth {} has no NumPy type", depth));
}

std::string accepted(std::initializer_list<int> depths) {
    std::string text;
    size_t i = 0;
    for (int d : depths) {
        if (i > 0)
            text += i + 1 == depths.size() ? " or " : ", ";
        text += depthType(d).name;
        ++i;
    }
    return text;
}

std::string shapeText(const py::array& a) {
    std::string text = "(";
    for (py::ssize_t i = 0; i < a.ndim(); ++i)
        text += (i ? ", " : "") + std::to_string(a.shape(i));
    return text + (a.ndim() == 1 ? ",)" : ")");
}

} // namespace

const char* dtypeName(int depth) {
    return depthType(depth).name;
}

py::array toArray(const cv::Mat& mat, bool writable) {
    const DepthType& t = depthType(mat.depth());
    const py::dtype dtype(t.name);
    if (mat.empty())
        return py::array(dtype, std::vector<py::ssize_t>{0, 0});
    auto owner = std::make_unique<cv::Mat>(mat);
    void* data = owner->data;
    py::capsule base(owner.get(), [](void* p) { delete static_cast<cv::Mat*>(p); });
    owner.release();
    std::vector<py::ssize_t> shape{mat.rows, mat.cols};
    std::vector<py::ssize_t> strides{py::ssize_t(mat.step[0]), py::ssize_t(mat.elemSize())};
    if (mat.channels() > 1) {
        shape.push_back(mat.channels());
        strides.push_back(py::ssize_t(mat.elemSize1()));
    }
    py::array array(dtype, shape, strides, data, base);
    if (!writable)
        py::detail::array_proxy(array.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return array;
}

py::object toArrayOrNone(const cv::Mat& mat, bool writable) {
    if (mat.empty())
        return py::none();
    return toArray(mat, writable);
}

ArrayView viewArray(py::handle obj, const char* name, std::initializer_list<int> depths, int channels) {
    if (!py::isinstance<py::array>(obj))
        throw py::type_error(fmt::format("argument '{}' must be a NumPy array of {}, not {}", name,
                                         accepted(depths), Py_TYPE(obj.ptr())->tp_name));
    auto array = py::reinterpret_borrow<py::array>(obj);
    const py::dtype dtype = array.dtype();
    int depth = -1;
    for (int d : depths) {
        const DepthType& t = depthType(d);
        if (dtype.kind() == t.kind && dtype.itemsize() == t.size && dtype.byteorder() != '>')
            depth = d;
    }
    if (depth < 0)
        throw py::type_error(fmt::format("argument '{}' must be an array of {}, not {}", name,
                                         accepted(depths), py::str(obj.attr("dtype")).cast<std::string>()));
    const auto ndim = array.ndim();
    const bool shapeOk = channels == 1 ? ndim == 2
                         : channels > 1
                             ? ndim == 3 && array.shape(2) == channels
                             : ndim == 2 || (ndim == 3 && array.shape(2) >= 1 && array.shape(2) <= 4);
    if (!shapeOk) {
        const std::string want = channels == 1  ? "(height, width)"
                                 : channels > 1 ? fmt::format("(height, width, {})", channels)
                                                : "(height, width) or (height, width, channels)";
        throw py::value_error(
            fmt::format("argument '{}' must have the shape {}, not {}", name, want, shapeText(array)));
    }
    if (array.shape(0) > std::numeric_limits<int>::max() || array.shape(1) > std::numeric_limits<int>::max())
        throw py::value_error(fmt::format("argument '{}' is too large: {}", name, shapeText(array)));
    if (array.shape(0) == 0 || array.shape(1) == 0)
        throw py::value_error(fmt::format("argument '{}' is empty: {}", name, shapeText(array)));
    // Rows may be padded (a crop of a larger array); pixels within a row must be adjacent.
    const int cn = ndim == 3 ? int(array.shape(2)) : 1;
    const auto elem = dtype.itemsize();
    const bool rowsContiguous = array.strides(1) == elem * cn && (ndim == 2 || array.strides(2) == elem) &&
                                array.strides(0) >= array.strides(1) * array.shape(1);
    if (!rowsContiguous)
        array = py::array::ensure(array, py::array::c_style);
    ArrayView view;
    view.mat = cv::Mat(int(array.shape(0)), int(array.shape(1)), CV_MAKETYPE(depth, cn),
                       const_cast<void*>(array.data()), size_t(array.strides(0)));
    view.array = std::move(array);
    return view;
}

cv::Mat_<uint16_t> encodedTemperatures(py::handle image, const char* name, py::object& keep) {
    ArrayView view = viewArray(image, name, {CV_16U, CV_32F, CV_64F}, 1);
    keep = view.array;
    if (view.mat.depth() == CV_16U)
        return view.mat;
    cv::Mat_<uint16_t> out(view.mat.size());
    for (int y = 0; y < out.rows; ++y) {
        uint16_t* d = out[y];
        if (view.mat.depth() == CV_32F) {
            const float* s = view.mat.ptr<float>(y);
            for (int x = 0; x < out.cols; ++x)
                d[x] = norda::vision::RadiometricTools::getUint16(s[x]);
        } else {
            const double* s = view.mat.ptr<double>(y);
            for (int x = 0; x < out.cols; ++x)
                d[x] = norda::vision::RadiometricTools::getUint16(float(s[x]));
        }
    }
    return out;
}

Emissivity emissivityArgument(py::handle obj, const char* name, cv::Size size) {
    Emissivity e;
    if (!py::isinstance<py::array>(obj)) {
        if (!PyNumber_Check(obj.ptr()) || PyBool_Check(obj.ptr()))
            throw py::type_error(fmt::format("argument '{}' must be a number or a float array, not {}", name,
                                             Py_TYPE(obj.ptr())->tp_name));
        e.value = obj.cast<double>();
        return e;
    }
    auto array = py::reinterpret_borrow<py::array>(obj);
    if (array.ndim() == 0) {
        e.value = py::float_(py::reinterpret_borrow<py::object>(obj)).cast<double>();
        return e;
    }
    if (array.dtype().kind() != 'f')
        throw py::type_error(fmt::format("argument '{}' must be an array of float32 or float64, not {}", name,
                                         py::str(obj.attr("dtype")).cast<std::string>()));
    if (array.ndim() != 2 || array.shape(0) != size.height || array.shape(1) != size.width)
        throw py::value_error(fmt::format("argument '{}' must have the image's shape ({}, {}), not {}", name,
                                          size.height, size.width, shapeText(array)));
    // One conversion to the float32 map the library takes (a view when it already is one).
    auto f32 = py::array::ensure(py::module_::import("numpy").attr("ascontiguousarray")(array, "float32"));
    e.perPixel = true;
    e.map = cv::Mat(size, CV_32FC1, const_cast<void*>(f32.data()));
    e.keep = std::move(f32);
    return e;
}

} // namespace nordapy
