#include "record/SensorWriter.h"

#include <array>

#include "record/StripWalk.h"
#include "tessaline/log.h"

namespace tool {
namespace {

using ring::Kind;

// In the notation of the log's message, by the library's.
constexpr std::array<std::uint8_t, 6> kLevels{10, 10, 20, 30, 40, 50};

std::uint8_t LevelOf(std::uint64_t level) {
  return level < kLevels.size() ? kLevels[level] : kLevels.back();
}

std::string TextOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

std::uint8_t PointBytesOf(StripsMessage strips) {
  const std::uint8_t guess = strips.point_bytes;
  for (const std::uint8_t bytes : {guess, std::uint8_t{8}, std::uint8_t{4}, std::uint8_t{2}}) {
    strips.point_bytes = bytes;
    if (WalkStrips(strips, [](const auto&...) {})) return bytes;
  }
  return guess;
}

void SensorWriter::Counts::Add(const Counts& other) {
  strips += other.strips;
  images += other.images;
  messages += other.messages;
  bytes += other.bytes;
}

SensorWriter::SensorWriter(BagWriter& writer, const BagWriter::Numbers& numbers,
                           const std::optional<StandardMessages::Settings>& standard)
    : writer_(writer), numbers_(numbers) {
  if (standard) standard_.emplace(*standard);
}

template <typename Message>
void SensorWriter::Put(const Message& message) {
  EncodeInto(message, cdr_);
  PutCoded(Message::kTopic, message.stamp_ns, cdr_);
  if (!standard_) return;
  if constexpr (std::is_same_v<Message, StripsMessage>) {
    standard_->MakePoints(
        message, [&](const Cdr& cloud) { PutCoded(Topic::kPoints, message.stamp_ns, cloud); });
  } else if constexpr (std::is_same_v<Message, ImageMessage>) {
    const auto picture = StandardMessages::MakePicture(message);
    if (picture) PutCoded(Topic::kPicture, message.stamp_ns, *picture);
  }
}

void SensorWriter::PutCoded(Topic topic, std::int64_t stamp_ns, const Cdr& cdr) {
  writer_.Write(numbers_[static_cast<std::size_t>(topic)], stamp_ns, cdr);
  ++counts_.messages;
  counts_.bytes += cdr.size();
  last_stamp_ns_ = stamp_ns;
}

void SensorWriter::Write(const ring::Record& record) {
  const std::int64_t stamp = record.stamp_ns;
  const auto number = [](std::uint64_t value) { return static_cast<std::uint32_t>(value); };
  switch (record.kind) {
    case Kind::kStrips:
      point_bytes_ = PointBytesOf({stamp, number(record.first), point_bytes_, record.payload});
      counts_.strips += record.first;
      return Put(StripsMessage{stamp, number(record.first), point_bytes_, record.payload});
    case Kind::kImage:
      ++counts_.images;
      return Put(ImageMessage{stamp, number(record.first), number(record.second), record.payload});
    case Kind::kTrigger:
      return Put(EventMessage{stamp, kTriggerEvent, record.first});
    case Kind::kDaArrived:
      return Put(EventMessage{stamp, kDaArrivedEvent, 0});
    case Kind::kRegister:
      return Put(RegisterMessage{stamp, record.first, number(record.second)});
    case Kind::kClock:
      return Put(ClockMessage{stamp, record.first, number(record.second)});
    case Kind::kLost:
      return SetLost(record.first, losses_.frames_by_recorder, losses_.messages_by_recorder);
    case Kind::kLog: {
      const std::string text = TextOf(record.payload);
      const std::size_t end = text.find('\0');
      const std::string file = text.substr(0, end);
      const std::string message = end == text.npos ? "" : text.substr(end + 1);
      return Put(LogMessage{stamp, LevelOf(record.first), "libtessaline", message, file, "",
                            number(record.second)});
    }
    case Kind::kDevice:
      return Put(DeviceMessage{stamp, TextOf(record.payload)});
  }
}

void SensorWriter::Write(const GapMessage& gap) { Put(gap); }

void SensorWriter::WriteDevice(std::int64_t stamp_ns, const std::string& json) {
  Put(DeviceMessage{stamp_ns, json});
}

void SensorWriter::SetLost(std::uint64_t by_device, std::uint64_t frames_dropped,
                           std::uint64_t others_dropped) {
  losses_.frames_by_device = by_device;
  losses_.frames_by_recorder = frames_dropped;
  losses_.messages_by_recorder = others_dropped;
}

void SensorWriter::WriteLosses() {
  if (losses_ == told_) return;
  LossesMessage stamped = told_ = losses_;
  stamped.stamp_ns = last_stamp_ns_;
  Put(stamped);
}

}  // namespace tool
