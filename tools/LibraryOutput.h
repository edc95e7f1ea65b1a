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

  // First of all: a closed standard stream gets a descriptor nothing can be written to, so that no
  // other file takes its number.
  static void ReserveStandardStreams();

  // Call before the library is used. Verbose: also copies lines to standard error.
  void Capture(bool verbose);

  // The original standard output of the process; null if it was started without one.
  FILE* user() const { return user_; }

  // Where the tool's results go: the same, unless that is for data.
  FILE* results() const { return data_on_user_ ? stderr : user_; }
  void KeepUserForData() { data_on_user_ = true; }

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

  void Tell(const char* text, std::size_t length) const;

  FILE* user_ = stdout;
  bool data_on_user_ = false;
  FILE* told_ = stderr;  // the original standard error
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
