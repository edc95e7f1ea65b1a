#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/VideoDriver.h"

namespace tessaline_fuzz {

// How a plain capture function must end after these answers of the driver. Built by hand.
struct CaptureOutcome {
  std::string text;           // on both standard streams, with kPlace for a place in the source
  std::optional<int> status;  // if it ends the process
  int result = 0;             // of the driver's last request

  static constexpr const char* kPlace = "<place>";
};

using Replies = std::vector<Reply>;

// The outcome of requests that neither open a device nor set up its buffers.
CaptureOutcome StepOutcome(const Replies& replies);
CaptureOutcome OpenOutcome(const Replies& replies, bool path);
CaptureOutcome SwitchOutcome(const Replies& replies, const char* step);
CaptureOutcome CreateOutcome(const Replies& replies);

// Returns the printed text, with kPlace for the place in the source.
std::string WithoutPlace(std::string printed);

}  // namespace tessaline_fuzz
