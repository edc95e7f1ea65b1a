#pragma once

#include <string>

#include "Measuring.h"
#include "capture/Frame.h"

namespace tool {

// Profiles as lines of numbers, one a point.
class CsvText {
 public:
  // `rows_only`: the product sends no grey value and no width of the line.
  CsvText(const Measuring& measuring, bool rows_only);

  std::string Head() const;
  std::string Lines(const Frame& frame) const;

 private:
  bool calibrated_;
  std::string sensor_;  // "1456x1088"
  bool rows_only_;
};

}  // namespace tool
