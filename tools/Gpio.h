#pragma once

#include <optional>

namespace tool {

// The level of a GPIO line, from the kernel; nothing if it is not exported.
std::optional<bool> GpioLevel(unsigned line);

// Makes it an output with low level, exported or not. False: the kernel refuses. Needs no device.
bool PullGpioLow(unsigned line);

}  // namespace tool
