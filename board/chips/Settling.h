#pragma once

#include <cstdint>

namespace board {

// A condition of a chip that becomes true some time after its cause. It becomes true after a number
// of reads, so that software always needs the same number of polls, or after a time, for software
// that only waits.
class Settling {
 public:
  void Begin(unsigned looks);
  void Cancel() { state_ = State::kIdle; }
  // Whether it has become true. This read counts.
  bool Look();
  // The same without counting.
  bool Settled() const;
  // Whether it has begun and is not true yet.
  bool Pending() const { return state_ == State::kUnderWay && !Settled(); }

 private:
  enum class State { kIdle, kUnderWay, kSettled };

  State state_ = State::kIdle;
  unsigned looks_left_ = 0;
  std::int64_t due_ns_ = 0;  // the board's time
};

}  // namespace board
