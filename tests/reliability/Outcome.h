#pragma once

#include <string>
#include <vector>

namespace reliability {

// How a program in a process of its own ended.
enum class Ending { kReturned, kCrashed, kHung };

// What one tour, with one failing call or none, left behind.
struct Outcome {
  Ending ending = Ending::kReturned;
  int status = 0;                    // exit status, or the signal it died of
  std::vector<std::string> results;  // a line per call of an exported function, in order
  std::vector<std::string> printed;  // standard output and error, log lines without their time
  std::vector<std::string> events;   // the board's transcript
};

}  // namespace reliability
