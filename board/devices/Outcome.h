#pragma once

#include <string>
#include <string_view>

#include "Transcript.h"

namespace board {

// The end of a transcript line: empty for a result that is none of the negative
// errno values, else " failed: EBUSY".
std::string Outcome(long result);

// Records the text a function makes, which is not called for nothing.
template <typename MakeText>
void RecordAs(std::string_view device, MakeText&& make_text) {
  if (Recording()) Record(device, make_text());
}

}  // namespace board
