#pragma once

#include <string_view>

#include "tessaline/board.h"

namespace board {

// The planted failures. Each query uses up one matching call or frame.

// The fault planted for a call: it fails with an errno, or it does half of its work. Both are
// recorded in the transcript.
struct CallFate {
  int error = 0;
  bool cut_short = false;
};
CallFate PlantedFault(std::string_view device, std::string_view operation);

enum class FrameFault { kNone, kLost, kLate, kTruncated, kCorrupt };
FrameFault FrameFaultFor(int stream);

void PlantFault(std::string_view device, std::string_view operation, unsigned skip, unsigned count,
                int error);
void PlantFrameFault(int stream, enum tessaline_board_frame_fault kind, unsigned skip,
                     unsigned count);
void ClearFaults();

}  // namespace board
