#pragma once

#include "Models.h"
#include "Region.h"
#include "tessaline/profile.h"

namespace tool {

// How the frames of a region lie on the full sensor, in a drive mode and a direction as
// SetDriveMode() and SetReverseMode() take them. Throws a Failure if the sensor has no such mode or
// direction. What docs/profile.md says about offsets after a change of mode or direction holds.
tessaline_geometry GeometryOf(const Model& model, const Region& region, unsigned drive_mode = 0,
                              unsigned direction = 0);

}  // namespace tool
