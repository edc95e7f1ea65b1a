#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Outcome.h"

namespace reliability {

// One call into the board: the nth (from 0) of its kind once `step` lines of the tour are
// told. What an earlier step does once more or less often does not move it.
struct Fault {
  std::string device;
  std::string operation;
  unsigned step = 0;
  unsigned nth = 0;
  int error = 0;  // an errno or TESSALINE_BOARD_SHORT; TESSALINE_BOARD_CALLED: see Survey
};

// A tour of a product in a process of its own, on a board of its own, in which one
// call into the board fails. SIGINT ends it.
class FaultRun {
 public:
  struct Patience {
    double seconds;        // a process that takes longer counts as hung
    double quiet_seconds;  // and one whose caller does nothing for so long after the failure
  };

  FaultRun(const std::string& model, const Fault& fault, Patience patience);
  ~FaultRun();
  FaultRun(const FaultRun&) = delete;
  FaultRun& operator=(const FaultRun&) = delete;

  // A tour without a failure. Its events are all calls that can be made to fail
  // ("gpio write called") between lines that name the exported function under way
  // before ("in OpenLaser").
  static std::unique_ptr<FaultRun> Survey(const std::string& model, Patience patience);

  // To be asked again and again; does not block.
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
