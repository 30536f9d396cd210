#pragma once
// The library's stored values as plain Python values, and back.
//
// Numbers, strings and lists become their Python forms; temperatures, ratios and marked values
// become the float subclasses of nordalib.values carrying the validity mark (temperatures in
// °C); points and areas become MeasPoint and MeasArea; matrices NumPy arrays; nested storages
// Metadata dicts. Going back, a value is stored as the type its key had when it was read (the
// Metadata's `types`), else as the type the library uses for that key, else as the type its
// Python form suggests (int: signed 64-bit, float: double, NumPy scalars their own type).

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/core/datatypes/Quantity.h"

#include <pybind11/pybind11.h>

#include <memory>
#include <string>

namespace nordapy {

namespace py = pybind11;

// Imports nordalib.values once; called when the module is initialised.
void initValues();

py::object toPython(const std::shared_ptr<norda::exp::Variant>& value);
// A nordalib.values.Metadata with the type tag of every entry.
py::object toPython(const norda::exp::DataStorage<std::string>& storage);

// `value` as the type `tag` names ("u16", "Temperature", ...). TypeError or ValueError naming
// `key` when it cannot be.
std::shared_ptr<norda::exp::Variant> fromPython(py::handle value, const std::string& tag,
                                                const std::string& key);
// A dict (a Metadata keeps its types) as a storage.
norda::exp::DataStorage<std::string> storageFromPython(py::handle dict, const char* argument);

// Python forms of single values, shared with the other bindings.
py::object temperature(const norda::exp::quantity::Temperature<norda::exp::MarkedFloat>& t);
py::float_ shortestFloat(float f);
py::object relation(const norda::exp::quantity::Relation<norda::exp::MarkedFloat>& r);
norda::exp::quantity::Temperature<norda::exp::MarkedFloat> temperatureFrom(py::handle value,
                                                                           const char* name);
norda::exp::quantity::Relation<norda::exp::MarkedFloat> relationFrom(py::handle value, const char* name);

} // namespace nordapy
