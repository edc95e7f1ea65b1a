#pragma once

#include "tessaline/profile.h"

namespace profile {

// See tessaline_calibration_check().
bool IsPossible(const tessaline_calibration& calibration);

}  // namespace profile
