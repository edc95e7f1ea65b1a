#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <variant>

#include "Listening.h"

namespace python {

// The external trigger input changed.
struct TriggerPulse {
  unsigned level;
};
// The hardware has taken over a value of the DA output.
struct DaArrived {};

using Happening = std::variant<Line, TriggerPulse, DaArrived>;

// What happens on threads of the library, for a thread of Python to take. Adding never waits for
// Python: when nobody takes, the newest are dropped and counted.
class Happenings {
 public:
  static Happenings& Instance();

  void Add(Happening happening);
  // Waits at most so long. Nothing: none came.
  std::optional<Happening> Take(int milliseconds);
  std::uint64_t dropped();

 private:
  static constexpr std::size_t kMost = 4096;

  std::mutex mutex_;
  std::condition_variable added_;
  std::deque<Happening> queue_;
  std::uint64_t dropped_ = 0;
};

}  // namespace python
