#pragma once

#include <string>
#include <string_view>

#include "tessaline/board.h"

namespace board {

// The ordered record of the calls that reached the board. Record adds one event: the device's name
// and what happened. Time and thread are added here. This is cheap when recording is off, but the
// caller builds the text. Check Recording() before building a long text.
void Record(std::string_view device, std::string text);
bool Recording();

// The name of an errno, for the end of a failed event: "... failed: ENODEV".
std::string ErrnoName(int error);

std::string TranscriptText(tessaline_board_format format);
// What was recorded since the last call, and whether a device has a part in it.
struct TranscriptPart {
  std::string text;
  bool has_device = false;
};
TranscriptPart TakeTranscript(tessaline_board_format format);
// Somebody else has it.
void SkipTranscript();
void ClearTranscript();
void EnableTranscript(bool enable);

}  // namespace board
