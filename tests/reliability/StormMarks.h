#pragma once

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

}  // namespace mark

// Where the application reports that it is at work.
inline constexpr int kReadyDescriptor = 3;

}  // namespace tessaline_test
