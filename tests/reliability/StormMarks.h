#pragma once

#include <sys/types.h>

#include <chrono>

namespace tessaline_test {

// What the interrupted application leaves in the board's transcript: attempts to open files
// that the board does not have. Each is there at its place among all other events, with the
// thread that made it.
namespace mark {

inline constexpr const char* kImagesAsked = "/sys/class/gpio/storm-images-asked";
inline constexpr const char* kStripsAsked = "/sys/class/gpio/storm-strips-asked";
inline constexpr const char* kHandlerBegins = "/sys/class/gpio/storm-handler-begins";
inline constexpr const char* kHandlerEnds = "/sys/class/gpio/storm-handler-ends";
inline constexpr const char* kHandlerTooLate = "/sys/class/gpio/storm-handler-too-late";

}  // namespace mark

// Where the application reports.
inline constexpr int kReportDescriptor = 3;

// First, that it is at work.
struct AtWork {
  pid_t second_thread;  // to be interrupted too
};

// Later, if it comes to that: its end is due, and the thread that guards it does not wait for
// exit() any longer.
struct CutShort {
  std::chrono::steady_clock::time_point at;
};

}  // namespace tessaline_test
