#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "Failure.h"
#include "Measuring.h"
#include "capture/FrameWriter.h"
#include "record/BagSource.h"

namespace tool {

struct BagFramesResult {
  std::uint64_t frames = 0;
  std::uint64_t outside_field = 0;   // points
  std::uint64_t outside_region = 0;  // points, in columns that the region does not have
  std::uint64_t damaged = 0;         // messages and places that were left out
  std::optional<Failure> failure;    // what ended it early; the files are whole up to there
};

// Writes the frames of a recording: images, or else strips measured so. Ends early when `stop`,
// which is asked often, says so.
BagFramesResult WriteBagFrames(const BagSource& recording, bool images, const Measuring& measuring,
                               unsigned columns, FrameWriter& writer,
                               const std::function<bool()>& stop);

}  // namespace tool
