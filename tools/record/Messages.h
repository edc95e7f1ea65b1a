#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "record/Topics.h"

namespace tool {

// The messages of a recording, as kTopics describes them. `stamp_ns`: host clock, nanoseconds since
// 1970. What is decoded points into the bytes that it was decoded from.

struct StripsMessage {
  static constexpr Topic kTopic = Topic::kStrips;
  std::int64_t stamp_ns = 0;
  std::uint32_t strips = 0;
  std::uint8_t point_bytes = 0;
  std::span<const std::byte> data;
};

struct ImageMessage {
  static constexpr Topic kTopic = Topic::kImages;
  std::int64_t stamp_ns = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::span<const std::byte> data;
};

struct RegisterMessage {
  static constexpr Topic kTopic = Topic::kRegisters;
  std::int64_t stamp_ns = 0;
  std::uint64_t address = 0;
  std::uint32_t value = 0;
};

// Names of events.
inline constexpr const char* kTriggerEvent = "external_trigger";  // value: level of the input
inline constexpr const char* kDaArrivedEvent = "da_arrived";

struct EventMessage {
  static constexpr Topic kTopic = Topic::kEvents;
  std::int64_t stamp_ns = 0;
  std::string name;
  std::uint64_t value = 0;
};

struct LossesMessage {
  static constexpr Topic kTopic = Topic::kLosses;
  std::int64_t stamp_ns = 0;
  std::uint64_t frames_by_device = 0;
  std::uint64_t frames_by_recorder = 0;
  std::uint64_t messages_by_recorder = 0;
  bool operator==(const LossesMessage&) const = default;
};

struct ClockMessage {
  static constexpr Topic kTopic = Topic::kClock;
  std::int64_t stamp_ns = 0;
  std::uint64_t ticks = 0;
  std::uint32_t uncertainty_ns = 0;
};

struct LogMessage {
  static constexpr Topic kTopic = Topic::kLog;
  std::int64_t stamp_ns = 0;
  std::uint8_t level = 0;
  std::string name, msg, file, function;
  std::uint32_t line = 0;
};

struct DeviceMessage {
  static constexpr Topic kTopic = Topic::kDevice;
  std::int64_t stamp_ns = 0;
  std::string json;
};

// sensor_msgs/PointCloud2 in one row, little-endian.
struct PointsMessage {
  static constexpr Topic kTopic = Topic::kPoints;
  struct Field {
    std::string name;
    std::uint32_t offset = 0;  // bytes from the begin of a point
    std::uint8_t datatype = 0;
    std::uint32_t count = 1;
  };
  std::int64_t stamp_ns = 0;
  std::string frame_id;
  std::uint32_t height = 1;
  std::uint32_t width = 0;  // points
  std::vector<Field> fields;
  bool is_bigendian = false;
  std::uint32_t point_step = 0;  // bytes
  std::uint32_t row_step = 0;    // bytes
  std::span<const std::byte> data;
  bool is_dense = true;
};

// sensor_msgs/Image.
struct PictureMessage {
  static constexpr Topic kTopic = Topic::kPicture;
  std::int64_t stamp_ns = 0;
  std::string frame_id;
  std::uint32_t height = 0;
  std::uint32_t width = 0;
  std::string encoding;
  std::uint8_t is_bigendian = 0;
  std::uint32_t step = 0;  // bytes
  std::span<const std::byte> data;
};

struct GapMessage {
  static constexpr Topic kTopic = Topic::kGaps;
  // The reason of a loss that nobody can explain.
  static constexpr const char* kUnknown = "unknown";
  std::int64_t stamp_ns = 0;
  std::string reason;
  std::string run;
  bool end_known = true;
  std::uint64_t strips_first = 0;
  std::uint64_t strips_last = 0;
  std::uint64_t strips_count = 0;
  std::uint64_t images_first = 0;
  std::uint64_t images_last = 0;
  std::uint64_t images_count = 0;
  std::uint64_t others = 0;
};

using Cdr = std::vector<std::byte>;

// Puts a message in CDR, little-endian, with its encapsulation in front, into `bytes`. Copies
// `data` once. Messages of about the same length, one after another, need no new memory.
template <typename Message>
void EncodeInto(const Message& message, Cdr& bytes);

template <typename Message>
Cdr Encode(const Message& message) {
  Cdr bytes;
  EncodeInto(message, bytes);
  return bytes;
}

// Returns the message in `cdr`. Throws Failure if it is no such message, or one with more than 256
// fields of a point; beyond these, allocates no more than `cdr` has bytes.
template <typename Message>
Message Decode(std::span<const std::byte> cdr);

}  // namespace tool
