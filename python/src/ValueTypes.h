#pragma once
// What the two directions of the value conversion (ValuesToPython.cpp, ValuesFromPython.cpp)
// share: the classes of nordalib.values, text in both directions, and the list of stored types.

#include "python/src/Values.h"

#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/MeasRangeBorders.h"
#include "nordalib/core/datatypes/Version.h"
#include "nordalib/vision/imgproc/BadPixel.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace nordapy {

// Classes of nordalib.values, imported by initValues() and kept for the life of the process.
struct ValueClasses {
    py::object marked, temperature, relation, measPoint, measArea, borders, metadata;
};
const ValueClasses& valueClasses();

// Text as the library keeps it (bytes, normally UTF-8) and as Python str; bytes that are not
// UTF-8 travel as surrogate escapes, so they come back unchanged.
py::str pyText(const std::string& s);
std::string utf8(py::handle text);

// Every type the library stores (VariantRegistry.cpp registers the same list), as F<types...>.
template <template <typename...> class F>
using StoredTypes =
    F<bool, char, signed char, unsigned char, short, unsigned short, int, unsigned int, long, unsigned long,
      long long, unsigned long long, float, double, std::string, std::vector<std::string>, std::vector<char>,
      std::vector<unsigned char>, std::vector<unsigned short>, std::vector<int>, std::vector<float>,
      std::vector<double>, cv::Mat, cv::Point_<int>, cv::Rect_<int>, norda::exp::MarkedFloat,
      norda::exp::quantity::Temperature<norda::exp::MarkedFloat>,
      norda::exp::quantity::Relation<norda::exp::MarkedFloat>, norda::exp::MeasPoint, norda::exp::MeasArea,
      norda::exp::MeasRangeBorders, norda::exp::Version, norda::exp::DataStorage<std::string>,
      norda::vision::BadPixel, std::vector<norda::vision::BadPixel>>;

} // namespace nordapy
