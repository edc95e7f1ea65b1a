#pragma once

#include <array>
#include <cstddef>

namespace bench {

// The sleeps of a start-up. It needs no heap, and can be sent through a pipe.
struct Pauses {
  std::array<unsigned, 8192> microseconds;  // the pauses for the hardware, as requested
  std::size_t count = 0;
  double asked = 0;    // their requested total, in nanoseconds
  double slept = 0;    // their wall time
  double waiting = 0;  // wall time of the other sleeps
};

// Records the sleeps of the calling thread. The library uses prompt sleeps only when it pauses for
// the hardware. When it waits for its own threads, it sleeps with the ordinary timer slack.
class PauseRecorder {
 public:
  explicit PauseRecorder(Pauses& into);
  ~PauseRecorder();
  PauseRecorder(const PauseRecorder&) = delete;
  PauseRecorder& operator=(const PauseRecorder&) = delete;
};

}  // namespace bench
