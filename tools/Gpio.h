#pragma once

#include <optional>

namespace tool {

// Level of a GPIO line, from the kernel; nothing when it is not exported.
std::optional<bool> GpioLevel(unsigned line);

}  // namespace tool
