#pragma once

#include <string_view>

#include "Devices/SeriesNumber.h"

namespace VeltranoSDK {

// The series of a model code; kSeriesUnknown when no product starts with its first three
// characters.
SeriesNumber SeriesOfModelCode(std::string_view model);

}  // namespace VeltranoSDK
