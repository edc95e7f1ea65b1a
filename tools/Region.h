#pragma once

#include <string>

#include "Models.h"

namespace tool {

// A region of interest, in pixels of the full sensor.
struct Region {
  unsigned x = 0;
  unsigned y = 0;
  unsigned width = 0;
  unsigned height = 0;

  bool operator==(const Region&) const = default;
  std::string AsCall() const;  // "SetROI1(0, 0, 1456, 1088)"
  std::string AsText() const;
};

Region WholeSensor(const Model& model);
// What is read after a start.
Region StartRegion(const Model& model);
// What is read without a region of the user's: after a start, unless that leaves out many rows.
Region UsualRegion(const Model& model);

// Throws a Failure with the sensor's limits if the region does not fit them.
void Require(const Region& region, const Model& model);

}  // namespace tool
