#pragma once

#include <pybind11/pybind11.h>

namespace python {

// Everything that a module of the device library offers.
void DefineDevice(pybind11::module_& module);

}  // namespace python
