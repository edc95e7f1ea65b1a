#pragma once

#include <cstddef>
#include <cstdint>

#include "Measuring.h"
#include "Region.h"

namespace tool::serve {

// How the frames that come now are to be read.
struct View {
  Measuring measuring;
  Region region;
  std::size_t point_bytes = 0;
  bool sends_peaks = false;
  std::uint32_t generation = 0;  // how often the settings have changed
};

}  // namespace tool::serve
