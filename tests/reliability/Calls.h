#pragma once

#include <string>
#include <vector>

namespace reliability {

// A call into the board that can fail.
struct Call {
  std::string device;
  std::string operation;
  unsigned step = 0;     // of the tour
  unsigned nth = 0;      // from 0, among those of this device and operation in this step
  std::string during{};  // the exported function of this step
  std::string
      access{};  // its purpose, where that matters: "read IMAGE_BLOCK_3 TRI_DELAY" of a mapping
};

// The calls of a surveying tour, in order. Of calls that alternate (see Calls.cpp), each group has
// one.
std::vector<Call> CallsOf(const std::vector<std::string>& events);

struct Failure {
  Call call;
  int error = 0;
};

// Each call with one of its possible errors, in turn; or with all of them. Every error of an
// operation occurs at least once for each exported function that makes it.
std::vector<Failure> FailuresOf(const std::vector<Call>& calls, bool all_errors);

}  // namespace reliability
