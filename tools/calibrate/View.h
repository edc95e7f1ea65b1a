#pragma once

#include <string>
#include <vector>

namespace tool::calibrate {

// The line in one column of the full sensor, over all profiles of a view.
struct Sample {
  double column = 0;
  double row = 0;  // mean
};

// What the sensor saw of a target at one place.
struct View {
  std::string name;             // for messages
  std::vector<Sample> samples;  // by column
  double scatter = 0;  // standard deviation of a row from profile to profile; 0 if there is one
  double profiles = 1;
};

// Reads what "tessaline capture strips" wrote as csv, in any order of the lines. Throws a Failure
// if it is not that, or is not of a sensor with so many columns and rows.
View ReadView(const std::string& path, unsigned sensor_width, unsigned sensor_height);

}  // namespace tool::calibrate
