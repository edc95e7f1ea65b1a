#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Failure.h"
#include "fleet/Arrival.h"
#include "fleet/Names.h"
#include "fleet/Packet.h"
#include "tessaline/frames.h"

namespace fleet_test {

inline constexpr const char* kRun = "6f1c0a9b8d7e5f43";
inline constexpr const char* kOtherRun = "00000000000000aa";
inline constexpr std::int64_t kStart = 1'700'000'000'000'000'000;

// The text of the Failure that the call ends with.
inline std::string TextOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const tool::Failure& failure) {
    return failure.what();
  }
  return "no failure";
}

inline std::vector<std::byte> Bytes(std::string_view text) {
  const auto* const begin = reinterpret_cast<const std::byte*>(text.data());
  return {begin, begin + text.size()};
}

template <typename Record>
void Append(std::vector<std::byte>& bytes, const Record& record) {
  const auto* const begin = reinterpret_cast<const std::byte*>(&record);
  bytes.insert(bytes.end(), begin, begin + sizeof record);
}

inline void AppendStrip(std::vector<std::byte>& bytes, std::uint64_t id, std::uint64_t points) {
  Append(bytes, tessaline_strip_header{id, id * 50'000, id * 10, points});
  for (std::uint64_t i = 0; i < points; ++i) {
    Append(bytes, tessaline_full_point{static_cast<std::uint16_t>(i), 77, 3,
                                       static_cast<std::uint32_t>(id * 1000 + i)});
  }
}

// A message with strips of these ids.
inline tool::fleet::Packet StripsPacket(const std::string& run, std::uint64_t sequence,
                                        std::uint64_t first_id, std::uint64_t last_id,
                                        std::size_t size = 100) {
  tool::fleet::Packet packet;
  packet.header.kind = tool::fleet::Kind::kStrips;
  packet.header.run = run;
  packet.header.sequence = sequence;
  packet.header.stamp_ns = kStart + static_cast<std::int64_t>(sequence);
  packet.header.strips = last_id - first_id + 1;
  packet.header.point_bytes = 8;
  packet.header.frames = {first_id, last_id};
  packet.payload.assign(size, static_cast<std::byte>(sequence));
  packet.header.crc = tool::fleet::Crc(packet.payload.data(), packet.payload.size());
  return packet;
}

inline tool::fleet::Packet TextPacket(const std::string& run, std::uint64_t sequence,
                                      tool::fleet::Kind kind, std::string_view text) {
  tool::fleet::Packet packet;
  packet.header.kind = kind;
  packet.header.run = run;
  packet.header.sequence = sequence;
  packet.header.stamp_ns = kStart;
  packet.payload = Bytes(text);
  packet.header.crc = tool::fleet::Crc(packet.payload.data(), packet.payload.size());
  return packet;
}

// The message as the server would deliver it.
inline constexpr const char* kSensor = "line3.left";

inline tool::fleet::Message MessageOf(const tool::fleet::Packet& packet,
                                      std::uint64_t acknowledged = 0) {
  static const natsStatus kOpened = nats_Open(-1);  // messages are given back to its collector
  EXPECT_EQ(kOpened, NATS_OK);
  natsMsg* made = nullptr;
  const std::string subject =
      tool::fleet::DataSubject(tool::fleet::NameOf(packet.header.kind), kSensor);
  EXPECT_EQ(natsMsg_Create(&made, subject.c_str(), nullptr,
                           reinterpret_cast<const char*>(packet.payload.data()),
                           static_cast<int>(packet.payload.size())),
            NATS_OK);
  tool::fleet::Message message(made);
  tool::fleet::ForEachHeader(packet.header, [&](const char* name, const std::string& value) {
    EXPECT_EQ(natsMsgHeader_Set(made, name, value.c_str()), NATS_OK);
  });
  natsMsgHeader_Set(made, tool::fleet::kAcknowledgedHeader, std::to_string(acknowledged).c_str());
  return message;
}

inline tool::fleet::Arrival ArrivalOf(const tool::fleet::Packet& packet,
                                      std::uint64_t acknowledged = 0) {
  tool::fleet::Message message = MessageOf(packet, acknowledged);
  auto arrival = tool::fleet::ArrivalIn(message, kSensor);
  EXPECT_TRUE(arrival);
  return std::move(*arrival);
}

// A folder with a file to write.
class FolderTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string folder = (std::filesystem::temp_directory_path() / "fleet-XXXXXX").string();
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    folder_ = folder;
    path_ = folder_ / "left.store";
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::filesystem::path folder_, path_;
};

}  // namespace fleet_test
