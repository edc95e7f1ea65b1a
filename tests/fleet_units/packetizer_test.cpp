// Records are cut into messages, and joined again byte for byte.

#include "fleet/Packetizer.h"

#include <gmock/gmock.h>

#include <random>

#include "Fixture.h"
#include "fleet/Assembler.h"

namespace {

using namespace fleet_test;   // NOLINT(google-build-using-namespace)
using namespace tool::fleet;  // NOLINT(google-build-using-namespace)
using ring::Record;
using testing::ElementsAre;

constexpr std::size_t kMost = 1000;

Record StripsRecord(const std::vector<std::byte>& bytes, std::uint64_t strips) {
  return {ring::Kind::kStrips, kStart, strips, 8, bytes};
}

std::vector<std::byte> Strips(const std::vector<std::uint64_t>& ids, std::uint64_t points = 3) {
  std::vector<std::byte> bytes;
  for (const std::uint64_t id : ids) AppendStrip(bytes, id, points);
  return bytes;
}

Gap GapOf(const Packet& packet) {
  const auto* const text = reinterpret_cast<const char*>(packet.payload.data());
  return GapIn(tool::Json::parse(text, text + packet.payload.size()));
}

// Joins messages as a subscriber does.
std::vector<Delivery> Joined(const std::vector<Packet>& packets) {
  Assembler assembler("left");
  std::vector<Delivery> all;
  for (const Packet& packet : packets) {
    for (Delivery& one : assembler.Add({ArrivalOf(packet), packet.header.run})) {
      all.push_back(std::move(one));
    }
  }
  return all;
}

// Whatever the record: small messages, numbered without holes, that join to the record.
void ExpectWhole(const Record& record, const std::vector<Packet>& packets, std::uint64_t first) {
  std::uint64_t sequence = first;
  for (const Packet& packet : packets) {
    EXPECT_LE(packet.payload.size(), kMost);
    EXPECT_EQ(packet.header.sequence, sequence++);
  }
  std::vector<Delivery> joined = Joined(packets);
  std::erase_if(joined, [](const Delivery& one) { return one.gap.has_value(); });
  ASSERT_EQ(joined.size(), 1U);
  ASSERT_TRUE(joined[0].record);
  EXPECT_EQ(joined[0].record->kind, record.kind);
  EXPECT_EQ(joined[0].record->first, record.first);
  EXPECT_EQ(joined[0].sequence, sequence - 1);
  EXPECT_EQ(joined[0].messages.size(),
            static_cast<std::size_t>(std::ranges::count_if(
                packets, [](const Packet& packet) { return packet.header.kind != Kind::kGap; })));
  EXPECT_TRUE(std::ranges::equal(joined[0].bytes, record.payload));
}

TEST(Strips, AreCutBetweenStrips) {
  const auto bytes = Strips({1, 2, 3, 4, 5}, 30);  // 272 bytes each, so three a message
  Packetizer packetizer(kRun, kMost);
  const auto packets = packetizer.Make(StripsRecord(bytes, 5), 0);
  ASSERT_EQ(packets.size(), 2U);
  EXPECT_EQ(packets[0].payload.size(), 3 * 272U);
  EXPECT_EQ(packets[0].header.strips, 3U);
  EXPECT_EQ(packets[0].header.frames, (Range{1, 3}));
  EXPECT_EQ(packets[1].header.part, 2U);
  EXPECT_EQ(packets[1].header.parts, 2U);
  EXPECT_EQ(packets[1].header.frames, (Range{4, 5}));
  ExpectWhole(StripsRecord(bytes, 5), packets, 1);
  EXPECT_EQ(packetizer.frames(), 5U);
}

TEST(Strips, OfExactlyAMessageAreOne) {
  const auto bytes = Strips({1}, (kMost - 32) / 8);
  ASSERT_EQ(bytes.size(), kMost);
  Packetizer packetizer(kRun, kMost);
  EXPECT_EQ(packetizer.Make(StripsRecord(bytes, 1), 0).size(), 1U);
}

// A message that no server takes would stop all behind it for ever.
TEST(Strips, ThatAreLongerThanAMessageAreCutAnywhere) {
  const auto bytes = Strips({1, 2}, 200);
  Packetizer packetizer(kRun, kMost);
  ExpectWhole(StripsRecord(bytes, 2), packetizer.Make(StripsRecord(bytes, 2), 0), 1);
}

TEST(Strips, ThatAreNoneAreSentAsTheyAre) {
  for (const std::size_t size : {1U, 31U, 999U, 1000U, 1001U, 5000U}) {
    const std::vector<std::byte> bytes(size, std::byte{0xFF});
    Packetizer packetizer(kRun, kMost);
    const auto packets = packetizer.Make(StripsRecord(bytes, 7), 0);
    ExpectWhole(StripsRecord(bytes, 7), packets, 1);
  }
  // One strip too few, one too many.
  const auto bytes = Strips({1, 2, 3}, 50);
  for (const std::uint64_t strips : {2U, 4U}) {
    Packetizer packetizer(kRun, kMost);
    const auto packets = packetizer.Make(StripsRecord(bytes, strips), 0);
    ExpectWhole(StripsRecord(bytes, strips), packets, 1);
  }
  Packetizer packetizer(kRun, kMost);
  EXPECT_TRUE(packetizer.Make(StripsRecord({}, 0), 0).empty());
  EXPECT_EQ(packetizer.Make(StripsRecord({}, 5), 0).size(), 1U);
}

TEST(Strips, WithMissingIdsHaveAGapInFront) {
  Packetizer packetizer(kRun, kMost);
  const auto first = Strips({10, 11});
  EXPECT_EQ(packetizer.Make(StripsRecord(first, 2), 0).size(), 1U);  // joined in the middle
  const auto between = Strips({15, 16});
  auto packets = packetizer.Make(StripsRecord(between, 2), 0);
  ASSERT_EQ(packets.size(), 2U);
  EXPECT_EQ(GapOf(packets[0]).strips, (MissingFrames{Range{12, 14}, 3, false}));
  EXPECT_EQ(GapOf(packets[0]).reason, Gap::kByDevice);
  ExpectWhole(StripsRecord(between, 2), packets, 2);
  const auto inside = Strips({17, 20, 22});
  packets = packetizer.Make(StripsRecord(inside, 3), 0);
  ASSERT_EQ(packets.size(), 3U);
  EXPECT_EQ(GapOf(packets[0]).strips.ids, (Range{18, 19}));
  EXPECT_EQ(GapOf(packets[1]).strips.ids, (Range{21, 21}));
  ExpectWhole(StripsRecord(inside, 3), packets, 4);
  EXPECT_EQ(packetizer.missing(), 6U);
}

TEST(Strips, WhoseIdsStartAgainMissNothing) {
  Packetizer packetizer(kRun, kMost);
  const auto make = [&](const std::vector<std::uint64_t>& ids) {
    const auto bytes = Strips(ids);
    packetizer.Make(StripsRecord(bytes, ids.size()), 0);
    return packetizer.missing();
  };
  EXPECT_EQ(make({98, 99}), 0U);
  EXPECT_EQ(make({1, 2}), 0U);
  EXPECT_EQ(make({3, 1, 2}), 0U);
  EXPECT_EQ(make({0, 0, 0}), 0U);
  EXPECT_EQ(make({1}), 0U);
  // A damaged id, and nothing missing behind it.
  EXPECT_EQ(make({UINT64_MAX}), UINT64_MAX - 2);
  EXPECT_EQ(make({1, 2}), UINT64_MAX - 2);
}

TEST(Images, OfAnySizeAreCutBetweenRows) {
  for (const auto& [width, height] : {std::pair{100U, 7U},
                                      {7U, 300U},
                                      {1U, 3000U},
                                      {968U, 5U},
                                      {968U, 1U},
                                      {3U, 1U},
                                      {33U, 91U},
                                      {500U, 2U},
                                      {1U, 1U},
                                      {969U, 3U},
                                      {5000U, 2U}}) {
    std::vector<std::byte> bytes(std::size_t{width} * height);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::byte>(i * 7);
    Append(bytes, tessaline_image_header{4, 200'000, 40, 0});
    const Record record{ring::Kind::kImage, kStart, width, height, bytes};
    Packetizer packetizer(kRun, kMost);
    const auto packets = packetizer.Make(record, 0);
    ExpectWhole(record, packets, 1);
    std::uint64_t row = 0;
    for (const Packet& packet : packets) {
      EXPECT_EQ(packet.header.frames, (Range{4, 4}));
      EXPECT_EQ(packet.header.width, width);
      if (packets.size() == 1 || width > 968) {
        EXPECT_FALSE(packet.header.rows);
        continue;
      }
      ASSERT_TRUE(packet.header.rows);
      EXPECT_EQ(packet.header.rows->first, row);
      row = packet.header.rows->last + 1;
      const std::size_t tail = packet.header.part == packet.header.parts ? 32 : 0;
      EXPECT_EQ(packet.payload.size(), (row - packet.header.rows->first) * width + tail);
    }
    if (row != 0) {
      EXPECT_EQ(row, height);
    }
  }
}

// From a ring that an application has spoiled.
TEST(Images, OfAnotherSizeThanTheyHaveAreSentAsTheyAre) {
  for (const std::size_t size : {0U, 1U, 500U, 1500U, 20'000U}) {
    for (const auto& [width, height] : {std::pair<std::uint64_t, std::uint64_t>{0, 0},
                                        {100, 100},
                                        {1, UINT32_MAX},
                                        {UINT32_MAX, UINT32_MAX},
                                        {UINT32_MAX, 1},
                                        {10'000, 0},
                                        {0, 10'000}}) {
      const std::vector<std::byte> bytes(size, std::byte{5});
      const Record record{ring::Kind::kImage, kStart, width, height, bytes};
      Packetizer packetizer(kRun, kMost);
      ExpectWhole(record, packetizer.Make(record, 0), 1);
    }
  }
}

TEST(Images, AreCountedBesideStrips) {
  Packetizer packetizer(kRun, kMost);
  const auto image = [&](std::uint64_t id) {
    std::vector<std::byte> bytes(6);
    Append(bytes, tessaline_image_header{id, 0, 0, 0});
    return packetizer.Make({ring::Kind::kImage, kStart, 2, 3, bytes}, 0);
  };
  image(1);
  const auto strips = Strips({5, 6});
  EXPECT_EQ(packetizer.Make(StripsRecord(strips, 2), 0).size(), 1U);
  const auto packets = image(4);
  ASSERT_EQ(packets.size(), 2U);
  EXPECT_EQ(GapOf(packets[0]).images, (MissingFrames{Range{2, 3}, 2, false}));
  EXPECT_EQ(GapOf(packets[0]).strips, MissingFrames());
}

TEST(RingDrops, AreToldWhereTheIdsJump) {
  Packetizer packetizer(kRun, kMost);
  const auto first = Strips({1}), second = Strips({4}), third = Strips({6});
  packetizer.Make(StripsRecord(first, 1), 0);
  EXPECT_EQ(GapOf(packetizer.Make(StripsRecord(second, 1), 2)[0]).reason, Gap::kByMemory);
  EXPECT_EQ(GapOf(packetizer.Make(StripsRecord(third, 1), 2)[0]).reason, Gap::kByDevice);
  const auto end = packetizer.Finish(kStart, 2);
  ASSERT_EQ(end.size(), 1U);
  EXPECT_EQ(end[0].header.kind, Kind::kEnd);
}

TEST(RingDrops, AtTheEndHaveAGapWithoutAnEnd) {
  Packetizer packetizer(kRun, kMost);
  const auto first = Strips({1, 2});
  packetizer.Make(StripsRecord(first, 2), 0);
  const auto end = packetizer.Finish(kStart, 30);
  ASSERT_EQ(end.size(), 2U);
  EXPECT_EQ(GapOf(end[0]).strips, (MissingFrames{Range{3, 3}, 30, true}));
  EXPECT_EQ(end[1].header.kind, Kind::kEnd);
  EXPECT_EQ(packetizer.missing(), 30U);
}

// The ring's count runs ahead of the records in it.
TEST(RingDrops, BehindAJumpOfTheDeviceAreNotForgotten) {
  Packetizer packetizer(kRun, kMost);
  const auto first = Strips({1}), second = Strips({3});
  packetizer.Make(StripsRecord(first, 1), 0);
  packetizer.Make(StripsRecord(second, 1), 500);
  const auto end = packetizer.Finish(kStart, 500);
  ASSERT_EQ(end.size(), 2U);
  EXPECT_EQ(GapOf(end[0]).strips.count, 499U);
}

TEST(Texts, AreShortenedToAMessage) {
  Packetizer packetizer(kRun, kMost);
  std::string text = "file.cpp";
  text += '\0' + std::string(5000, '\x01');
  const auto bytes = Bytes(text);
  const auto packets = packetizer.Make({ring::Kind::kLog, kStart, 2, 77, bytes}, 0);
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_LE(packets[0].payload.size(), kMost);
  EXPECT_EQ(packets[0].header.sequence, 1U);
  const auto joined = Joined(packets);
  ASSERT_EQ(joined.size(), 1U);
  EXPECT_EQ(joined[0].text.substr(0, 12), (std::string("file.cpp\0\1\1\1", 12)));
  EXPECT_EQ(joined[0].record->second, 77U);
}

TEST(Records, OfOtherKindsComeBack) {
  Packetizer packetizer(kRun, kMost);
  const auto log = Bytes(std::string("a.cpp\0no \xFF laser", 16));
  const auto facts = Bytes(R"({"model":"K3610"})");
  const std::vector<Record> records{{ring::Kind::kTrigger, kStart, 1, 0, {}},
                                    {ring::Kind::kDaArrived, kStart, 0, 0, {}},
                                    {ring::Kind::kClock, kStart, UINT64_MAX, 500, {}},
                                    {ring::Kind::kLost, kStart, 12, 0, {}},
                                    {ring::Kind::kLog, kStart, 3, 99, log},
                                    {ring::Kind::kDevice, kStart, 0, 0, facts}};
  std::uint64_t sequence = 0;
  for (const Record& record : records) {
    const auto packets = packetizer.Make(record, 0);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].header.sequence, ++sequence);
    const auto joined = Joined(packets);
    ASSERT_EQ(joined.size(), 1U);
    EXPECT_EQ(joined[0].record->kind, record.kind);
    EXPECT_EQ(joined[0].record->first, record.first);
    EXPECT_EQ(joined[0].record->second, record.second);
    if (record.kind == ring::Kind::kDevice) {
      EXPECT_EQ(Bytes(joined[0].text), facts);
    }
  }
  EXPECT_TRUE(packetizer.Make({ring::Kind::kRegister, kStart, 1, 2, {}}, 0).empty());
}

TEST(Records, OfAnyRandomShapeComeBack) {
  std::mt19937_64 random(7);
  for (int round = 0; round < 300; ++round) {
    std::vector<std::byte> bytes;
    const std::uint64_t strips = 1 + random() % 40;
    std::uint64_t id = random() % 100;
    for (std::uint64_t i = 0; i < strips; ++i) {
      id += random() % 8 == 0 ? random() % 5 : 1;
      AppendStrip(bytes, id, random() % 100);
    }
    if (random() % 5 == 0) bytes.resize(bytes.size() - random() % bytes.size());
    Packetizer packetizer(kRun, kMost);
    const Record record = StripsRecord(bytes, strips);
    ExpectWhole(record, packetizer.Make(record, 0), 1);
  }
}

}  // namespace
