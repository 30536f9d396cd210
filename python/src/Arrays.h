#pragma once
// NumPy arrays and OpenCV matrices, both ways, without copying pixels.
//
// Out: an array viewing a matrix's pixels keeps the matrix (its reference-counted buffer) alive
// through a capsule, so the buffer lives as long as any array viewing it. In: a matrix header over
// an array's pixels; the array must stay referenced while the matrix is used (ArrayView holds it).
// Arguments of the wrong kind raise TypeError (not an array, wrong dtype) or ValueError (wrong
// shape), naming the argument.

#include <opencv2/core.hpp>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <initializer_list>
#include <string>

namespace nordapy {

namespace py = pybind11;

// (rows, cols) for one channel, (rows, cols, channels) otherwise. Read-only unless `writable`.
py::array toArray(const cv::Mat& mat, bool writable = false);

// None for an empty matrix.
py::object toArrayOrNone(const cv::Mat& mat, bool writable = false);

struct ArrayView {
    py::array array; // holds the pixels
    cv::Mat mat;     // header over them (a C-contiguous copy when the array was not contiguous)
};

// `name` is the argument's name in messages; `depths` the accepted OpenCV depths (CV_16U, ...);
// `channels` 1 for (H, W) arrays, 3 for (H, W, 3), 0 for either with any channel count up to 4.
ArrayView viewArray(py::handle obj, const char* name, std::initializer_list<int> depths, int channels);

// numpy's name of an OpenCV depth ("uint16").
const char* dtypeName(int depth);

// A temperature image in the library's 16-bit encoding: uint16 as it is (a view), float32 or
// float64 °C encoded as RadiometricTools::getUint16 does. `keep` holds the array a view needs.
cv::Mat_<uint16_t> encodedTemperatures(py::handle image, const char* name, py::object& keep);

// An emissivity argument: a number, or a float array of `size` (one value per pixel).
struct Emissivity {
    bool perPixel = false;
    double value = 1.0;
    cv::Mat map; // CV_32FC1 of `size`
    py::array keep;
};
Emissivity emissivityArgument(py::handle obj, const char* name, cv::Size size);

} // namespace nordapy
