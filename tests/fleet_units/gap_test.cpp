// What is missing, as numbers and as text, and how messages that are dropped become one gap.

#include "fleet/Gap.h"

#include <gmock/gmock.h>

#include "Fixture.h"
#include "fleet/Dropped.h"

namespace {

using namespace fleet_test;   // NOLINT(google-build-using-namespace)
using namespace tool::fleet;  // NOLINT(google-build-using-namespace)
using tool::Json;

Gap Example() {
  Gap gap{.reason = Gap::kByStore, .run = kRun};
  gap.strips = {Range{10, 20}, 9, false};
  gap.images = {Range{5, 5}, 1, true};
  gap.others = 3;
  return gap;
}

Gap GapOf(const Packet& packet) {
  const auto* const text = reinterpret_cast<const char*>(packet.payload.data());
  return GapIn(Json::parse(text, text + packet.payload.size()));
}

TEST(Gaps, ComeBackAsTheyWere) {
  EXPECT_EQ(GapIn(Json::parse(ToJson(Example()).dump())), Example());
  EXPECT_EQ(GapIn(Json::parse(ToJson(Gap{}).dump())), Gap{});
  Gap most = Example();
  most.strips = {Range{UINT64_MAX, UINT64_MAX}, UINT64_MAX, false};
  EXPECT_EQ(GapIn(Json::parse(ToJson(most).dump())), most);
}

TEST(Gaps, WithAnOpenEndHaveNoLast) {
  EXPECT_TRUE(ToJson(Example())["images"]["last"].is_null());
  EXPECT_EQ(ToJson(Example())["images"]["first"], 5);
}

struct NoGapRow {
  const char* path;
  const char* value;
};
class NoGap : public testing::TestWithParam<NoGapRow> {};

TEST_P(NoGap, IsRefused) {
  Json json = Json::parse(ToJson(Example()).dump());
  json[Json::json_pointer(GetParam().path)] = Json::parse(GetParam().value);
  EXPECT_EQ(TextOf([&] { GapIn(json); }), "this is no gap");
}

INSTANTIATE_TEST_SUITE_P(
    Gaps, NoGap,
    testing::Values(NoGapRow{"/reason", "7"}, NoGapRow{"/run", "null"}, NoGapRow{"/strips", "[]"},
                    NoGapRow{"/strips", "null"}, NoGapRow{"/others", "-1"},
                    NoGapRow{"/others", "1.5"}, NoGapRow{"/others", "\"1\""},
                    NoGapRow{"/strips/count", "-1"}, NoGapRow{"/strips/count", "1e300"},
                    NoGapRow{"/strips/count", "null"}, NoGapRow{"/strips/to_end", "1"},
                    NoGapRow{"/strips/first", "-1"}, NoGapRow{"/strips/first", "\"1\""},
                    NoGapRow{"/strips/first", "21"}, NoGapRow{"/strips/last", "9"},
                    NoGapRow{"/strips/last", "true"}, NoGapRow{"", "[]"}, NoGapRow{"", "7"}));

TEST(Gaps, AddUp) {
  Gap gap = Example();
  Gap more = Example();
  more.strips = {Range{30, 40}, 11, true};
  more.images = {};
  gap.Add(more);
  EXPECT_EQ(gap.strips, (MissingFrames{Range{10, 40}, 20, true}));
  EXPECT_EQ(gap.images, Example().images);
  EXPECT_EQ(gap.others, 6U);
  EXPECT_FALSE(gap.Empty());
  EXPECT_TRUE(Gap{}.Empty());
}

TEST(Gaps, CountAnImageOnce) {
  Gap gap;
  PacketHeader part = StripsPacket(kRun, 1, 7, 7).header;
  part.kind = Kind::kImages;
  part.parts = 3;
  for (part.part = 1; part.part <= 3; ++part.part) gap.Add(part);
  EXPECT_EQ(gap.images, (MissingFrames{Range{7, 7}, 1, false}));
  gap.Add(TextPacket(kRun, 2, Kind::kLog, "{}").header);
  EXPECT_EQ(gap.others, 1U);
}

TEST(DroppedMessages, BecomeOneGapWithAllTheirNumbers) {
  Dropped dropped(StripsPacket(kRun, 10, 100, 104));
  for (std::uint64_t sequence = 11; sequence <= 17; ++sequence) {
    const Packet next = StripsPacket(kRun, sequence, 50 + 5 * sequence, 54 + 5 * sequence);
    ASSERT_TRUE(dropped.Continues(next));
    dropped.Add(next);
  }
  const Packet packet = dropped.ToPacket();
  EXPECT_EQ(packet.header.kind, Kind::kGap);
  EXPECT_EQ(packet.header.run, kRun);
  EXPECT_EQ(packet.header.first(), 10U);
  EXPECT_EQ(packet.header.sequence, 17U);
  EXPECT_EQ(packet.header.crc, Crc(packet.payload.data(), packet.payload.size()));
  EXPECT_EQ(GapOf(packet).reason, Gap::kByStore);
  EXPECT_EQ(GapOf(packet).strips, (MissingFrames{Range{100, 139}, 40, false}));
  ArrivalOf(packet);  // its headers are good
}

TEST(DroppedMessages, ThatDoNotFollowAreAnotherGap) {
  const Dropped dropped(StripsPacket(kRun, 10, 100, 104));
  EXPECT_TRUE(dropped.Continues(StripsPacket(kRun, 11, 105, 109)));
  EXPECT_TRUE(dropped.Continues(TextPacket(kRun, 11, Kind::kLog, "{}")));
  EXPECT_TRUE(dropped.Continues(StripsPacket(kRun, 11, 104, 104)));  // the next part of a frame
  EXPECT_FALSE(dropped.Continues(StripsPacket(kRun, 12, 105, 109)));
  EXPECT_FALSE(dropped.Continues(StripsPacket(kRun, 10, 105, 109)));
  EXPECT_FALSE(dropped.Continues(StripsPacket(kOtherRun, 11, 105, 109)));
  EXPECT_FALSE(dropped.Continues(StripsPacket(kRun, 11, 1, 5)));  // ids began again
}

TEST(DroppedMessages, ThatAreGapsKeepWhatTheyTold) {
  const auto gap = [](std::uint64_t sequence, const Gap& what) {
    return TextPacket(kRun, sequence, Kind::kGap, ToJson(what).dump());
  };
  Gap device{.reason = Gap::kByDevice, .run = kRun};
  device.strips = {Range{105, 109}, 5, false};
  Dropped dropped(StripsPacket(kRun, 10, 100, 104));
  ASSERT_TRUE(dropped.Continues(gap(11, device)));
  dropped.Add(gap(11, device));
  EXPECT_EQ(GapOf(dropped.ToPacket()).strips, (MissingFrames{Range{100, 109}, 10, false}));
  Gap open{.reason = Gap::kByMemory, .run = kRun};
  open.strips = {Range{110, 110}, 30, true};
  dropped.Add(gap(12, open));
  EXPECT_TRUE(GapOf(dropped.ToPacket()).strips.to_end);
  EXPECT_FALSE(dropped.Continues(StripsPacket(kRun, 13, 140, 141)));  // it is behind the end
}

TEST(DroppedMessages, ThatOnlySayTheyAreGapsAreCounted) {
  const Dropped dropped(TextPacket(kRun, 1, Kind::kGap, "no json"));
  EXPECT_EQ(GapOf(dropped.ToPacket()).others, 1U);
}

}  // namespace
