#pragma once

#include <string>
#include <vector>

namespace reliability {

// How a program in its own process ended.
enum class Ending { kReturned, kCrashed, kHung };

// The results of one tour, with one failing call or none.
struct Outcome {
  Ending ending = Ending::kReturned;
  int status = 0;                    // exit status, or the signal that killed it
  std::vector<std::string> results;  // a line per call of an exported function, in order
  std::vector<std::string> printed;  // standard output and error, log lines without their time
  std::vector<std::string> events;   // the board's transcript
};

}  // namespace reliability
