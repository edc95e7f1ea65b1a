#pragma once

#include <string_view>

#include "tessaline/board.h"

namespace board {

// The planted failures. Both questions use up one matching call or frame.

// errno that this call shall fail with, or 0. A failure is in the transcript.
int PlantedFault(std::string_view device, std::string_view operation);

enum class FrameFault { kNone, kLost, kLate, kTruncated, kCorrupt };
FrameFault FrameFaultFor(int stream);

void PlantFault(std::string_view device, std::string_view operation, unsigned skip, unsigned count,
                int error);
void PlantFrameFault(int stream, enum tessaline_board_frame_fault kind, unsigned skip,
                     unsigned count);
void ClearFaults();

}  // namespace board
