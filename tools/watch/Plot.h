#pragma once

#include <string>
#include <vector>

#include "capture/Frame.h"

namespace tool {

// Draws a profile with characters, four dots in a character's height. `width` and
// `height` are characters; columns and rows of the points count to `columns` and `rows`.
std::vector<std::string> PlotProfile(const std::vector<Point>& points, unsigned columns,
                                     unsigned rows, unsigned width, unsigned height);

}  // namespace tool
