#pragma once

#include <map>
#include <string>
#include <vector>

#include "ToolRun.h"
#include "record/BagQuery.h"
#include "record/Messages.h"

namespace tessaline_test {

// What a recording holds.
struct Recorded {
  explicit Recorded(const std::string& path) {
    using tool::Topic;
    const tool::BagReader reader(path);
    closed = reader.closed();
    tool::BagQuery all(reader, {Topic::kStrips, Topic::kImages, Topic::kRegisters, Topic::kEvents,
                                Topic::kLosses, Topic::kLog, Topic::kDevice});
    while (const auto message = all.Next()) Add(*message);
  }

  bool closed = false;
  std::uint64_t strips = 0;
  std::uint64_t images = 0;
  std::string frames;  // all their bytes, with the size of each
  std::string first;   // the first message: its topic
  std::map<std::uint64_t, std::vector<std::uint32_t>> registers;  // all values of an address
  std::uint64_t registers_before_frames = 0;
  std::int64_t ns_before_first_frame = -1;  // the first register
  std::int64_t first_frame_ns = 0;
  std::int64_t last_frame_ns = 0;
  std::vector<std::string> events;
  std::vector<std::string> log;
  std::vector<std::string> device;
  tool::LossesMessage losses;

 private:
  void Add(const tool::StoredMessage& message) {
    using tool::Topic;
    if (first.empty()) first = tool::kTopics[static_cast<std::size_t>(message.topic)].name;
    switch (message.topic) {
      case Topic::kStrips: {
        const auto now = message.As<tool::StripsMessage>();
        AddFrame(message.stamp_ns, now.strips, now.point_bytes, now.data);
        strips += now.strips;
        break;
      }
      case Topic::kImages: {
        const auto now = message.As<tool::ImageMessage>();
        AddFrame(message.stamp_ns, now.width, now.height, now.data);
        ++images;
        break;
      }
      case Topic::kRegisters: {
        const auto now = message.As<tool::RegisterMessage>();
        registers[now.address].push_back(now.value);
        if (frames.empty()) ++registers_before_frames;
        if (first_register_ns_ == 0) first_register_ns_ = message.stamp_ns;
        break;
      }
      case Topic::kEvents: {
        const auto now = message.As<tool::EventMessage>();
        events.push_back(now.name + " " + std::to_string(now.value));
        break;
      }
      case Topic::kLosses:
        losses = message.As<tool::LossesMessage>();
        break;
      case Topic::kLog:
        log.push_back(message.As<tool::LogMessage>().msg);
        break;
      default:
        device.push_back(message.As<tool::DeviceMessage>().json);
    }
  }
  void AddFrame(std::int64_t stamp_ns, std::uint64_t a, std::uint64_t b,
                std::span<const std::byte> data) {
    if (first_frame_ns == 0) {
      first_frame_ns = stamp_ns;
      ns_before_first_frame = stamp_ns - first_register_ns_;
    }
    last_frame_ns = stamp_ns;
    frames += std::to_string(a) + " " + std::to_string(b) + " " + std::to_string(data.size()) + ":";
    frames.append(reinterpret_cast<const char*>(data.data()), data.size());
  }
  std::int64_t first_register_ns_ = 0;
};

// The tests' application, on the virtual board of a K3610.
inline std::string Application(const std::string& what) {
  return std::string(" -- ") + TESSALINE_RECORDED + " K3610 " + what;
}

inline ToolRun OnBoard(const std::string& arguments) {
  return ToolRun(arguments)
      .With("TESSALINE_BOARD", "K3610")
      .With("LD_PRELOAD", TESSALINE_BOARD_LIBRARY);
}

}  // namespace tessaline_test
