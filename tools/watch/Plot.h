#pragma once

#include <string>
#include <vector>

#include "Region.h"
#include "capture/Frame.h"

namespace tool {

// Draws a profile with characters, four dots per character height. `width` and `height` are in
// characters; `frame` is where the frame lies on the full sensor.
std::vector<std::string> PlotProfile(const std::vector<Point>& points, const Region& frame,
                                     unsigned width, unsigned height);

}  // namespace tool
