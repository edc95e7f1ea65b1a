#pragma once

#include <pybind11/pybind11.h>

namespace python {

// Plain capture from a Video4Linux2 device (video.h).
void DefineVideo(pybind11::module_& module);

}  // namespace python
