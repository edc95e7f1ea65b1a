#pragma once

#include <cstdint>

namespace board {

// A condition of a chip that comes true a while after its cause: after so many
// looks at it, so that the same software always looks as often, or when the time
// has passed for somebody who only waits.
class Settling {
 public:
  void Begin(unsigned looks);
  void Cancel() { state_ = State::kIdle; }
  // Whether it has come true by now. A look counts.
  bool Look();
  // The same without counting.
  bool Settled() const;
  // It was begun and has not come true yet.
  bool Pending() const { return state_ == State::kUnderWay && !Settled(); }

 private:
  enum class State { kIdle, kUnderWay, kSettled };

  State state_ = State::kIdle;
  unsigned looks_left_ = 0;
  std::int64_t due_ns_ = 0;  // the board's time
};

}  // namespace board
