// Joining messages, also those that do not belong together, and their order over sensors.

#include "fleet/Assembler.h"

#include <gmock/gmock.h>

#include "Fixture.h"
#include "fleet/DeliveryOrder.h"

namespace {

using namespace fleet_test;   // NOLINT(google-build-using-namespace)
using namespace tool::fleet;  // NOLINT(google-build-using-namespace)

Packet Part(std::uint64_t sequence, std::uint64_t part, std::uint64_t parts,
            Kind kind = Kind::kStrips) {
  Packet packet = StripsPacket(kRun, sequence, 10 * part, 10 * part + 9);
  packet.header.kind = kind;
  packet.header.part = part;
  packet.header.parts = parts;
  if (kind == Kind::kImages) packet.header.frames = {7, 7};
  return packet;
}

class Assembling : public testing::Test {
 protected:
  std::vector<Delivery> Add(const Packet& packet) {
    return assembler_.Add({ArrivalOf(packet), packet.header.run});
  }
  std::vector<Delivery> AddHole(Range hole) {
    return assembler_.Add({std::nullopt, kRun, hole, false});
  }
  Assembler assembler_{"left"};
};

TEST_F(Assembling, PartsBecomeOneWithAllMessages) {
  EXPECT_TRUE(Add(Part(4, 1, 3)).empty());
  EXPECT_TRUE(Add(Part(5, 2, 3)).empty());
  const auto whole = Add(Part(6, 3, 3));
  ASSERT_EQ(whole.size(), 1U);
  EXPECT_EQ(whole[0].strips, 30U);
  EXPECT_EQ(whole[0].bytes.size(), 300U);
  EXPECT_EQ(whole[0].sequence, 6U);
  EXPECT_EQ(whole[0].messages.size(), 3U);
  EXPECT_EQ(whole[0].sensor, "left");
}

TEST_F(Assembling, WhatDoesNotBelongTogetherIsNotJoined) {
  const std::vector<std::pair<Packet, Packet>> pairs{{Part(1, 1, 2), Part(2, 2, 2, Kind::kImages)},
                                                     {Part(1, 1, 2), Part(2, 2, 3)},
                                                     {Part(1, 1, 3), Part(2, 3, 3)},
                                                     {Part(1, 1, 2), Part(2, 1, 1)},
                                                     {Part(1, 1, 2), [] {
                                                        Packet other = Part(1, 2, 2);
                                                        other.header.run = kOtherRun;
                                                        return other;
                                                      }()}};
  for (const auto& [first, second] : pairs) {
    Assembler assembler("left");
    EXPECT_TRUE(assembler.Add({ArrivalOf(first), first.header.run}).empty());
    const auto whole = assembler.Add({ArrivalOf(second), second.header.run});
    ASSERT_GE(whole.size(), 1U);
    ASSERT_TRUE(whole[0].gap);
    EXPECT_EQ(whole[0].gap->strips.ids, (Range{10, 19}));
    EXPECT_EQ(whole[0].gap->reason, Gap::kUnknown);
    EXPECT_EQ(whole[0].messages.size(), 1U);
    for (const Delivery& one : whole) EXPECT_LE(one.bytes.size(), 100U);
  }
}

TEST_F(Assembling, AHoleInAnImageLosesOneImage) {
  Add(Part(1, 1, 3, Kind::kImages));
  const auto hole = AddHole({2, 2});
  ASSERT_EQ(hole.size(), 2U);
  EXPECT_EQ(hole[0].gap->images, (MissingFrames{Range{7, 7}, 1, false}));
  EXPECT_EQ(hole[1].sequence, 2U);
  EXPECT_TRUE(hole[1].gap->strips.to_end);
  const auto rest = Add(Part(3, 3, 3, Kind::kImages));
  ASSERT_EQ(rest.size(), 1U);
  EXPECT_TRUE(rest[0].gap);
}

TEST_F(Assembling, TheEndOfARunSaysSo) {
  const auto end = Add(TextPacket(kRun, 9, Kind::kEnd, "{}"));
  ASSERT_EQ(end.size(), 1U);
  EXPECT_TRUE(end[0].run_is_over);
  EXPECT_FALSE(end[0].gap);
  RunOrder::Step over{std::nullopt, kOtherRun};
  over.run_is_over = true;
  const auto killed = assembler_.Add(std::move(over));
  ASSERT_EQ(killed.size(), 1U);
  EXPECT_TRUE(killed[0].run_is_over);
  EXPECT_EQ(killed[0].gap->reason, Gap::kByPublisher);
  EXPECT_EQ(killed[0].run, kOtherRun);
  EXPECT_EQ(killed[0].sequence, 0U);  // nobody knows
}

// One sensor's nonsense must not stop the archive of all.
TEST_F(Assembling, NonsenseIsCountedAndTheRestGoesOn) {
  std::string deep;
  for (int i = 0; i < 200'000; ++i) deep += R"({"a":)";
  const std::vector<Packet> nonsense{
      TextPacket(kRun, 1, Kind::kGap, "{}"),
      TextPacket(kRun, 2, Kind::kGap, "no json"),
      TextPacket(kRun, 3, Kind::kGap,
                 R"({"reason":"store","run":"a","strips":{"first":-1,"last":null,"count":1,)"
                 R"("to_end":false},"images":{"first":null,"last":null,"count":0,"to_end":false},)"
                 R"("others":0})"),
      TextPacket(kRun, 4, Kind::kGap,
                 R"({"reason":"store","run":"a","strips":{"first":9,"last":5,"count":1,)"
                 R"("to_end":false},"images":{"first":null,"last":null,"count":0,"to_end":false},)"
                 R"("others":0})"),
      TextPacket(kRun, 5, Kind::kClock, R"({"ticks":1e300,"uncertainty_ns":1})"),
      TextPacket(kRun, 6, Kind::kClock, R"({"ticks":-1,"uncertainty_ns":1})"),
      TextPacket(kRun, 7, Kind::kEvents, R"({"value":1})"),
      TextPacket(kRun, 8, Kind::kEvents, R"([])"),
      TextPacket(kRun, 9, Kind::kLog, R"({"level":1,"line":1,"file":7,"message":""})"),
      TextPacket(kRun, 10, Kind::kLosses, ""),
      TextPacket(kRun, 11, Kind::kDevice, "[[[["),
      TextPacket(kRun, 12, Kind::kDevice, "7")};
  for (const Packet& packet : nonsense) {
    const auto whole = Add(packet);
    ASSERT_EQ(whole.size(), 1U) << packet.header.sequence;
    EXPECT_TRUE(whole[0].damaged) << packet.header.sequence;
    EXPECT_EQ(whole[0].gap->others, 1U);
    EXPECT_EQ(whole[0].messages.size(), 1U);
  }
  deep += '1' + std::string(200'000, '}');
  EXPECT_EQ(Add(TextPacket(kRun, 13, Kind::kDevice, deep)).size(), 1U);
  EXPECT_FALSE(Add(TextPacket(kRun, 14, Kind::kDevice, "{}"))[0].damaged);
}

// --- Several sensors.

Delivery StripOf(const std::string& sensor, std::uint64_t encoder, std::uint64_t ticks = 0) {
  Delivery delivery;
  delivery.sensor = sensor;
  delivery.strips = 1;
  delivery.stamp_ns = kStart;
  Append(delivery.bytes, tessaline_strip_header{1, ticks, encoder, 0});
  return delivery;
}

std::string Sensors(DeliveryOrder& order, bool all) {
  std::string text;
  while (const auto one = order.Take(all)) {
    tessaline_strip_header strip{};
    if (!one->bytes.empty()) std::memcpy(&strip, one->bytes.data(), sizeof strip);
    text += one->sensor + std::to_string(strip.encoder_stamp) + ' ';
  }
  return text;
}

TEST(DeliveryOrders, ByArrivalAsTheyCome) {
  DeliveryOrder order({});
  for (const auto& [sensor, encoder] : {std::pair{"b", 5}, {"a", 3}, {"b", 1}}) {
    order.Add(StripOf(sensor, static_cast<std::uint64_t>(encoder)));
  }
  EXPECT_EQ(Sensors(order, false), "b5 a3 b1 ");
}

TEST(DeliveryOrders, ByEncoderMergeAndKeepEachSensorsOwn) {
  DeliveryOrder order({DeliveryOrder::By::kEncoder, 3'600'000'000'000});
  order.Join("a");
  order.Join("b");
  for (const std::uint64_t encoder : {10, 20, 30}) order.Add(StripOf("b", encoder));
  EXPECT_EQ(Sensors(order, false), "");  // a may still bring what is in front
  order.Add(StripOf("a", 15));
  EXPECT_EQ(Sensors(order, false), "b10 a15 ");
  Delivery text;  // stays behind its sensor's last frame
  text.sensor = "a";
  order.Add(std::move(text));
  order.Add(StripOf("a", 25));
  EXPECT_EQ(Sensors(order, false), "a0 b20 a25 ");
  EXPECT_EQ(Sensors(order, true), "b30 ");
}

TEST(DeliveryOrders, ByTimeUseEachSensorsClock) {
  DeliveryOrder order({DeliveryOrder::By::kTime, 3'600'000'000'000});
  // b's counter is a second ahead of a's.
  for (const auto& [sensor, ahead] : {std::pair{"a", 0ULL}, {"b", 50'000'000ULL}}) {
    order.Join(sensor);
    for (std::uint64_t second = 0; second < 5; ++second) {
      Delivery clock;
      clock.sensor = sensor;
      clock.stamp_ns = kStart + static_cast<std::int64_t>(second) * 1'000'000'000;
      clock.record = {ring::Kind::kClock, clock.stamp_ns, second * 50'000'000 + ahead, 1000, {}};
      order.Add(std::move(clock));
    }
  }
  order.Add(StripOf("a", 1, 50'000'000));
  order.Add(StripOf("a", 3, 52'000'000));
  order.Add(StripOf("b", 2, 101'000'000));
  order.Add(StripOf("b", 4, 103'000'000));
  EXPECT_THAT(Sensors(order, true), testing::EndsWith("a1 b2 a3 b4 "));
}

TEST(DeliveryOrders, ShortBuffersHaveNoStamps) {
  DeliveryOrder order({DeliveryOrder::By::kEncoder, 1});
  for (std::size_t size = 0; size < 40; ++size) {
    Delivery strips;
    strips.sensor = "a";
    strips.strips = 1;
    strips.bytes.resize(size);
    order.Add(std::move(strips));
    Delivery image;
    image.sensor = "a";
    image.images = 1;
    image.bytes.resize(size);
    order.Add(std::move(image));
  }
  int count = 0;
  while (order.Take(true)) ++count;
  EXPECT_EQ(count, 80);
}

}  // namespace
