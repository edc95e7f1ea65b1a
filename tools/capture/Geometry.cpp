#include "capture/Geometry.h"

namespace tool {

Geometry Geometry::In(const Region& region) const {
  Geometry geometry = *this;
  geometry.first_column = region.x;
  geometry.first_row = region.y;
  return geometry;
}

Geometry VirtualGeometry(const Model& model) {
  constexpr double kSceneWidth = 72.8;   // mm, across the full sensor
  constexpr double kHeightOfImage = 40;  // mm, from its first row to its last
  constexpr double kBeltAt = 0.75;       // of the image's height
  constexpr double kCountsPerMm = 100;
  const double width = model.family().sensor.width;
  const double height = model.product().Height();
  return {.mm_per_column = kSceneWidth / width,
          .column_at_zero = width / 2,
          .mm_per_row = kHeightOfImage / height,
          .row_at_zero = kBeltAt * height,
          .counts_per_mm = kCountsPerMm,
          .calibrated = true};
}

}  // namespace tool
