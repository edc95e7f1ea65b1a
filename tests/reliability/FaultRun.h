#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Outcome.h"

namespace reliability {

// One call into the board: the nth (from 0) of its kind after `step` lines of the tour. An earlier
// step that makes one call more or less does not move it.
struct Fault {
  std::string device;
  std::string operation;
  unsigned step = 0;
  unsigned nth = 0;
  int error = 0;  // an errno or TESSALINE_BOARD_SHORT; TESSALINE_BOARD_CALLED: see Survey
};

// A tour of a product in its own process, on its own board, in which one call into the board fails.
// SIGINT ends it.
class FaultRun {
 public:
  struct Patience {
    double seconds;        // a process that takes longer counts as hung
    double quiet_seconds;  // so does one whose caller does nothing for this long after the failure
  };

  FaultRun(const std::string& model, const Fault& fault, Patience patience);
  ~FaultRun();
  FaultRun(const FaultRun&) = delete;
  FaultRun& operator=(const FaultRun&) = delete;

  // A tour without a failure. Its events are all calls that can be made to fail ("gpio write
  // called"). Lines before them name the exported function that makes them ("in OpenLaser").
  static std::unique_ptr<FaultRun> Survey(const std::string& model, Patience patience);

  // Poll this; it does not block.
  bool Ended();

  Outcome Take() const;

 private:
  class File;
  std::unique_ptr<File> results_;
  std::unique_ptr<File> printed_;
  std::unique_ptr<File> events_;
  std::chrono::steady_clock::time_point patience_ends_;
  pid_t child_ = -1;
  Ending ending_ = Ending::kReturned;
  int status_ = 0;
};

}  // namespace reliability
