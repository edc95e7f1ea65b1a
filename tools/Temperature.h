#pragma once

#include <optional>

#include "Models.h"

namespace tool {

// The processor's temperature in degrees Celsius, from the kernel, so the device need not be
// started. Nothing if the file cannot be read.
std::optional<double> ProcessorTemperature(const Family& family);

}  // namespace tool
