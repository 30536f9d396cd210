#pragma once
// The parts of the extension module, one per area; Module.cpp calls them in order.

#include <pybind11/pybind11.h>

#include <string>

namespace nordapy {

namespace py = pybind11;

// Raised as OSError (the system refused a file, a write failed).
class os_error : public py::builtin_exception {
public:
    using builtin_exception::builtin_exception;
    void set_error() const override { PyErr_SetString(PyExc_OSError, what()); }
};

void bindRix(py::module_& m);         // nordalib.Rix
void bindPxm(py::module_& m);         // nordalib.pxm: Recording, Writer
void bindTools(py::module_& m);       // colouring, climate, Planck conversions
void bindMeasurement(py::module_& m); // measure, measure_point, measure_area

// The path argument as a string (str or os.PathLike).
std::string pathArgument(py::handle path);
// Raises the OSError (FileNotFoundError, IsADirectoryError, PermissionError, ...) the system gives
// for opening `path` to read, if it gives one.
void requireReadable(const std::string& path);

} // namespace nordapy
