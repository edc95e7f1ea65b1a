#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/VideoDriver.h"

namespace tessaline_fuzz {

// How a plain capture function ends when the driver has answered so, put together by
// hand.
struct CaptureOutcome {
  std::string text;           // on both standard streams, a place in the source as kPlace
  std::optional<int> status;  // of a process that it ends
  int result = 0;             // of the driver's last request

  static constexpr const char* kPlace = "<place>";
};

using Replies = std::vector<Reply>;

// Texts of requests that neither open a device nor set up its buffers.
CaptureOutcome StepOutcome(const Replies& replies);
CaptureOutcome OpenOutcome(const Replies& replies, bool path);
CaptureOutcome SwitchOutcome(const Replies& replies, const char* step);
CaptureOutcome CreateOutcome(const Replies& replies);

// As printed, with the place in the source as in the expected text.
std::string WithoutPlace(std::string printed);

}  // namespace tessaline_fuzz
