#include "fleet/Packetizer.h"

#include <algorithm>

#include "fleet/RecordJson.h"
#include "record/RecordingFile.h"
#include "record/StripWalk.h"

namespace tool::fleet {
namespace {

// Of a text in JSON: six bytes for a control character, and a little for the rest of the message.
constexpr std::size_t kMostBytesACharacter = 8;

}  // namespace

Packetizer::Packetizer(std::string run, std::size_t most_payload)
    : run_(std::move(run)), most_payload_(most_payload) {}

Packet Packetizer::Numbered(PacketHeader header, const void* payload, std::size_t size) {
  header.run = run_;
  header.sequence = ++sequence_;
  header.crc = Crc(payload, size);
  const auto* const bytes = static_cast<const std::byte*>(payload);
  return {std::move(header), {bytes, bytes + size}};
}

Packet Packetizer::Make(Kind kind, std::int64_t stamp_ns, const Json& json) {
  PacketHeader header;
  header.kind = kind;
  header.stamp_ns = stamp_ns;
  const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
  return Numbered(std::move(header), text.data(), text.size());
}

Packet Packetizer::Make(const Gap& gap, std::int64_t stamp_ns) {
  return Make(Kind::kGap, stamp_ns, ToJson(gap));
}

std::vector<Packet> Packetizer::Make(const ring::Record& record, std::uint64_t dropped) {
  dropped_ = dropped;
  std::vector<Packet> packets;
  if (record.kind == ring::Kind::kStrips) {
    MakeStrips(record, packets);
  } else if (record.kind == ring::Kind::kImage) {
    MakeImage(record, packets);
  } else if (const auto kind = JsonKindOf(record.kind)) {
    packets.push_back(Make(*kind, record.stamp_ns, ToJson(record)));
    if (packets.back().payload.size() > most_payload_) {
      --sequence_;
      ring::Record shorter = record;
      shorter.payload = record.payload.first(most_payload_ / kMostBytesACharacter);
      packets.back() = Make(*kind, record.stamp_ns, ToJson(shorter));
    }
  }
  return packets;
}

void Packetizer::Follow(bool image, std::uint64_t id, std::int64_t stamp_ns,
                        std::vector<Packet>& packets) {
  std::optional<std::uint64_t>& last = image ? last_image_ : last_strip_;
  ++frames_;
  if (last && id > *last && id - *last > 1) {
    Gap gap{.reason = dropped_ > told_dropped_ ? Gap::kByMemory : Gap::kByDevice, .run = run_};
    const MissingFrames missing{Range{*last + 1, id - 1}, id - *last - 1, false};
    (image ? gap.images : gap.strips) = missing;
    missing_ += missing.count;
    packets.push_back(Make(gap, stamp_ns));
    // No more than are missing here: those behind them are told later.
    told_dropped_ += std::min(missing.count, dropped_ - told_dropped_);
  }
  last = id;
}

void Packetizer::AddParts(const PacketHeader& whole, std::vector<Part> parts,
                          std::vector<Packet>& packets) {
  std::uint64_t number = 0;
  for (Part& part : parts) {
    part.header.kind = whole.kind;
    part.header.stamp_ns = whole.stamp_ns;
    part.header.point_bytes = whole.point_bytes;
    part.header.width = whole.width;
    part.header.height = whole.height;
    part.header.part = ++number;
    part.header.parts = parts.size();
    packets.push_back(Numbered(std::move(part.header), part.bytes.data(), part.bytes.size()));
  }
}

// What is not what it says: it is sent all the same, as it is.
std::vector<Packetizer::Part> Packetizer::CutAnywhere(std::span<const std::byte> bytes) const {
  std::vector<Part> parts;
  do {
    parts.push_back({{}, bytes.first(std::min(most_payload_, bytes.size()))});
    bytes = bytes.subspan(parts.back().bytes.size());
  } while (!bytes.empty());
  return parts;
}

void Packetizer::MakeStrips(const ring::Record& record, std::vector<Packet>& packets) {
  StripsMessage strips{record.stamp_ns, static_cast<std::uint32_t>(record.first), point_bytes_,
                       record.payload};
  strips.point_bytes = point_bytes_ = PointBytesOf(strips);
  std::vector<Part> parts;
  std::size_t at = 0, longest = 0;
  const auto add = [&](const tessaline_strip_header& strip, std::span<const std::byte> bytes) {
    Follow(/*image=*/false, strip.frame_id, record.stamp_ns, packets);
    if (parts.empty() || parts.back().bytes.size() + bytes.size() > most_payload_) {
      parts.push_back({{}, record.payload.subspan(at, 0)});
      parts.back().header.frames = {strip.frame_id, strip.frame_id};
    }
    Part& part = parts.back();
    part.header.frames->first = std::min(part.header.frames->first, strip.frame_id);
    part.header.frames->last = std::max(part.header.frames->last, strip.frame_id);
    ++part.header.strips;
    part.bytes = {part.bytes.data(), part.bytes.size() + bytes.size()};
    at += bytes.size();
    longest = std::max(longest, bytes.size());
  };
  if (!WalkStrips(strips, add) || longest > most_payload_) {
    parts = CutAnywhere(record.payload);
    parts.front().header.strips = record.first;
  }
  PacketHeader whole;
  whole.kind = Kind::kStrips;
  whole.stamp_ns = record.stamp_ns;
  whole.point_bytes = point_bytes_;
  AddParts(whole, std::move(parts), packets);
}

void Packetizer::MakeImage(const ring::Record& record, std::vector<Packet>& packets) {
  const ImageMessage image{record.stamp_ns, static_cast<std::uint32_t>(record.first),
                           static_cast<std::uint32_t>(record.second), record.payload};
  PacketHeader whole;
  whole.kind = Kind::kImages;
  whole.stamp_ns = record.stamp_ns;
  whole.width = image.width;
  whole.height = image.height;
  tessaline_image_header about{};
  if (!ReadHeader(image, about)) {
    AddParts(whole, CutAnywhere(image.data), packets);
    return;
  }
  Follow(/*image=*/true, about.frame_id, record.stamp_ns, packets);
  std::vector<Part> parts;
  const std::size_t width = image.width;
  if (width + sizeof about > most_payload_) {
    parts = CutAnywhere(image.data);
  } else {
    const std::size_t rows_each = (most_payload_ - sizeof about) / width;
    for (std::size_t first = 0; first < image.height; first += rows_each) {
      const std::size_t last = std::min<std::size_t>(first + rows_each, image.height) - 1;
      // The last part also has what stands behind the pixels.
      const std::size_t end = last + 1 == image.height ? image.data.size() : (last + 1) * width;
      parts.push_back({{}, image.data.subspan(first * width, end - first * width)});
      parts.back().header.rows = {first, last};
    }
  }
  if (parts.size() == 1) parts.front().header.rows.reset();
  for (Part& part : parts) part.header.frames = {about.frame_id, about.frame_id};
  AddParts(whole, std::move(parts), packets);
}

std::vector<Packet> Packetizer::Finish(std::int64_t stamp_ns, std::uint64_t dropped) {
  std::vector<Packet> packets;
  if (dropped > told_dropped_) {
    // Nobody knows their ids; they are behind the last one.
    Gap gap{.reason = Gap::kByMemory, .run = run_};
    const std::uint64_t after = last_strip_.value_or(last_image_.value_or(0)) + 1;
    (last_strip_ || !last_image_ ? gap.strips : gap.images) = {Range{after, after},
                                                               dropped - told_dropped_, true};
    missing_ += dropped - told_dropped_;
    packets.push_back(Make(gap, stamp_ns));
  }
  packets.push_back(Make(Kind::kEnd, stamp_ns, {{"frames", frames_}, {"missing", missing_}}));
  return packets;
}

}  // namespace tool::fleet
