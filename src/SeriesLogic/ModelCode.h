#pragma once

#include <string_view>

#include "Devices/SeriesNumber.h"

namespace VeltranoSDK {

// The series of a model code; kSeriesUnknown when its first three characters are
// those of no product.
SeriesNumber SeriesOfModelCode(std::string_view model);

}  // namespace VeltranoSDK
