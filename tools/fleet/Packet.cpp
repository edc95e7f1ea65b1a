#include "fleet/Packet.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <random>

namespace tool::fleet {
namespace {

constexpr const char* kVersion = "Tessaline-Version";
constexpr const char* kKind = "Tessaline-Kind";
constexpr const char* kRun = "Tessaline-Run";
constexpr const char* kFrames = "Tessaline-Frames";
constexpr const char* kSize = "Tessaline-Size";
constexpr const char* kRows = "Tessaline-Rows";
constexpr const char* kPart = "Tessaline-Part";
constexpr const char* kStamp = "Tessaline-Stamp";
constexpr const char* kCrc = "Tessaline-Crc32";

// Numbers that are left out when they are 0.
struct NumberHeader {
  const char* name;
  std::uint64_t PacketHeader::*value;
};
constexpr std::array kNumbers{
    NumberHeader{"Tessaline-Sequence", &PacketHeader::sequence},
    NumberHeader{"Tessaline-First-Sequence", &PacketHeader::first_sequence},
    NumberHeader{"Tessaline-Count", &PacketHeader::strips},
    NumberHeader{"Tessaline-Point-Bytes", &PacketHeader::point_bytes},
};

template <typename Value>
bool ReadNumber(std::string_view text, Value& value, int base = 10) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  return error == std::errc() && end == text.data() + text.size();
}

// "101-110"; false: something else.
bool ReadPair(std::string_view text, char separator, std::uint64_t& first, std::uint64_t& last) {
  const std::size_t middle = text.find(separator);
  return middle != text.npos && ReadNumber(text.substr(0, middle), first) &&
         ReadNumber(text.substr(middle + 1), last);
}

bool ReadRange(const std::string& text, std::optional<Range>& range) {
  if (text.empty()) return true;
  range.emplace();
  return ReadPair(text, '-', range->first, range->last) && range->first <= range->last;
}

std::string RangeText(const Range& range) { return fmt::format("{}-{}", range.first, range.last); }

std::optional<Kind> KindNamed(std::string_view name) {
  const auto found = std::find(kKindNames.begin(), kKindNames.end(), name);
  if (found == kKindNames.end()) return std::nullopt;
  return static_cast<Kind>(found - kKindNames.begin());
}

// Not higher than a file's numbers go.
constexpr auto kMostSequence = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

bool IsRun(std::string_view text) {
  std::uint64_t number = 0;
  return text.size() == 16 && ReadNumber(text, number, 16);
}

}  // namespace

void ForEachHeader(const PacketHeader& header, const PutHeader& put) {
  put(kVersion, std::to_string(kMessageVersion));
  put(kKind, std::string(NameOf(header.kind)));
  put(kRun, header.run);
  put(kStamp, std::to_string(header.stamp_ns));
  for (const NumberHeader& number : kNumbers) {
    if (header.*number.value != 0) put(number.name, std::to_string(header.*number.value));
  }
  if (header.parts > 1) put(kPart, fmt::format("{}/{}", header.part, header.parts));
  if (header.frames) put(kFrames, RangeText(*header.frames));
  if (header.width != 0) put(kSize, fmt::format("{}x{}", header.width, header.height));
  if (header.rows) put(kRows, RangeText(*header.rows));
  put(kCrc, fmt::format("{:08x}", header.crc));
}

std::optional<PacketHeader> ReadHeaders(const GetHeader& get) {
  unsigned version = 0;
  const auto kind = KindNamed(get(kKind));
  if (!ReadNumber(get(kVersion), version) || version != kMessageVersion || !kind) {
    return std::nullopt;
  }
  PacketHeader header;
  header.kind = *kind;
  header.run = get(kRun);
  bool good = IsRun(header.run) && ReadNumber(get(kStamp), header.stamp_ns) &&
              ReadNumber(get(kCrc), header.crc, 16);
  for (const NumberHeader& number : kNumbers) {
    const std::string text = get(number.name);
    if (!text.empty()) good = good && ReadNumber(text, header.*number.value);
  }
  if (const std::string part = get(kPart); !part.empty()) {
    good = good && ReadPair(part, '/', header.part, header.parts);
  }
  if (const std::string size = get(kSize); !size.empty()) {
    good = good && ReadPair(size, 'x', header.width, header.height);
  }
  good = good && ReadRange(get(kFrames), header.frames) && ReadRange(get(kRows), header.rows);
  good = good && header.sequence >= 1 && header.sequence < kMostSequence && header.part >= 1 &&
         header.part <= header.parts;
  // Nothing else stands for several.
  good = good && header.first() <= header.sequence &&
         (header.first() == header.sequence || header.kind == Kind::kGap);
  if (!good) return std::nullopt;
  return header;
}

bool IsNewer(const GetHeader& get) {
  unsigned version = 0;
  return ReadNumber(get(kVersion), version) && version > kMessageVersion;
}

std::uint32_t Crc(const void* bytes, std::size_t size) {
  return static_cast<std::uint32_t>(crc32_z(0, static_cast<const Bytef*>(bytes), size));
}

std::string NewRun() {
  std::random_device random;
  return fmt::format("{:08x}{:08x}", random(), random());
}

}  // namespace tool::fleet
