#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "calibrate/View.h"
#include "tessaline/profile.h"

namespace tool::calibrate {

// Sets the field: the convex hull of these places of the full sensor, with as many corners as a
// calibration can have. Corners too many are left out, those first that cost the least area; then
// all edges move out by what that cut off, a pixel at most. So the field reaches beyond the hull by
// a pixel, two at a sharp corner, and the rounding of its corners to whole pixels.
void SetField(const std::vector<Sample>& places, tessaline_calibration& calibration);

// The smallest rectangles around the field, on the sensor and in the laser plane.
struct Extent {
  int columns[2], rows[2];
  double x[2], z[2];  // mm
};
// The field is known.
Extent ExtentOf(const tessaline_calibration& calibration);

// "columns 0 to 1455, rows 210 to 830: x -36.3 to 36.4 mm, z -4.0 to 18.8 mm", or "unknown".
std::string FieldInWords(const tessaline_calibration& calibration);
// Corners, or null.
nlohmann::ordered_json FieldCorners(const tessaline_calibration& calibration);
// The same extent as in words, or null.
nlohmann::ordered_json FieldRange(const tessaline_calibration& calibration);

}  // namespace tool::calibrate
