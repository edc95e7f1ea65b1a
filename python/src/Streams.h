#pragma once

#include <pybind11/pybind11.h>

namespace python {

// The two inboxes, deliveries, and what happens on other threads.
void DefineStreams(pybind11::module_& module);

}  // namespace python
