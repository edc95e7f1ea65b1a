#pragma once

#include <string_view>

namespace tessaline_test {

// What the interrupted application leaves in the board's transcript: pauses of lengths
// that nobody else sleeps, in microseconds. A sleep is in the transcript at its place
// among all other events, with the thread that made it.
namespace mark {

inline constexpr unsigned kImagesCancelled = 101;
inline constexpr unsigned kStripsCancelled = 102;
inline constexpr unsigned kHandlerBegins = 103;
inline constexpr unsigned kHandlerEnds = 104;
inline constexpr unsigned kHandlerAfterCancel = 105;

// Activities that may end as no other does: handlers that wait for a lock which the
// interrupted thread holds cannot come back; the settings have calls that are refused.
inline constexpr std::string_view kLocks = "locks";
inline constexpr std::string_view kSettings = "settings";

}  // namespace mark

// Where the application reports that it is at work.
inline constexpr int kReadyDescriptor = 3;

}  // namespace tessaline_test
