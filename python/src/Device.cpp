// The module _device: the device library on the sensor's own board.
#include "Define.h"

PYBIND11_MODULE(_device, module) { python::DefineDevice(module); }
