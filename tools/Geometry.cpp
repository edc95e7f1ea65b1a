#include "Geometry.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>

#include "Failure.h"

namespace tool {
namespace {

constexpr unsigned kEveryPixel = 0x00;
constexpr unsigned kReduced = 0x11;
constexpr unsigned kReducedToo = 0x22;
constexpr unsigned kRows = 1;  // bits of a direction
constexpr unsigned kColumns = 2;
constexpr unsigned kBoth = kRows | kColumns;

// How a sensor is read.
struct Readout {
  std::string_view sensor;
  unsigned column_step;      // in the reduced modes, of the sensor's columns
  unsigned row_step;         // likewise
  bool has_second_mode;      // kReducedToo
  bool counts_what_is_read;  // the region's offsets, in the reduced modes
  unsigned directions;       // those that it accepts
  unsigned flips;            // those that have an effect
};

constexpr std::array kReadouts{
    Readout{"IMX273", 2, 2, true, true, kBoth, kBoth},
    Readout{"IMX252", 1, 2, true, true, kBoth, kBoth},
    Readout{"GMAX2509", 2, 2, false, false, kBoth, kBoth},
    Readout{"GSPRINT6502BSI", 2, 2, false, false, kBoth, 0},
    Readout{"e2v Flash 4K", 2, 2, false, true, kRows, kRows},
};

}  // namespace

tessaline_geometry GeometryOf(const Model& model, const Region& region, unsigned drive_mode,
                              unsigned direction) {
  const products::ImageSensor& sensor = model.family().sensor;
  const Readout& readout = *std::ranges::find(kReadouts, sensor.name, &Readout::sensor);
  const auto refuse = [&](const char* what, unsigned number, const std::string& next) {
    throw Failure(
        ExitCode::kUsage,
        fmt::format("the {} of a {} has no {} {:#04x}", sensor.name, model.code(), what, number),
        next);
  };
  const bool reduced =
      drive_mode == kReduced || (readout.has_second_mode && drive_mode == kReducedToo);
  if (!reduced && drive_mode != kEveryPixel) {
    refuse("drive mode", drive_mode,
           readout.has_second_mode ? "it has 0x00, 0x11 and 0x22" : "it has 0x00 and 0x11");
  }
  if ((direction & ~readout.directions) != 0) {
    refuse("direction", direction,
           readout.directions == kBoth ? "it has 0 to 3" : "it has 0 and 1");
  }

  // Of a product that uses every other row, a row is two of the array's.
  const unsigned rows = model.product().row_step;
  tessaline_geometry geometry = tessaline_geometry_full(sensor.width, model.product().Height());
  if (reduced) {
    geometry.column_step = readout.column_step;
    geometry.row_step = readout.row_step / rows;
  }
  const bool in_steps = reduced && readout.counts_what_is_read;
  geometry.first_column = region.x * (in_steps ? readout.column_step : 1);
  geometry.first_row = region.y * (in_steps ? readout.row_step : 1) / rows;
  geometry.flip_columns = (direction & readout.flips & kColumns) != 0 ? 1 : 0;
  geometry.flip_rows = (direction & readout.flips & kRows) != 0 ? 1 : 0;
  return geometry;
}

}  // namespace tool
