#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Geometry.h"
#include "Region.h"
#include "Session.h"
#include "tessaline/profile.h"

namespace tool {

// How columns, rows and encoder counts become a position in space.
struct Measuring {
  tessaline_geometry geometry{};  // of the frames
  std::optional<tessaline_calibration> calibration;
  std::string source;        // of the calibration, for people: "head.cal"
  double counts_per_mm = 0;  // of the encoder; 0: not known

  bool calibrated() const { return calibration.has_value(); }
  // Whether millimetres along the movement are known, too.
  bool travels() const { return calibrated() && counts_per_mm != 0; }
  double Y(double encoder_counts) const {
    return travels() ? encoder_counts / counts_per_mm : encoder_counts;
  }
  // Millimetres of x per column in the middle of the frame; 1 without a calibration.
  double MmPerColumn(unsigned columns, unsigned rows) const;
};

// Throws a Failure unless the calibration is that of a sensor of the model's size. `source` is
// where it comes from, for people.
void RequireSensor(const tessaline_calibration& calibration, const Model& model,
                   const std::string& source);

// The options that say where the calibration comes from, and the choice: what the options say,
// else the EEPROM's, else that of the virtual board's ideal optics, else none.
class MeasuringOptions {
 public:
  void Describe(CLI::App& app);

  // Throws a Failure if a calibration is not whole, cannot be read or is that of another sensor.
  // `travels`: positions along the movement matter, so the encoder's scale is part of it.
  Measuring Choose(const Session& session, const Region& region, bool travels) const;

 private:
  std::optional<tessaline_calibration> FromNumbers(const Model& model, bool travels) const;

  std::string from_;
  std::vector<CLI::Option*> numbers_;
  double mm_per_column_ = 0;
  double mm_per_row_ = 0;
  double counts_per_mm_ = 0;
  double column_at_zero_ = 0;
  double row_at_zero_ = 0;
};

}  // namespace tool
