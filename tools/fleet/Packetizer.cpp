#include "fleet/Packetizer.h"

#include <algorithm>
#include <span>

#include "fleet/RecordJson.h"
#include "record/RecordingFile.h"
#include "record/StripWalk.h"

namespace tool::fleet {

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
  }
  return packets;
}

void Packetizer::Follow(bool image, std::uint64_t id, std::int64_t stamp_ns,
                        std::vector<Packet>& packets) {
  std::optional<std::uint64_t>& last = image ? last_image_ : last_strip_;
  ++frames_;
  if (last && id > *last + 1) {
    Gap gap{.reason = dropped_ > told_dropped_ ? Gap::kByMemory : Gap::kByDevice, .run = run_};
    const MissingFrames missing{Range{*last + 1, id - 1}, id - *last - 1, false};
    (image ? gap.images : gap.strips) = missing;
    missing_ += missing.count;
    packets.push_back(Make(gap, stamp_ns));
    told_dropped_ = dropped_;
  }
  last = id;
}

void Packetizer::MakeStrips(const ring::Record& record, std::vector<Packet>& packets) {
  StripsMessage strips{record.stamp_ns, static_cast<std::uint32_t>(record.first), point_bytes_,
                       record.payload};
  strips.point_bytes = point_bytes_ = PointBytesOf(strips);
  struct Part {
    PacketHeader header;
    std::size_t from = 0, size = 0;
  };
  std::vector<Part> parts;
  std::size_t at = 0;
  const auto add = [&](const tessaline_strip_header& strip, std::span<const std::byte> bytes) {
    Follow(/*image=*/false, strip.frame_id, record.stamp_ns, packets);
    const bool full = !parts.empty() && parts.back().size + bytes.size() > most_payload_;
    if (parts.empty() || full) parts.push_back({{}, at, 0});
    Part& part = parts.back();
    if (!part.header.frames) part.header.frames = {strip.frame_id, strip.frame_id};
    part.header.frames->first = std::min(part.header.frames->first, strip.frame_id);
    part.header.frames->last = std::max(part.header.frames->last, strip.frame_id);
    ++part.header.strips;
    part.size += bytes.size();
    at += bytes.size();
  };
  // What does not fit its length is sent as it is.
  if (!WalkStrips(strips, add)) {
    parts.assign(1, {{}, 0, 0});
    for (at = 0; at < record.payload.size(); at += parts.back().size) {
      if (at != 0) parts.push_back({{}, at, 0});
      parts.back().size = std::min(most_payload_, record.payload.size() - at);
    }
    parts.front().header.strips = record.first;
  }
  std::uint64_t number = 0;
  for (Part& part : parts) {
    part.header.kind = Kind::kStrips;
    part.header.stamp_ns = record.stamp_ns;
    part.header.point_bytes = point_bytes_;
    part.header.part = ++number;
    part.header.parts = parts.size();
    packets.push_back(
        Numbered(std::move(part.header), record.payload.data() + part.from, part.size));
  }
}

void Packetizer::MakeImage(const ring::Record& record, std::vector<Packet>& packets) {
  const ImageMessage image{record.stamp_ns, static_cast<std::uint32_t>(record.first),
                           static_cast<std::uint32_t>(record.second), record.payload};
  PacketHeader whole;
  whole.kind = Kind::kImages;
  whole.stamp_ns = record.stamp_ns;
  whole.width = record.first;
  whole.height = record.second;
  tessaline_image_header about{};
  if (ReadHeader(image, about)) {
    Follow(/*image=*/true, about.frame_id, record.stamp_ns, packets);
    whole.frames = {about.frame_id, about.frame_id};
  }
  // The last part also has what stands behind the pixels.
  const std::size_t width = std::max<std::size_t>(whole.width, 1);
  const std::size_t rows = std::max<std::size_t>(whole.height, 1);
  const std::size_t tail = record.payload.size() - std::min(record.payload.size(), width * rows);
  const std::size_t rows_each = std::max<std::size_t>((most_payload_ - tail) / width, 1);
  whole.parts = (rows + rows_each - 1) / rows_each;
  for (whole.part = 1; whole.part <= whole.parts; ++whole.part) {
    const std::size_t first = (whole.part - 1) * rows_each;
    const std::size_t last = std::min(first + rows_each, rows) - 1;
    const std::size_t from = std::min(first * width, record.payload.size());
    const std::size_t to = whole.part == whole.parts ? record.payload.size() : (last + 1) * width;
    PacketHeader header = whole;
    if (whole.parts > 1) header.rows = {first, last};
    packets.push_back(Numbered(std::move(header), record.payload.data() + from, to - from));
  }
}

std::vector<Packet> Packetizer::Finish(std::int64_t stamp_ns, std::uint64_t dropped) {
  std::vector<Packet> packets;
  if (dropped > told_dropped_) {
    // Nobody knows their ids; they are behind the last one.
    Gap gap{.reason = Gap::kByMemory, .run = run_};
    const std::uint64_t after = last_strip_.value_or(last_image_.value_or(0)) + 1;
    (last_strip_ || !last_image_ ? gap.strips : gap.images) = {Range{after, after},
                                                               dropped - told_dropped_, true};
    packets.push_back(Make(gap, stamp_ns));
  }
  packets.push_back(Make(Kind::kEnd, stamp_ns, {{"frames", frames_}, {"missing", missing_}}));
  return packets;
}

}  // namespace tool::fleet
