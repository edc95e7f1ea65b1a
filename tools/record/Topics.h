#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace tool {

// What a recording holds, in the order of the table below.
enum class Topic : std::size_t {
  kStrips,
  kImages,
  kRegisters,
  kEvents,
  kLosses,
  kClock,
  kLog,
  kDevice
};

struct TopicEntry {
  Topic topic;
  std::string_view name;
  std::string_view type;
  // In the notation of ROS 2 messages, so that any reader of bags can decode ours.
  std::string_view definition;
};

inline constexpr std::array kTopics{
    TopicEntry{Topic::kStrips, "/tessaline/strips", "tessaline_msgs/msg/Strips",
               "# One strip buffer, as the driver delivered it.\n"
               "builtin_interfaces/Time stamp  # when the handler got it, host clock\n"
               "uint32 strips                  # in data, one behind the other\n"
               "uint8 point_bytes              # of a point: 8, 4 or 2\n"
               "uint8[] data                   # the bytes in use, headers included\n"},
    TopicEntry{Topic::kImages, "/tessaline/images", "tessaline_msgs/msg/Image",
               "# One camera image, as the driver delivered it.\n"
               "builtin_interfaces/Time stamp  # when the handler got it, host clock\n"
               "uint32 width                   # of the region of interest, pixels\n"
               "uint32 height\n"
               "uint8[] data                   # width x height grey values, then the header\n"},
    TopicEntry{Topic::kRegisters, "/tessaline/registers", "tessaline_msgs/msg/Register",
               "# The value of an FPGA register: at the start, and whenever it changed.\n"
               "builtin_interfaces/Time stamp\n"
               "uint64 address                 # physical, bytes\n"
               "uint32 value\n"},
    TopicEntry{Topic::kEvents, "/tessaline/events", "tessaline_msgs/msg/Event",
               "# Something that the device reported.\n"
               "builtin_interfaces/Time stamp\n"
               "string name                    # such as \"trigger\"\n"
               "uint64 value\n"},
    TopicEntry{Topic::kLosses, "/tessaline/losses", "tessaline_msgs/msg/Losses",
               "# What is missing here, counted since the start. One when any of them grew.\n"
               "builtin_interfaces/Time stamp\n"
               "uint64 frames_by_device        # gaps in the frame ids\n"
               "uint64 frames_by_recorder      # dropped because the disk was too slow\n"
               "uint64 messages_by_recorder    # others dropped for that reason\n"},
    TopicEntry{Topic::kClock, "/tessaline/clock", "tessaline_msgs/msg/Clock",
               "# The host clock and the counter of the FPGA at the same moment.\n"
               "builtin_interfaces/Time stamp\n"
               "uint64 ticks                   # of 20 ns\n"
               "uint32 uncertainty_ns          # how long reading them took\n"},
    TopicEntry{Topic::kLog, "/rosout", "rcl_interfaces/msg/Log",
               "builtin_interfaces/Time stamp\n"
               "uint8 level                    # 10 debug, 20 info, 30 warn, 40 error\n"
               "string name                    # of the program\n"
               "string msg\n"
               "string file\n"
               "string function\n"
               "uint32 line\n"},
    TopicEntry{Topic::kDevice, "/tessaline/device", "tessaline_msgs/msg/Device",
               "builtin_interfaces/Time stamp\n"
               "string json                    # product, versions, settings, calibration\n"},
};

constexpr const TopicEntry& EntryOf(Topic topic) {
  return kTopics[static_cast<std::size_t>(topic)];
}

static_assert([] {
  for (std::size_t i = 0; i < kTopics.size(); ++i) {
    if (kTopics[i].topic != static_cast<Topic>(i)) return false;
  }
  return true;
}());

}  // namespace tool
