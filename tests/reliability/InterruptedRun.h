#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "reliability/StormActivities.h"

namespace tessaline_test {

struct Interruption {
  std::string model;
  StormActivity activity;
  std::chrono::microseconds after;  // after the application has begun its activity
};

struct InterruptedEnd {
  double seconds = 0;      // from the signal to the end of the process
  bool cut_short = false;  // by the guard thread, not by exit()
  std::vector<std::string> complaints;
};

// Runs the application in its own process on its own virtual board, interrupts it, and checks how
// it and its children end. The calling process must be made to inherit the children
// (PR_SET_CHILD_SUBREAPER). The application's output and the board's transcript are left in the
// directory: output.txt, transcript.json.
class InterruptedRun {
 public:
  // A process that needs longer than `most_seconds` is a complaint; the wait still continues for a
  // while.
  InterruptedRun(std::string application, std::string directory, double most_seconds)
      : application_(std::move(application)),
        directory_(std::move(directory)),
        most_seconds_(most_seconds) {}

  InterruptedEnd Run(const Interruption& interruption) const;

 private:
  std::string Path(const char* name) const { return directory_ + "/" + name; }
  int Spawn(const Interruption& interruption, int report) const;
  [[noreturn]] void Execute(const Interruption& interruption, int report) const;
  void JudgeOutput(const StormActivity& activity, std::vector<std::string>& complaints) const;

  const std::string application_;
  const std::string directory_;
  const double most_seconds_;
};

}  // namespace tessaline_test
