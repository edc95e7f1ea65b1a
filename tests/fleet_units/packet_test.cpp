// What the headers of messages say, from friends and from others.

#include <gmock/gmock.h>

#include <map>

#include "Fixture.h"

namespace {

using namespace fleet_test;   // NOLINT(google-build-using-namespace)
using namespace tool::fleet;  // NOLINT(google-build-using-namespace)

using Headers = std::map<std::string, std::string, std::less<>>;

Headers HeadersOf(const PacketHeader& header) {
  Headers headers;
  ForEachHeader(header, [&](const char* name, const std::string& value) {
    EXPECT_TRUE(headers.emplace(name, value).second) << name;
  });
  return headers;
}

std::optional<PacketHeader> Read(const Headers& headers) {
  return ReadHeaders([&](const char* name) {
    const auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
  });
}

PacketHeader Full() {
  PacketHeader header;
  header.kind = Kind::kImages;
  header.run = kRun;
  header.sequence = 17;
  header.part = 2;
  header.parts = 3;
  header.stamp_ns = kStart;
  header.strips = 4;
  header.point_bytes = 8;
  header.frames = {101, 110};
  header.width = 1456;
  header.height = 1088;
  header.rows = {500, 999};
  header.crc = 0x0a1b2c3d;
  return header;
}

TEST(Headers, ComeBackAsTheyWere) {
  EXPECT_EQ(Read(HeadersOf(Full())), Full());
  PacketHeader least;
  least.run = kRun;
  least.sequence = 1;
  EXPECT_EQ(Read(HeadersOf(least)), least);
  EXPECT_EQ(HeadersOf(least).size(), 6U);  // version, kind, run, stamp, sequence, CRC
  PacketHeader gap;
  gap.kind = Kind::kGap;
  gap.run = kRun;
  gap.first_sequence = 10;
  gap.sequence = 17;
  gap.stamp_ns = -5;
  EXPECT_EQ(Read(HeadersOf(gap)), gap);
}

TEST(Headers, NameEveryKind) {
  for (std::size_t kind = 0; kind < kKindNames.size(); ++kind) {
    PacketHeader header = Full();
    header.kind = static_cast<Kind>(kind);
    EXPECT_EQ(Read(HeadersOf(header)), header);
    EXPECT_EQ(HeadersOf(header)["Tessaline-Kind"], kKindNames[kind]);
  }
}

struct HostileRow {
  const char* name;
  const char* value;
};
void PrintTo(const HostileRow& row, std::ostream* out) { *out << row.name << '=' << row.value; }

class Hostile : public testing::TestWithParam<HostileRow> {};

TEST_P(Hostile, IsRefused) {
  Headers headers = HeadersOf(Full());
  headers[GetParam().name] = GetParam().value;
  EXPECT_EQ(Read(headers), std::nullopt) << GetParam().name << ": " << GetParam().value;
}

INSTANTIATE_TEST_SUITE_P(
    Headers, Hostile,
    testing::Values(
        HostileRow{"Tessaline-Version", ""}, HostileRow{"Tessaline-Version", "0"},
        HostileRow{"Tessaline-Version", "2"}, HostileRow{"Tessaline-Version", "1.0"},
        HostileRow{"Tessaline-Version", "4294967297"}, HostileRow{"Tessaline-Version", "-1"},
        HostileRow{"Tessaline-Kind", ""}, HostileRow{"Tessaline-Kind", "Strips"},
        HostileRow{"Tessaline-Kind", "strip"}, HostileRow{"Tessaline-Run", ""},
        HostileRow{"Tessaline-Run", "6f1c"}, HostileRow{"Tessaline-Run", "6f1c0a9b8d7e5f4g"},
        HostileRow{"Tessaline-Run", "6f1c0a9b8d7e5f431"},
        HostileRow{"Tessaline-Run", "-f1c0a9b8d7e5f43"}, HostileRow{"Tessaline-Sequence", ""},
        HostileRow{"Tessaline-Sequence", "0"}, HostileRow{"Tessaline-Sequence", "-1"},
        HostileRow{"Tessaline-Sequence", "+1"}, HostileRow{"Tessaline-Sequence", " 1"},
        HostileRow{"Tessaline-Sequence", "1 "}, HostileRow{"Tessaline-Sequence", "1e3"},
        HostileRow{"Tessaline-Sequence", "0x10"},
        // The next one would be 0, or none that a file can keep.
        HostileRow{"Tessaline-Sequence", "18446744073709551615"},
        HostileRow{"Tessaline-Sequence", "9223372036854775807"},
        HostileRow{"Tessaline-Sequence", "18446744073709551616"},
        HostileRow{"Tessaline-First-Sequence", "18"}, HostileRow{"Tessaline-First-Sequence", "-3"},
        // Only a gap stands for several messages.
        HostileRow{"Tessaline-First-Sequence", "16"}, HostileRow{"Tessaline-Part", "0/0"},
        HostileRow{"Tessaline-Part", "0/3"}, HostileRow{"Tessaline-Part", "2/1"},
        HostileRow{"Tessaline-Part", "1"}, HostileRow{"Tessaline-Part", "1/"},
        HostileRow{"Tessaline-Part", "/1"}, HostileRow{"Tessaline-Part", "1/-1"},
        HostileRow{"Tessaline-Part", "1/2/3"}, HostileRow{"Tessaline-Stamp", ""},
        HostileRow{"Tessaline-Stamp", "9223372036854775808"},
        HostileRow{"Tessaline-Count", "99999999999999999999"}, HostileRow{"Tessaline-Count", "-1"},
        HostileRow{"Tessaline-Point-Bytes", "eight"}, HostileRow{"Tessaline-Frames", "101"},
        HostileRow{"Tessaline-Frames", "110-101"}, HostileRow{"Tessaline-Frames", "101--1"},
        HostileRow{"Tessaline-Size", "1456"}, HostileRow{"Tessaline-Size", "1456X1088"},
        HostileRow{"Tessaline-Size", "-1x-1"}, HostileRow{"Tessaline-Rows", "9-1"},
        HostileRow{"Tessaline-Rows", "0-18446744073709551616"}, HostileRow{"Tessaline-Crc32", ""},
        HostileRow{"Tessaline-Crc32", "-1"}, HostileRow{"Tessaline-Crc32", "1ffffffff"},
        HostileRow{"Tessaline-Crc32", "xyz"}));

TEST(Headers, GarbageIsNoMessage) { EXPECT_EQ(Read({}), std::nullopt); }

TEST(Arrivals, HaveTheirBytesAndWhatWasAcknowledged) {
  const Packet packet = StripsPacket(kRun, 17, 101, 110);
  const Arrival arrival = ArrivalOf(packet, 5);
  EXPECT_EQ(arrival.header, packet.header);
  EXPECT_EQ(arrival.acknowledged, 5U);
  EXPECT_TRUE(std::ranges::equal(arrival.payload(), packet.payload));
}

TEST(Arrivals, WithOtherBytesAreNone) {
  Packet packet = StripsPacket(kRun, 17, 101, 110);
  packet.payload[50] ^= std::byte{1};
  Message message = MessageOf(packet);
  EXPECT_FALSE(ArrivalIn(message, kSensor));
  EXPECT_NE(message, nullptr);  // to be acknowledged
}

TEST(Arrivals, WithoutBytesAreMessages) {
  const Packet packet = TextPacket(kRun, 1, Kind::kStrips, "");
  EXPECT_TRUE(ArrivalOf(packet).payload().empty());
}

TEST(Runs, HaveNamesOfTheirOwn) {
  const std::string one = NewRun(), other = NewRun();
  EXPECT_EQ(one.size(), 16U);
  EXPECT_EQ(one.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_NE(one, other);
}

TEST(Checksum, IsThatOfZlib) {
  EXPECT_EQ(Crc("123456789", 9), 0xCBF43926U);
  EXPECT_EQ(Crc(nullptr, 0), 0U);
}

}  // namespace
