#pragma once

#include <pybind11/pybind11.h>

namespace python {

// What products can be set to, recipes, and registers by name: the command's own rules.
void DefineSettings(pybind11::module_& module);

}  // namespace python
