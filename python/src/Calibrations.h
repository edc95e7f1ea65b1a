#pragma once

#include <pybind11/pybind11.h>

namespace python {

// Calibrations, and what they make of columns and rows. Failures of the command's code become
// exceptions of the package.
void DefineCalibrations(pybind11::module_& module);

}  // namespace python
