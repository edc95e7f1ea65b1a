#pragma once

#include <optional>
#include <string>

#include "Measuring.h"
#include "Session.h"
#include "capture/Frame.h"

namespace tool {

// What "watch" shows at one moment.
struct Status {
  double seconds = 0;
  std::uint64_t profiles = 0;
  double rate = 0;  // per second, recently
  std::uint64_t last_id = 0;
  std::uint64_t encoder = 0;
  std::uint64_t missing = 0;
  std::uint64_t malformed = 0;
  std::uint64_t fpga_lost = 0;
  std::uint64_t triggers_lost = 0;
  std::uint64_t dropped = 0;  // by this tool
  std::optional<double> temperature;
  unsigned width = 0;  // of the region of interest
  unsigned height = 0;
  Measuring measuring;
  std::vector<Point> points;  // of the latest profile

  // Read from the device, not counted here: counters and temperature.
  void LookUp(const Session& session);

  std::string AsLine() const;
  std::string AsPicture(std::string_view title, unsigned columns, unsigned rows) const;
  Json AsJson() const;
};

}  // namespace tool
