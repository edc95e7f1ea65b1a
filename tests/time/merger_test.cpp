// Items of several sensors, merged by a key.
#include "time/Merger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace tessaline_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Merger = tool::Merger<int>;
constexpr std::int64_t kSecond = 1'000'000'000;

// What may go now, as "sensor key".
std::vector<std::string> TakeAll(Merger& merger, std::int64_t now = 0) {
  std::vector<std::string> given;
  while (const auto item = merger.Take(now)) {
    given.push_back(item->sensor + " " + std::to_string(item->key));
  }
  return given;
}

// One after the other, and what has come out by then.
std::vector<std::string> Feed(Merger& merger,
                              const std::vector<std::pair<std::string, std::int64_t>>& items,
                              std::int64_t now = 0) {
  std::vector<std::string> given;
  for (const auto& [sensor, key] : items) {
    merger.Add(sensor, key, 0, 1, now);
    for (std::string& text : TakeAll(merger, now)) given.push_back(std::move(text));
  }
  return given;
}

Merger With(const std::vector<std::string>& sensors, const Merger::Limits& limits = {}) {
  Merger merger(limits);
  for (const std::string& sensor : sensors) merger.Join(sensor);
  return merger;
}

TEST(Merger, WaitsUntilAllSensorsHaveComeToAKey) {
  Merger merger = With({"a", "b"});
  EXPECT_THAT(Feed(merger, {{"a", 10}, {"a", 20}}), IsEmpty());
  EXPECT_THAT(Feed(merger, {{"b", 15}}), ElementsAre("a 10", "b 15"));
  EXPECT_THAT(Feed(merger, {{"b", 25}}), ElementsAre("a 20"));
  EXPECT_EQ(merger.held_items(), 1u);
  EXPECT_EQ(merger.held_bytes(), 1u);
}

TEST(Merger, OrdersEqualKeysByTheSensorsNames) {
  Merger merger = With({"a", "b", "c"});
  EXPECT_THAT(Feed(merger, {{"c", 10}, {"b", 10}, {"a", 10}}), ElementsAre("a 10", "b 10", "c 10"));
}

TEST(Merger, GivesAtOnceWhatOneSensorBrings) {
  Merger merger;
  EXPECT_THAT(Feed(merger, {{"a", 10}, {"a", 10}, {"a", 30}}), ElementsAre("a 10", "a 10", "a 30"));
}

TEST(Merger, WaitsForASilentSensorNoLongerThanItsPatience) {
  Merger merger = With({"a", "b"});
  EXPECT_EQ(merger.Deadline(), std::nullopt);
  EXPECT_THAT(Feed(merger, {{"a", 10}}, 5), IsEmpty());
  EXPECT_THAT(Feed(merger, {{"a", 20}}, 6), IsEmpty());
  EXPECT_EQ(merger.Deadline(), kSecond + 5);
  EXPECT_THAT(TakeAll(merger, kSecond + 4), IsEmpty());
  EXPECT_THAT(TakeAll(merger, kSecond + 5), ElementsAre("a 10"));
  EXPECT_EQ(merger.Deadline(), kSecond + 6);
  EXPECT_EQ(merger.counters().impatient, 1u);
}

// The oldest item need not have the lowest key.
TEST(Merger, LosesPatienceInOrder) {
  Merger merger = With({"a", "b", "c"});
  Feed(merger, {{"a", 20}}, 0);
  Feed(merger, {{"b", 10}}, kSecond / 2);
  EXPECT_THAT(TakeAll(merger, kSecond), ElementsAre("b 10", "a 20"));
}

TEST(Merger, GivesALateItemAtOnceAndCountsIt) {
  Merger merger = With({"a", "b"});
  Feed(merger, {{"a", 10}, {"a", 20}});
  EXPECT_THAT(TakeAll(merger, kSecond), ElementsAre("a 10", "a 20"));
  EXPECT_THAT(Feed(merger, {{"a", 30}, {"b", 12}}, kSecond), ElementsAre("b 12"));
  EXPECT_EQ(merger.counters().late, 1u);
  EXPECT_THAT(Feed(merger, {{"b", 20}}, kSecond), ElementsAre("b 20"));  // as low as what was given
  EXPECT_EQ(merger.counters().late, 1u);
}

TEST(Merger, DoesNotWaitForASensorThatHasLeft) {
  Merger merger = With({"a", "b"});
  Feed(merger, {{"a", 10}, {"b", 5}, {"b", 7}});
  EXPECT_THAT(TakeAll(merger), IsEmpty());
  merger.Leave("b");
  EXPECT_THAT(TakeAll(merger), ElementsAre("a 10"));
  EXPECT_THAT(Feed(merger, {{"a", 20}}), ElementsAre("a 20"));
  EXPECT_THAT(Feed(merger, {{"b", 21}, {"a", 22}}), ElementsAre("b 21"));  // it is back
}

