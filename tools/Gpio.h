#pragma once

#include <optional>

namespace tool {

// The level of a GPIO line, from the kernel; nothing if it is not exported.
std::optional<bool> GpioLevel(unsigned line);

}  // namespace tool
