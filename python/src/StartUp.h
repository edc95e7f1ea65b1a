#pragma once

#include <pybind11/pybind11.h>

#include "Inbox.h"

namespace python {

// What the handlers of the process put frames into.
Inbox& Images();
Inbox& Strips();

// Selecting the product and starting the device.
void DefineStartUp(pybind11::module_& module);

}  // namespace python