TEST(Merger, GivesWhatASensorThatLeftHadBrought) {
  Merger merger = With({"a", "b"});
  Feed(merger, {{"b", 5}});
  merger.Leave("b");
  EXPECT_THAT(Feed(merger, {{"a", 3}, {"a", 6}}), ElementsAre("a 3", "b 5", "a 6"));
}

TEST(Merger, HoldsNoMoreThanItsLimits) {
  for (const auto& [items, bytes] :
       std::vector<std::pair<std::size_t, std::size_t>>{{3, 1000}, {1000, 3}}) {
    Merger merger = With({"a", "b"}, {.items = items, .bytes = bytes});
    EXPECT_THAT(Feed(merger, {{"a", 1}, {"a", 2}, {"a", 3}}), IsEmpty());
    EXPECT_THAT(Feed(merger, {{"a", 4}, {"a", 5}}), ElementsAre("a 1", "a 2"));
    EXPECT_EQ(merger.counters().crowded, 2u);
    EXPECT_EQ(merger.held_items(), 3u);
    EXPECT_EQ(merger.held_bytes(), 3u);
  }
}

TEST(Merger, EmptiesItselfAtTheEnd) {
  Merger merger = With({"a", "b", "c"});
  Feed(merger, {{"a", 30}, {"b", 20}, {"a", 40}});
  std::vector<std::int64_t> keys;
  while (const auto item = merger.TakeAnyway()) keys.push_back(item->key);
  EXPECT_THAT(keys, ElementsAre(20, 30, 40));
  EXPECT_EQ(merger.held_items(), 0u);
}

// The belt stops, and the encoder trembles by a count.
TEST(Merger, LetsAKeyGoDownWithinASensor) {
  Merger merger = With({"a", "b"});
  EXPECT_THAT(Feed(merger, {{"a", 10}, {"b", 10}, {"a", 9}, {"a", 10}, {"a", 9}}),
              ElementsAre("a 10", "b 10", "a 9", "a 10", "a 9"));
  EXPECT_EQ(merger.counters().backward, 2u);
  EXPECT_EQ(merger.counters().late, 0u);
}

TEST(Merger, KeepsABackwardItemBehindItsPredecessors) {
  Merger merger = With({"a", "b"});
  EXPECT_THAT(Feed(merger, {{"b", 5}, {"a", 10}, {"a", 8}}), ElementsAre("b 5"));
  EXPECT_THAT(Feed(merger, {{"b", 9}}), ElementsAre("b 9"));
  EXPECT_THAT(Feed(merger, {{"b", 11}}), ElementsAre("a 10", "a 8"));
}

TEST(Merger, MergesAgainAfterTheEncoderHasTurnedBackAndForward) {
  Merger merger = With({"a", "b"});
  Feed(merger, {{"a", 100}, {"b", 101}, {"a", 103}, {"b", 104}});
  std::size_t given = Feed(merger, {{"a", 80}, {"b", 82}, {"a", 60}, {"b", 61}}).size();
  EXPECT_EQ(given, 5u);  // nothing waits for counts above 100
  EXPECT_THAT(Feed(merger, {{"a", 70}, {"a", 75}}), ElementsAre());
  EXPECT_THAT(Feed(merger, {{"b", 72}, {"b", 90}}), ElementsAre("a 70", "b 72", "a 75"));
  EXPECT_EQ(merger.counters().late, 0u);
}

TEST(Merger, FollowsAnEncoderThatIsSet) {
  Merger merger = With({"a", "b"});
  Feed(merger, {{"a", 1'000'000}, {"b", 1'000'000}});
  Feed(merger, {{"a", 0}, {"b", 1}});
  EXPECT_EQ(merger.held_items(), 0u);
  EXPECT_THAT(Feed(merger, {{"a", 3}, {"b", 2}, {"b", 4}}), ElementsAre("b 2", "a 3"));
}

