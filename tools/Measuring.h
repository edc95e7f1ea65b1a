#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Geometry.h"
#include "Region.h"
#include "Session.h"
#include "tessaline/profile.h"

namespace tool {

// How columns, rows and encoder counts become a position in space.
struct Measuring {
  tessaline_geometry geometry{};  // of the frames
  std::optional<tessaline_calibration> calibration{};
  std::string source{};              // of the calibration, for people: "head.cal"
  double counts_per_mm = 0;          // of the encoder; 0: not known
  std::vector<std::string> calls{};  // of the library, made for the choice

  bool calibrated() const { return calibration.has_value(); }
  std::string_view Unit() const { return calibrated() ? "mm" : "pixels"; }
  // What the numbers are, for people.
  std::string Description() const;
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
  // The encoder's scale, for commands that know positions along the movement.
  void DescribeTravel(CLI::App& app);

  // Throws a Failure if a calibration is not whole, cannot be read or is that of another sensor,
  // and if an option would do nothing. `travels`: positions along the movement matter, so the
  // encoder's scale is part of it. A rehearsal does not know what the EEPROM holds.
  Measuring Choose(const Session& session, const Region& region, bool travels) const;
  // The same where there are no points to measure: `what` are no points.
  Measuring ChooseNone(const Session& session, const Region& region, const char* what) const;

 private:
  std::optional<tessaline_calibration> FromNumbers(const Model& model, bool travels) const;
  std::optional<tessaline_calibration> FromFile(const Session& session) const;
  static std::optional<tessaline_calibration> FromDaemon(const live::LiveSensor& sensor);

  std::string from_;
  CLI::Option* scale_ = nullptr;  // of the encoder
  std::vector<CLI::Option*> numbers_;
  double mm_per_column_ = 0;
  double mm_per_row_ = 0;
  double counts_per_mm_ = 0;
  double column_at_zero_ = 0;
  double row_at_zero_ = 0;
};

}  // namespace tool
