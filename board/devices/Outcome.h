#pragma once

#include <string>
#include <string_view>

#include "Transcript.h"

namespace board {

// The end of a transcript line: " failed: EBUSY" for a negative errno, otherwise empty.
std::string Outcome(long result);

// Records the text that a function makes. The function is called only when recording is on.
template <typename MakeText>
void RecordAs(std::string_view device, MakeText&& make_text) {
  if (Recording()) Record(device, make_text());
}

}  // namespace board
