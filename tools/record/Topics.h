#pragma once

#include <array>
#include <cstddef>
#include <string>
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
  kDevice,
  kPoints,
  kPicture,
  kGaps
};

struct TopicEntry {
  Topic topic;
  std::string_view name;
  std::string_view type;
  // In the notation of ROS 2 messages, so that any reader of bags can decode ours. Points and
  // picture are standard messages, made of ours for viewers.
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
               "string name                    # such as \"external_trigger\"\n"
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
    TopicEntry{Topic::kPoints, "/tessaline/points", "sensor_msgs/msg/PointCloud2",
               "std_msgs/Header header\n"
               "uint32 height\n"
               "uint32 width\n"
               "sensor_msgs/PointField[] fields\n"
               "bool is_bigendian\n"
               "uint32 point_step\n"
               "uint32 row_step\n"
               "uint8[] data\n"
               "bool is_dense\n"},
    TopicEntry{Topic::kPicture, "/tessaline/picture", "sensor_msgs/msg/Image",
               "std_msgs/Header header\n"
               "uint32 height\n"
               "uint32 width\n"
               "string encoding\n"
               "uint8 is_bigendian\n"
               "uint32 step\n"
               "uint8[] data\n"},
    TopicEntry{
        Topic::kGaps, "/tessaline/gaps", "tessaline_msgs/msg/Gap",
        "# Something that is missing here, and why. Ids are those of frames.\n"
        "builtin_interfaces/Time stamp\n"
        "string reason                  # where it was lost: \"device\", \"memory\", \"store\",\n"
        "                               # \"publisher\" or \"unknown\"\n"
        "string run                     # of the publisher that sent the rest\n"
        "bool end_known                 # else all from the first ids on to the run's end may\n"
        "                               # be missing, and the last ids and counts say nothing\n"
        "uint64 strips_first\n"
        "uint64 strips_last\n"
        "uint64 strips_count            # 0: none, whatever the ids are\n"
        "uint64 images_first\n"
        "uint64 images_last\n"
        "uint64 images_count\n"
        "uint64 others                  # messages without frames\n"},
};

// The types that others are made of; one that uses another stands before it.
struct NestedType {
  std::string_view name;
  std::string_view definition;
};

inline constexpr std::array kNestedTypes{
    NestedType{"std_msgs/Header",
               "builtin_interfaces/Time stamp\n"
               "string frame_id\n"},
    NestedType{"sensor_msgs/PointField",
               "uint8 INT8=1\nuint8 UINT8=2\nuint8 INT16=3\nuint8 UINT16=4\n"
               "uint8 INT32=5\nuint8 UINT32=6\nuint8 FLOAT32=7\nuint8 FLOAT64=8\n"
               "string name\n"
               "uint32 offset\n"
               "uint8 datatype\n"
               "uint32 count\n"},
    NestedType{"builtin_interfaces/Time",
               "int32 sec\n"
               "uint32 nanosec\n"},
};

// A topic's definition with those of all types that it is made of behind it, as a bag keeps it.
inline std::string WholeDefinition(const TopicEntry& entry) {
  std::string text(entry.definition);
  for (const NestedType& nested : kNestedTypes) {
    if (text.find(nested.name) == text.npos) continue;
    text.append(80, '=').append("\nMSG: ").append(nested.name).append("\n");
    text.append(nested.definition);
  }
  return text;
}

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
