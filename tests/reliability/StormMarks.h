#pragma once

#include <sys/types.h>

#include <chrono>

namespace tessaline_test {

// Marks of the interrupted application in the board's transcript: attempts to open files that the
// board does not have. Each mark is in order with all other events and has its thread.
namespace mark {

inline constexpr const char* kImagesAsked = "/sys/class/gpio/storm-images-asked";
inline constexpr const char* kStripsAsked = "/sys/class/gpio/storm-strips-asked";
inline constexpr const char* kHandlerBegins = "/sys/class/gpio/storm-handler-begins";
inline constexpr const char* kHandlerEnds = "/sys/class/gpio/storm-handler-ends";
inline constexpr const char* kHandlerTooLate = "/sys/class/gpio/storm-handler-too-late";

}  // namespace mark

// The descriptor for the application's reports.
inline constexpr int kReportDescriptor = 3;

// The first report: the application is running.
struct AtWork {
  pid_t second_thread;  // to be interrupted too
};

// A later report, if it happens: the end is due, and the guard thread no longer waits for exit().
struct CutShort {
  std::chrono::steady_clock::time_point at;
};

}  // namespace tessaline_test
