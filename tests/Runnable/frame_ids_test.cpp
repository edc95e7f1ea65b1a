// The ids that are missing in a sequence of frame ids.
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <random>

#include "Runnable/FrameIds.h"

namespace VeltranoSDK {

bool operator==(const FrameIds::Counts& one, const FrameIds::Counts& other) {
  return one.seen == other.seen && one.gaps == other.gaps && one.missing == other.missing &&
         one.out_of_order == other.out_of_order;
}

void PrintTo(const FrameIds::Counts& counts, std::ostream* out) {
  *out << "seen " << counts.seen << ", gaps " << counts.gaps << ", missing " << counts.missing
       << ", out of order " << counts.out_of_order;
}

}  // namespace VeltranoSDK

namespace {

using VeltranoSDK::FrameIds;
using Counts = FrameIds::Counts;

constexpr std::uint64_t kFarthest = std::uint64_t{1} << 32;

Counts After(std::initializer_list<std::uint64_t> sequence) {
  FrameIds ids;
  for (const std::uint64_t id : sequence) ids.Follow(id);
  return ids.counts();
}

TEST(FrameIds, ThatFollowEachOtherLeaveNothingOut) {
  EXPECT_EQ(After({}), (Counts{0, 0, 0, 0}));
  EXPECT_EQ(After({5000}), (Counts{1, 0, 0, 0})) << "the first may be any";
  EXPECT_EQ(After({1, 2, 3}), (Counts{3, 0, 0, 0}));
  EXPECT_EQ(After({~std::uint64_t{0}, 0, 1}), (Counts{3, 0, 0, 0})) << "the counter wraps";
}

TEST(FrameIds, ThatAreLeftOutAreMissing) {
  EXPECT_EQ(After({1, 3}), (Counts{2, 1, 1, 0}));
  EXPECT_EQ(After({1, 11, 12, 15}), (Counts{4, 2, 11, 0}));
  EXPECT_EQ(After({1, 1 + kFarthest}), (Counts{2, 1, kFarthest - 1, 0}));
}

TEST(FrameIds, OfAnOldOrUnwrittenFrameDoNotDisturbTheCount) {
  EXPECT_EQ(After({8, 9, 9, 10}), (Counts{4, 0, 0, 1})) << "the same again";
  EXPECT_EQ(After({8, 9, 2, 11}), (Counts{4, 1, 1, 1})) << "an old one in place of 10";
  EXPECT_EQ(After({8, 9, 0, 10, 1, 11}), (Counts{6, 0, 0, 2})) << "not two in a row";
  EXPECT_EQ(After({8, 9, 10 + kFarthest, 10}), (Counts{4, 0, 0, 1})) << "too far ahead";
  EXPECT_EQ(After({8, 9, 1, 10}), (Counts{4, 0, 0, 1})) << "a single 1 is no new beginning";
}

TEST(FrameIds, ThatBeganAnewAreFollowedFromTheSecondOn) {
  EXPECT_EQ(After({8, 9, 1, 2, 3, 6}), (Counts{6, 1, 2, 2}));
}

TEST(FrameIds, AfterAnAnnouncedRestartMayBeAny) {
  FrameIds ids;
  for (const std::uint64_t id : {8, 9}) ids.Follow(id);
  ids.Restart();
  for (const std::uint64_t id : {1, 2, 4}) ids.Follow(id);
  EXPECT_EQ(ids.counts(), (Counts{5, 1, 1, 0}));
}

TEST(FrameIds, ToldInRunsCountAsThoseToldOneByOne) {
  std::mt19937_64 random(11);
  FrameIds runs;
  FrameIds singles;
  std::uint64_t next = 1;
  for (int round = 0; round < 5000; ++round) {
    // Most ids follow on. Others skip some ids, repeat ids or start again.
    const std::uint64_t first = random() % 3 != 0 ? next : next - 6 + random() % 12;
    const std::uint64_t count = random() % 7;
    runs.FollowRun(first, count);
    for (std::uint64_t i = 0; i < count; ++i) singles.Follow(first + i);
    if (count > 0) next = first + count;
    ASSERT_EQ(runs.counts(), singles.counts()) << "round " << round;
  }
  EXPECT_GT(runs.counts().gaps, 0u);
  EXPECT_GT(runs.counts().out_of_order, 0u);
}

TEST(FrameIds, GoOnWhereTheyWereWhenTheCountsAreCleared) {
  FrameIds ids;
  for (const std::uint64_t id : {8, 10}) ids.Follow(id);
  ids.ClearCounts();
  EXPECT_EQ(ids.counts(), (Counts{0, 0, 0, 0}));
  ids.Follow(13);
  EXPECT_EQ(ids.counts(), (Counts{1, 1, 2, 0}));
}

}  // namespace
