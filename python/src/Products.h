#pragma once

#include <pybind11/pybind11.h>

namespace python {

// What products.h knows of a model.
void DefineProducts(pybind11::module_& module);

}  // namespace python
