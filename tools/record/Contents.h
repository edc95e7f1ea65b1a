#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "record/BagReader.h"
#include "record/DeviceNotes.h"
#include "record/GapMatch.h"

namespace tool {

// From one moment to another; 0 if no clock can have shown both.
double SecondsBetween(std::int64_t from_ns, std::int64_t to_ns);

// Moments of the host clock, nanoseconds since 1970.
struct Span {
  std::optional<std::int64_t> from_ns;
  std::int64_t to_ns = 0;

  void Add(std::int64_t ns);
  double Seconds() const;
};

// The frames of one kind, by what the FPGA counted.
class FrameCount {
 public:
  static constexpr std::size_t kMostGaps = 10;

  void Add(std::uint64_t id, std::uint64_t ticks);
  // A gap message names ids that are missing; see GapMatch.
  void AddNamed(std::uint64_t first, std::optional<std::uint64_t> last) {
    match_.AddNamed(first, last);
  }

  std::uint64_t frames() const { return frames_; }
  std::uint64_t lowest() const { return lowest_; }
  std::uint64_t highest() const { return highest_; }
  std::uint64_t missing() const { return missing_; }
  std::uint64_t gaps() const { return gaps_; }
  // Of the missing ids, those that no gap message names, and the first of them.
  std::uint64_t unexplained() const { return missing_ - std::min(missing_, match_.named()); }
  std::vector<IdRange> FirstUnexplained() const { return match_.FirstUnexplained(); }
  const std::vector<IdRange>& first_gaps() const { return first_gaps_; }
  // How often an id was not above the one before: the count began anew.
  std::uint64_t restarts() const { return restarts_; }
  // How often the device's clock went back while the ids went on.
  std::uint64_t clock_steps() const { return clock_steps_; }
  // Frames that would have come a second by the device's clock, missing ones included; 0 if that
  // cannot be told.
  double Rate() const;

 private:
  std::uint64_t frames_ = 0, lowest_ = 0, highest_ = 0, missing_ = 0, gaps_ = 0;
  std::uint64_t last_id_ = 0, last_ticks_ = 0, restarts_ = 0, clock_steps_ = 0;
  double ids_passed_ = 0, ticks_passed_ = 0;
  std::vector<IdRange> first_gaps_;
  GapMatch match_;
};

// Whether the message can be decoded, its time is that of its row, and frames fit their bytes.
bool IsWhole(const StoredMessage& message);

// What is in a recording: message after message, in memory that does not grow with it.
class Contents {
 public:
  struct Messages {
    std::uint64_t count = 0;
    std::uint64_t bytes = 0;
    std::int64_t last_ns = 0;
    std::uint64_t clock_steps = 0;  // how often the host clock went back
  };
  static constexpr std::size_t kMostEventNames = 32;
  static constexpr std::size_t kMostGaps = 10;

  // Counts a message. Throws Failure, and counts nothing, if it is not whole.
  void Add(const StoredMessage& message);

  const Messages& Of(Topic topic) const { return topics_[static_cast<std::size_t>(topic)]; }
  const Span& span() const { return span_; }
  const FrameCount& strips() const { return strips_; }
  const FrameCount& images() const { return images_; }
  // Sizes of points, bytes: 8, 4, 2.
  bool HasPointsOf(unsigned bytes) const { return (point_sizes_ & bytes) != 0; }
  // The first image's; 0 without one.
  unsigned image_width() const { return image_width_; }
  unsigned image_height() const { return image_height_; }
  const LossesMessage& losses() const { return losses_; }
  std::uint64_t log_errors() const { return log_errors_; }
  // How many of each name; those beyond kMostEventNames are under "others".
  const std::map<std::string, std::uint64_t>& events() const { return events_; }
  const DeviceNotes& device() const { return device_; }
  // The first gap messages.
  const std::vector<GapMessage>& first_gaps() const { return first_gaps_; }

 private:
  void Take(const StripsMessage& message);
  void Take(const ImageMessage& message);
  void Take(const EventMessage& message);
  void Take(const LogMessage& message);
  void Take(const GapMessage& message);
  void Take(const LossesMessage& message) { losses_ = message; }
  void Take(const DeviceMessage& message) { device_.Add(message.json); }
  // Of the others nothing but the number is of interest.
  template <typename Message>
  void Take(const Message&) {}

  std::array<Messages, kTopics.size()> topics_{};
  Span span_;
  FrameCount strips_, images_;
  unsigned point_sizes_ = 0;
  unsigned image_width_ = 0, image_height_ = 0;
  LossesMessage losses_;
  std::uint64_t log_errors_ = 0;
  std::map<std::string, std::uint64_t> events_;
  DeviceNotes device_;
  std::vector<GapMessage> first_gaps_;
};

}  // namespace tool
