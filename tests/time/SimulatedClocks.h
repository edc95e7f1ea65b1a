#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "time/ClockFit.h"

namespace tessaline_test {

// How a host and an FPGA count, and how the one reads the other.
struct ClockTraits {
  double counter_ppm = 0;  // how fast the counter's crystal is
  double swing_ppm = 0;    // by how much that changes, to and fro within ten minutes
  double wander_ppm = 0;   // by how much the host's rate changes each second, at random
  double noise_ns = 0;     // of the host's clock as such
  double read_ns = 1000;   // how long reading usually takes
  double long_reads = 0;   // how many of them are interrupted, which takes up to 2 ms
  double read_early =
      0.5;  // where within reading the counter is read: 0 at its begin, 1 at its end
  bool read_anywhere = false;
  double steps = 0;  // how many seconds begin with the host's clock being set
  double largest_step_ns = 0;
};

// Both clocks as time goes by. All numbers count from the start, so that doubles hold them.
class SimulatedClocks {
 public:
  static constexpr std::int64_t kStart = 1'763'000'000'123'456'789;

  SimulatedClocks(const ClockTraits& traits, unsigned seed) : traits_(traits), random_(seed) {}

  // Goes on by a second.
  void Next() {
    const Second& last = seconds_.back();
    const double ahead_ns = last.ahead_ns + last.rate_ppm * kNsOfPpm;
    seconds_.push_back({ahead_ns, last.rate_ppm + Normal() * traits_.wander_ppm});
    if (Chance(traits_.steps)) set_by_ns_ += Between(-1, 1) * traits_.largest_step_ns;
  }

  double seconds() const { return static_cast<double>(seconds_.size() - 1); }

  std::uint64_t Ticks(double seconds) const {
    constexpr double kPi = 3.14159265358979323846;
    const double turn = 2 * kPi / 600;
    const double ahead = traits_.counter_ppm * 1e-6 * seconds +
                         traits_.swing_ppm * 1e-6 * (1 - std::cos(turn * seconds)) / turn;
    return kFirstTick + static_cast<std::uint64_t>((seconds + ahead) * 50e6);
  }

  // The host's clock without its noise, as if it had been right from the start.
  std::int64_t Host(double seconds) const {
    const auto index = static_cast<std::size_t>(std::max(seconds, 0.0));
    const std::size_t second = std::min(index, seconds_.size() - 1);
    const Second& since = seconds_[second];
    const double ahead_ns =
        since.ahead_ns + since.rate_ppm * kNsOfPpm * (seconds - static_cast<double>(second));
    return kStart + std::llround(seconds * 1e9 + ahead_ns + set_by_ns_);
  }

  tool::ClockPair Read() {
    double length = traits_.read_ns * Between(0.8, 1.2);
    if (Chance(traits_.long_reads)) length += Between(0, 2e6);
    const double where = traits_.read_anywhere ? Between(0, 1) : traits_.read_early;
    const double middle = seconds() + (0.5 - where) * length * 1e-9;
    return {Host(middle) + std::llround(Normal() * traits_.noise_ns), Ticks(seconds()),
            static_cast<std::uint64_t>(length)};
  }

  double Between(double low, double high) {
    return std::uniform_real_distribution(low, high)(random_);
  }

 private:
  static constexpr std::uint64_t kFirstTick = 0x0123456789ABCDEF;
  static constexpr double kNsOfPpm = 1e3;  // within a second

  struct Second {
    double ahead_ns = 0;  // the host's clock, when it begins
    double rate_ppm = 0;  // and how fast it runs from there
  };

  bool Chance(double chance) { return Between(0, 1) < chance; }
  double Normal() { return std::normal_distribution()(random_); }

  ClockTraits traits_;
  std::mt19937 random_;
  std::vector<Second> seconds_{Second{}};
  double set_by_ns_ = 0;
};

}  // namespace tessaline_test
