#pragma once

#include <string>

#include "Models.h"

namespace tool {

// For the help: what each sensor takes.
inline constexpr const char* kGainHelp =
    "Analogue gain, in the sensor's own steps: 0 to 48 decibels (K36, K37), levels 1 to 5 (K38), 1 "
    "to 4 (K39), 0 to 4 (K40)";

// Throws a Failure with the sensor's limits if it has no such gain.
void RequireGain(unsigned gain, const Model& model);

}  // namespace tool
