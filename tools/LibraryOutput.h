#pragma once

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "tessaline/log.h"

namespace tool {

// Keeps the texts of the library away from what the tool prints.
//
// The library tells faults on the process's standard output and in its log. From
// Capture() on, the first goes into a pipe whose latest lines are kept, and the
// second into a sink; the tool itself prints on the standard output as it was.
//
// There is one, for the life of the process: the library's threads use it to the end.
class LibraryOutput {
 public:
  static LibraryOutput& Instance();

  // Call before the library is used. Verbose: lines go on to the standard error stream.
  void Capture(bool verbose);

  // The standard output as the process was given it.
  FILE* user() const { return user_; }

  // The latest lines printed, and ERROR messages logged ("source file: message"), up to now.
  std::vector<std::string> Printed();
  std::vector<std::string> Errors();
  bool HasPrinted(const std::string& part);
  bool HasError(const std::string& part);
  // ERROR messages with this part in them so far.
  unsigned long CountErrors(const std::string& part);

 private:
  LibraryOutput() = default;
  static void Sink(log_Event* event);
  void ReadPipe(int fd);
  void Settle();

  FILE* user_ = stdout;
  int pipe_ = -1;
  bool verbose_ = false;
  std::mutex mutex_;
  std::deque<std::string> printed_;
  std::deque<std::string> errors_;
};

// While it lives, the standard error stream goes where the library's output goes: for
// the functions that tell their reasons there.
class ErrorStreamCaptured {
 public:
  ErrorStreamCaptured();
  ~ErrorStreamCaptured();
  ErrorStreamCaptured(const ErrorStreamCaptured&) = delete;
  ErrorStreamCaptured& operator=(const ErrorStreamCaptured&) = delete;

 private:
  int kept_;
};

}  // namespace tool
