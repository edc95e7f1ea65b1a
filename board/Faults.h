#pragma once

#include <string_view>

#include "tessaline/board.h"

namespace board {

// The planted failures. Each query uses up one matching call or frame.

// What is planted for a call: the errno to fail with, or to do half of what is asked. Both are
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
