#pragma once

#include <pybind11/pybind11.h>

namespace python {

// The steps of recipes, and registers by name.
void DefineSettings(pybind11::module_& module);

}  // namespace python
