// The FPGA's counter fitted to the host's clock: clocks whose truth is known.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "SimulatedClocks.h"
#include "time/ClockFit.h"

namespace tessaline_test {
namespace {

using tool::ClockFit;
using tool::ClockPair;

struct Kind {
  const char* name;
  ClockTraits traits;
  double usual_ns;  // what at least half of all uncertainties are below
  bool old_is_known = true;
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

// How often the truth lay within what was stated.
struct Coverage {
  int within = 0;
  int all = 0;

  void Count(bool is_within) {
    ++all;
    within += is_within ? 1 : 0;
  }
  double Share() const { return static_cast<double>(within) / all; }
};

constexpr int kRuns = 40;
constexpr int kSeconds = 300;

class Clocks : public ::testing::TestWithParam<Kind> {};

TEST_P(Clocks, StateTheirUncertainty) {
  Coverage coming;  // strips that have just come, or are about to
  Coverage old;     // those of the last minute
  std::vector<double> stated;
  for (unsigned seed = 1; seed <= kRuns; ++seed) {
    SimulatedClocks clocks(GetParam().traits, seed);
    ClockFit fit;
    for (int second = 0; second < kSeconds; ++second) {
      fit.Add(clocks.Read());
      for (int sample = 0; sample < 5; ++sample) {
        const bool is_old = sample == 0;
        const double ago = is_old ? clocks.Between(1, 60) : clocks.Between(-1, 0.2);
        const double moment = std::max(clocks.seconds() - ago, 0.0);
        const auto found = fit.At(clocks.Ticks(moment));
        ASSERT_TRUE(found);
        const auto error = static_cast<double>(found->ns - clocks.Host(moment));
        (is_old ? old : coming).Count(std::abs(error) <= found->uncertainty_ns);
        stated.push_back(found->uncertainty_ns);
      }
      clocks.Next();
    }
  }
  const auto middle = stated.begin() + static_cast<std::ptrdiff_t>(stated.size() / 2);
  std::nth_element(stated.begin(), middle, stated.end());
  RecordProperty("coming", std::to_string(coming.Share()));
  RecordProperty("old", std::to_string(old.Share()));
  RecordProperty("usual_ns", std::to_string(*middle));
  EXPECT_GE(coming.Share(), 0.95);
  if (GetParam().old_is_known) {
    EXPECT_GE(old.Share(), 0.95);
  }
  EXPECT_LE(*middle, GetParam().usual_ns);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Clocks,
    ::testing::Values(Kind{"perfect", {.read_ns = 0}, 30},
                      Kind{"drifting", {.counter_ppm = 37}, 1000},
                      Kind{"the other way", {.counter_ppm = -61}, 1000},
                      Kind{"always read first", {.counter_ppm = 37, .read_early = 0}, 1000},
                      Kind{"always read last", {.counter_ppm = 37, .read_early = 1}, 1000},
                      Kind{"read anywhere", {.counter_ppm = 37, .read_anywhere = true}, 1500},
                      Kind{"often interrupted",
                           {.counter_ppm = 37, .long_reads = 0.3, .read_anywhere = true},
                           1500},
                      Kind{"read through a daemon",
                           {.counter_ppm = 37, .read_ns = 2e6, .read_anywhere = true},
                           3e6},
                      Kind{"noisy", {.counter_ppm = 37, .noise_ns = 5000}, 5000},
                      Kind{"warming up", {.counter_ppm = 20, .swing_ppm = 5}, 2000},
                      Kind{"disciplined", {.counter_ppm = 20, .wander_ppm = 0.01}, 1500},
                      Kind{"badly disciplined", {.counter_ppm = 20, .wander_ppm = 1}, 5000},
                      Kind{"all of it",
                           {.counter_ppm = -40,
                            .swing_ppm = 1,
                            .wander_ppm = 0.1,
                            .noise_ns = 300,
                            .long_reads = 0.1,
                            .read_anywhere = true},
                           5000},
                      Kind{"set", {.counter_ppm = 37, .steps = 0.01, .largest_step_ns = 1e9}, 1500},
                      Kind{"set by little",
                           {.counter_ppm = 37, .steps = 0.01, .largest_step_ns = 20000},
                           1500,
                           false}));

// A fit of clocks that differ by their crystal alone, after this many seconds.
ClockFit FitOf(SimulatedClocks& clocks, int seconds) {
  ClockFit fit;
  for (int second = 0; second < seconds; ++second) {
    clocks.Next();
    fit.Add(clocks.Read());
  }
  return fit;
}

TEST(ClockFit, KnowsNothingBeforeTheFirstPair) {
  const ClockFit fit;
  EXPECT_FALSE(fit.At(1));
  EXPECT_FALSE(fit.CounterDrift());
}

TEST(ClockFit, LosesNoNanosecondsSince1970) {
  SimulatedClocks clocks({.counter_ppm = 100, .read_ns = 0}, 1);
  const ClockFit fit = FitOf(clocks, 60);
  for (const double moment : {1.0, 30.123456, 60.0, 61.0}) {
    const auto found = fit.At(clocks.Ticks(moment));
    ASSERT_TRUE(found);
    EXPECT_NEAR(static_cast<double>(found->ns - clocks.Host(moment)), 0, 2 * tool::kTickNs);
  }
}

TEST(ClockFit, FindsTheDriftOfTheCrystal) {
  for (const double ppm : {-80.0, 0.0, 12.5}) {
    SimulatedClocks clocks({.counter_ppm = ppm, .read_anywhere = true}, 7);
    const auto drift = FitOf(clocks, 60).CounterDrift();
    ASSERT_TRUE(drift);
    EXPECT_NEAR(drift->ppm, ppm, drift->uncertainty_ppm);
    EXPECT_LT(drift->uncertainty_ppm, 0.05);
  }
}

// The clocks' crystals and the kernel's slewing leave no more than 600 us a second.
TEST(ClockFit, AnswersFromOnePairWithWhatAnyClocksDo) {
  ClockFit fit;
  fit.Add({1'000'000'000, 50'000'000, 1000});
  const auto found = fit.At(100'000'000);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->ns, 2'000'000'000);
  EXPECT_NEAR(found->uncertainty_ns, 500 + 20 + 600'000, 1);
  EXPECT_FALSE(fit.CounterDrift());
}

TEST(ClockFit, StartsAnewWhenTheHostsClockIsSet) {
  for (const double seconds : {-3600.0, -0.002, 0.002, 37.0}) {
    const auto step = static_cast<std::int64_t>(seconds * 1e9);
    SimulatedClocks clocks({.counter_ppm = 37}, 1);
    ClockFit fit = FitOf(clocks, 60);
    EXPECT_EQ(fit.restarts(), 0u);
    ClockPair pair;
    for (int second = 0; second < 5; ++second) {
      clocks.Next();
      pair = clocks.Read();
      pair.host_ns += step;
      fit.Add(pair);
      EXPECT_NEAR(static_cast<double>(fit.At(pair.ticks)->ns - pair.host_ns), 0, 1000) << step;
    }
    EXPECT_EQ(fit.restarts(), 1u) << step;
    EXPECT_EQ(fit.length(), 5u) << step;
  }
}

TEST(ClockFit, StartsAnewWhenTheCounterDoes) {
  SimulatedClocks clocks({.counter_ppm = 37}, 1);
  ClockFit fit = FitOf(clocks, 60);
  for (int second = 0; second < 5; ++second) {
    clocks.Next();
    ClockPair pair = clocks.Read();
    pair.ticks -= clocks.Ticks(60.5);
    fit.Add(pair);
    EXPECT_NEAR(static_cast<double>(fit.At(pair.ticks)->ns - pair.host_ns), 0, 1000);
  }
  EXPECT_EQ(fit.restarts(), 1u);
}

// The counter's upper word is carried into between the reads of the two words, once in 86 s.
TEST(ClockFit, CorrectsACountWithTheNextUpperWord) {
  SimulatedClocks clocks({.counter_ppm = 37}, 1);
  ClockFit fit = FitOf(clocks, 60);
  clocks.Next();
  ClockPair pair = clocks.Read();
  const auto expected = fit.At(pair.ticks);
  pair.ticks += std::uint64_t{1} << 32;
  fit.Add(pair);
  EXPECT_EQ(fit.restarts(), 0u);
  EXPECT_EQ(fit.length(), 60u);
  EXPECT_NEAR(static_cast<double>(fit.At(clocks.Ticks(61))->ns - expected->ns), 0, 100);
}

TEST(ClockFit, IgnoresACountFromBeforeTheStart) {
  ClockFit fit;
  fit.Add({1'000'000'000, ~std::uint64_t{0}, 1000});
  EXPECT_FALSE(fit.At(0));
}

TEST(ClockFit, KnowsNothingOfACountThatIsYearsAway) {
  SimulatedClocks clocks({}, 1);
  const ClockFit fit = FitOf(clocks, 10);
  EXPECT_TRUE(fit.At(clocks.Ticks(0) - 50'000'000ull * 86400));
  for (const std::uint64_t far : {0ull, ~0ull, 0x8123456789ABCDEFull}) EXPECT_FALSE(fit.At(far));
}

TEST(ClockFit, StandsACounterThatStands) {
  ClockFit fit;
  for (int second = 0; second < 10; ++second) {
    fit.Add({second * 1'000'000'000ll, 12345, 1000});
    const auto found = fit.At(12345);
    ASSERT_TRUE(found);
    EXPECT_NEAR(static_cast<double>(found->ns), second * 1e9, 1000);
    EXPECT_FALSE(fit.CounterDrift());
  }
}

}  // namespace
}  // namespace tessaline_test
