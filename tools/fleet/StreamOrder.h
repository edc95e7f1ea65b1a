#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

namespace tool::fleet {

// Puts what a stream delivers back into the stream's order. The server sends again what was not
// acknowledged in time, so a number may come late, or twice.
template <typename Item>
class StreamOrder {
 public:
  using Clock = std::chrono::steady_clock;

  // All up to `before` have been used, or are none of ours.
  explicit StreamOrder(std::uint64_t before) : used_(before) {}

  // False: this one has come before, and `item` is as it was.
  bool Add(std::uint64_t number, Item&& item) {
    return number > used_ && waiting_.try_emplace(number, std::move(item)).second;
  }

  // The next in order. After `patience` without it, the one behind the hole: the server has no such
  // message any more.
  std::optional<Item> Next(Clock::time_point now, Clock::duration patience) {
    if (waiting_.empty()) return std::nullopt;
    if (waiting_.begin()->first != used_ + 1) {
      if (!hole_since_) hole_since_ = now;
      if (now - *hole_since_ < patience) return std::nullopt;
      ++holes_;
    }
    hole_since_.reset();
    auto first = waiting_.extract(waiting_.begin());
    used_ = first.key();
    return std::move(first.mapped());
  }

  bool Empty() const { return waiting_.empty(); }
  std::uint64_t holes() const { return holes_; }

 private:
  std::uint64_t used_;
  std::map<std::uint64_t, Item> waiting_;
  std::optional<Clock::time_point> hole_since_;
  std::uint64_t holes_ = 0;
};

}  // namespace tool::fleet
