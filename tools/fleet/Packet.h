#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool::fleet {

// What a message is about; the word of its subject.
enum class Kind : std::size_t {
  kStrips,
  kImages,
  kEvents,
  kClock,
  kLosses,
  kLog,
  kDevice,
  kStatistics,
  kGap,
  kEnd
};
inline constexpr std::array<std::string_view, 10> kKindNames{
    "strips", "images", "events", "clock", "losses", "log", "device", "statistics", "gap", "end"};
constexpr std::string_view NameOf(Kind kind) { return kKindNames[static_cast<std::size_t>(kind)]; }

// A reader refuses messages of a higher version.
inline constexpr unsigned kMessageVersion = 1;

// First and last, both included.
struct Range {
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  bool operator==(const Range&) const = default;
};

// What the headers of a message say; docs/fleets.md lists them. Zero stands for one that is left
// out.
struct PacketHeader {
  Kind kind = Kind::kDevice;
  std::string run;                   // of the publisher
  std::uint64_t sequence = 0;        // in the run, from 1
  std::uint64_t first_sequence = 0;  // of a gap that stands for several packets
  std::uint64_t part = 1, parts = 1;
  std::int64_t stamp_ns = 0;  // host clock, since 1970
  std::uint64_t strips = 0;
  std::uint64_t point_bytes = 0;
  std::optional<Range> frames{};  // ids
  std::uint64_t width = 0, height = 0;
  std::optional<Range> rows{};
  std::uint32_t crc = 0;

  std::uint64_t first() const { return first_sequence == 0 ? sequence : first_sequence; }
  bool operator==(const PacketHeader&) const = default;
};

// One message.
struct Packet {
  PacketHeader header;
  std::vector<std::byte> payload;
};

// Names and texts of headers, for the network and for files.
using PutHeader = std::function<void(const char* name, const std::string& value)>;
void ForEachHeader(const PacketHeader& header, const PutHeader& put);
// The other way round; `get` gives an empty text where there is none. None: this is no message of
// ours, or one of a newer version.
using GetHeader = std::function<std::string(const char* name)>;
std::optional<PacketHeader> ReadHeaders(const GetHeader& get);
// Whether this is a message of ours that only a newer program can read.
bool IsNewer(const GetHeader& get);

// zlib's CRC-32.
std::uint32_t Crc(const void* bytes, std::size_t size);

// "6f1c0a...": 16 hexadecimal digits that nobody else has.
std::string NewRun();

inline constexpr const char* kSensorHeader = "Tessaline-Sensor";
inline constexpr const char* kAcknowledgedHeader = "Tessaline-Acknowledged";

}  // namespace tool::fleet
