#pragma once

#include <array>
#include <cstddef>

namespace bench {

// The sleeps of a start-up. Needs no heap and can be sent through a pipe.
struct Pauses {
  std::array<unsigned, 8192> microseconds;  // asked for: the hardware's pauses
  std::size_t count = 0;
  double asked = 0;    // of these, nanoseconds
  double slept = 0;    // wall time of these
  double waiting = 0;  // wall time of the other sleeps
};

// Records the sleeps of the calling thread. The library asks for prompt sleeps only while it pauses
// for the hardware. Sleeps with the ordinary timer slack are waits for its own threads.
class PauseRecorder {
 public:
  explicit PauseRecorder(Pauses& into);
  ~PauseRecorder();
  PauseRecorder(const PauseRecorder&) = delete;
  PauseRecorder& operator=(const PauseRecorder&) = delete;
};

}  // namespace bench
