#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
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

  // Whether this one has come before.
  bool Has(std::uint64_t number) const {
    if (number > used_) return waiting_.contains(number);
    const auto after = given_up_.upper_bound(number);
    return after == given_up_.begin() || std::prev(after)->second < number ||
           waiting_.contains(number);
  }
  // False: it has come before.
  bool Add(std::uint64_t number, Item item, Clock::time_point now) {
    GoOn(now);
    return !Has(number) && waiting_.emplace(number, Waiting{std::move(item), waited_}).second;
  }

  // The next in order. The one behind a hole when `patience` is over since it came, and `gone` says
  // that the server has no such message any more. If it comes all the same, it is the next.
  template <typename Gone>
  std::optional<Item> Next(Clock::time_point now, Clock::duration patience, const Gone& gone) {
    GoOn(now);
    if (waiting_.empty()) return std::nullopt;
    const std::uint64_t number = waiting_.begin()->first;
    if (number > used_ + 1) {
      Clock::duration& since = waiting_.begin()->second.since;
      if (waited_ - since < patience) return std::nullopt;
      if (!gone()) {
        since = waited_;
        return std::nullopt;
      }
      ++holes_;
      given_up_.emplace(used_ + 1, number - 1);
      if (given_up_.size() > kMostGivenUp) given_up_.erase(given_up_.begin());
    } else if (number <= used_) {
      Found(number);
    }
    auto first = waiting_.extract(waiting_.begin());
    used_ = std::max(used_, number);
    return std::move(first.mapped().item);
  }
  // What waits, in order, without waiting.
  std::optional<Item> Take() {
    if (waiting_.empty()) return std::nullopt;
    return std::move(waiting_.extract(waiting_.begin()).mapped().item);
  }
  // Nothing could come since the last call: that time does not count.
  void Interrupted(Clock::time_point now) { seen_ = now; }

  bool Empty() const { return waiting_.empty(); }
  std::uint64_t holes() const { return holes_; }

 private:
  static constexpr std::size_t kMostGivenUp = 1000;
  struct Waiting {
    Item item;
    Clock::duration since;
  };

  void GoOn(Clock::time_point now) {
    if (seen_) waited_ += now - *seen_;
    seen_ = now;
  }

  // A number that was given up.
  void Found(std::uint64_t number) {
    const auto range = std::prev(given_up_.upper_bound(number));
    const auto [first, last] = *range;
    given_up_.erase(range);
    if (first < number) given_up_.emplace(first, number - 1);
    if (number < last) given_up_.emplace(number + 1, last);
  }

  std::uint64_t used_;
  std::map<std::uint64_t, Waiting> waiting_;
  std::map<std::uint64_t, std::uint64_t> given_up_;  // first and last of each
  std::optional<Clock::time_point> seen_;
  Clock::duration waited_{};  // in all, without interruptions
  std::uint64_t holes_ = 0;
};

}  // namespace tool::fleet
