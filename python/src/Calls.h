#pragma once

#include <pybind11/pybind11.h>

namespace python {

// The exported functions under their own names. Each result stands for itself: what it means, the
// Python side knows (tessaline/_calls.py).
void DefineCalls(pybind11::module_& module);

}  // namespace python
