#pragma once

#include <string>
#include <vector>

#include "capture/Frame.h"

namespace tool {

// Draws a profile with characters, four dots per character height. `width` and `height` are in
// characters; the points' columns and rows run up to `columns` and `rows`.
std::vector<std::string> PlotProfile(const std::vector<Point>& points, unsigned columns,
                                     unsigned rows, unsigned width, unsigned height);

}  // namespace tool