// One wrong key must not make all others late for ever.
TEST(Merger, RecoversFromAKeyThatIsFarAhead) {
  Merger merger = With({"a", "b"});
  Feed(merger, {{"a", 10}, {"b", 10}, {"a", 1'000'000'000}});
  TakeAll(merger, kSecond);
  Feed(merger, {{"b", 20}, {"a", 30}}, kSecond);
  EXPECT_THAT(Feed(merger, {{"b", 40}, {"b", 50}, {"a", 45}, {"a", 60}}, kSecond),
              ElementsAre("b 40", "a 45", "b 50"));
  EXPECT_EQ(merger.counters().late, 1u);
}

struct Sent {
  std::int64_t arrives;
  std::string sensor;
  std::int64_t key;
  int number;
};

// What sensors send: each with keys of its own making, and each item as late as `delays` says.
std::vector<Sent> Traffic(std::mt19937& random, std::int64_t longest_delay, bool turns) {
  std::vector<Sent> sent;
  const int sensors = std::uniform_int_distribution(1, 5)(random);
  int number = 0;
  for (int sensor = 0; sensor < sensors; ++sensor) {
    std::int64_t made = 0;
    std::int64_t arrived = 0;
    std::int64_t key = 0;
    for (int item = 0; item < 200; ++item) {
      made += std::uniform_int_distribution<std::int64_t>(0, kSecond / 10)(random);
      // A network keeps the order of each sensor.
      arrived = std::max(
          arrived, made + std::uniform_int_distribution<std::int64_t>(0, longest_delay)(random));
      const bool back = turns && std::uniform_int_distribution(0, 3)(random) == 0;
      key = turns ? key + (back ? -7 : 5) : made;
      sent.push_back({arrived, "sensor" + std::to_string(sensor), key, number++});
    }
  }
  std::stable_sort(sent.begin(), sent.end(),
                   [](const Sent& one, const Sent& two) { return one.arrives < two.arrives; });
  return sent;
}

struct Outcome {
  std::vector<Merger::Given> given;
  Merger::Counters counters;
};

Outcome Merge(const std::vector<Sent>& sent, const Merger::Limits& limits) {
  Merger merger(limits);
  for (const Sent& item : sent) merger.Join(item.sensor);
  Outcome outcome;
  const auto take = [&](std::int64_t now) {
    while (auto item = merger.Take(now)) outcome.given.push_back(std::move(*item));
    EXPECT_LE(merger.held_items(), limits.items);
    EXPECT_LE(merger.held_bytes(), limits.bytes);
    if (const auto deadline = merger.Deadline()) {
      EXPECT_GT(*deadline, now);
    }
  };
  for (const Sent& item : sent) {
    merger.Add(item.sensor, item.key, item.number, 10, item.arrives);
    take(item.arrives);
  }
  outcome.counters = merger.counters();
  while (auto item = merger.TakeAnyway()) outcome.given.push_back(std::move(*item));
  EXPECT_EQ(merger.held_bytes(), 0u);
  return outcome;
}

// Every item once, and those of each sensor in order.
void ExpectAllInOrder(const std::vector<Sent>& sent, const std::vector<Merger::Given>& given) {
  std::map<std::string, std::vector<int>> before;
  std::map<std::string, std::vector<int>> after;
  for (const Sent& item : sent) before[item.sensor].push_back(item.number);
  for (const Merger::Given& item : given) after[item.sensor].push_back(item.item);
  EXPECT_EQ(before, after);
}

constexpr unsigned kRuns = 300;

TEST(MergerProperties, NothingIsLostAndEachSensorKeepsItsOrder) {
  std::uint64_t late = 0;
  std::uint64_t crowded = 0;
  std::uint64_t backward = 0;
  for (unsigned run = 0; run < kRuns; ++run) {
    std::mt19937 random(run);
    const bool turns = run % 2 == 1;
    const auto sent = Traffic(random, 3 * kSecond, turns);
    const Merger::Limits limits{.items = run % 3 == 0 ? 20u : 1000u,
                                .bytes = run % 3 == 1 ? 300u : 100'000u};
    const Outcome outcome = Merge(sent, limits);
    ExpectAllInOrder(sent, outcome.given);
    late += outcome.counters.late;
    crowded += outcome.counters.crowded;
    backward += outcome.counters.backward;
  }
  // The traffic was as bad as it was meant to be.
  EXPECT_GT(late, kRuns);
  EXPECT_GT(crowded, kRuns);
  EXPECT_GT(backward, kRuns);
}

// No item arrives later than patience after it was made, so there is order across all sensors.
TEST(MergerProperties, NobodyLateMeansOneOrder) {
  for (unsigned run = 0; run < kRuns; ++run) {
    std::mt19937 random(run);
    const auto sent = Traffic(random, kSecond - 1, /*turns=*/false);
    const Outcome outcome = Merge(sent, {.items = 100'000, .bytes = 10'000'000});
    ExpectAllInOrder(sent, outcome.given);
    EXPECT_EQ(outcome.counters.late, 0u);
    EXPECT_TRUE(std::is_sorted(outcome.given.begin(), outcome.given.end(),
                               [](const auto& one, const auto& two) {
                                 return std::tie(one.key, one.sensor) <
                                        std::tie(two.key, two.sensor);
                               }))
        << run;
  }
}

}  // namespace
}  // namespace tessaline_test
