#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "time/ClockLine.h"

namespace tool {

// What the host's clock says at any count of the FPGA: a straight line through the last pairs, or,
// for an older count, through as many around it. It is as long as the clocks keep to one.
//
// A pair that contradicts the line means that a clock was set, that the counter started again, or
// that a rate changed. Then the line is shortened until it agrees, and if it never does, all pairs
// are forgotten: counts from before that get the time that the host's clock would have shown, had
// it been set already. A clock that was set by less than its rate could explain, 600 us a second,
// is not told from one that runs faster; there, old counts keep the time that it showed.
//
// Not thread-safe.
class ClockFit {
 public:
  // `window`: how many pairs it keeps; one comes each second.
  explicit ClockFit(std::size_t window = 60) : window_(window) {}

  void Add(const ClockPair& pair);

  // Nothing before the first pair, and for a count that is years away from the last one.
  std::optional<HostTime> At(std::uint64_t ticks) const;
  // Nothing from so few pairs that the line is not known.
  std::optional<Drift> CounterDrift() const;

  // Through how many pairs the line goes.
  std::size_t length() const { return length_; }
  // How often all pairs were forgotten.
  std::uint64_t restarts() const { return restarts_; }

 private:
  bool Contradicts(const ClockPair& pair) const;
  std::optional<ClockLine> LineAt(std::uint64_t ticks) const;

  std::size_t window_;
  std::vector<ClockPair> pairs_;
  std::size_t length_ = 0;
  std::uint64_t restarts_ = 0;
};

}  // namespace tool
