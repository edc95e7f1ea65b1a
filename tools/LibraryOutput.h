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
// The library reports faults on standard output and in its log. From Capture() on, the first goes
// into a pipe whose latest lines are kept, the second into a sink; the tool itself prints on the
// original standard output.
//
// There is one, for the life of the process: the library's threads use it to the end.
class LibraryOutput {
 public:
  static LibraryOutput& Instance();

  // Call before the library is used. Verbose: also copies lines to standard error.
  void Capture(bool verbose);

  // The original standard output of the process.
  FILE* user() const { return user_; }

  // The latest lines printed, and ERROR messages logged ("source file: message"), up to now.
  std::vector<std::string> Printed();
  std::vector<std::string> Errors();
  bool HasPrinted(const std::string& part);
  bool HasError(const std::string& part);
  // ERROR messages so far that contain this part.
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

// While it lives, standard error goes where the library's output goes, for functions that print
// their reasons there.
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
