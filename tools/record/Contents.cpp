#include "record/Contents.h"

#include <fmt/format.h>

#include <algorithm>

#include "Failure.h"
#include "record/StripWalk.h"

namespace tool {
namespace {

constexpr double kTicksPerSecond = 1e9 / int{TESSALINE_NANOSECONDS_PER_TICK};
constexpr std::uint8_t kErrorLevel = 40;
constexpr std::size_t kLongestName = 64;

[[noreturn]] void ThrowDamaged(Topic topic, const std::string& what) {
  throw Failure(ExitCode::kFile,
                fmt::format("a message of {} is damaged: {}", EntryOf(topic).name, what));
}

}  // namespace

void Span::Add(std::int64_t ns) {
  to_ns = from_ns ? std::max(to_ns, ns) : ns;
  from_ns = from_ns ? std::min(*from_ns, ns) : ns;
}

double Span::Seconds() const { return from_ns ? SecondsBetween(*from_ns, to_ns) : 0; }

double SecondsBetween(std::int64_t from_ns, std::int64_t to_ns) {
  std::int64_t between = 0;
  return __builtin_sub_overflow(to_ns, from_ns, &between) ? 0 : static_cast<double>(between) / 1e9;
}

void FrameCount::Add(std::uint64_t id, std::uint64_t ticks) {
  if (frames_ == 0) {
    lowest_ = highest_ = id;
  } else if (id <= last_id_) {
    ++restarts_;
    match_.AddRestart(last_id_);
  } else {
    const std::uint64_t between = id - last_id_ - 1;
    if (between > 0) {
      ++gaps_;
      missing_ += std::min(between, UINT64_MAX - missing_);
      match_.AddHole({last_id_ + 1, id - 1});
      if (first_gaps_.size() < kMostGaps) first_gaps_.push_back({last_id_ + 1, id - 1});
    }
    if (ticks < last_ticks_) {
      ++clock_steps_;
    } else {
      ids_passed_ += static_cast<double>(id - last_id_);
      ticks_passed_ += static_cast<double>(ticks - last_ticks_);
    }
  }
  ++frames_;
  lowest_ = std::min(lowest_, id);
  highest_ = std::max(highest_, id);
  last_id_ = id;
  last_ticks_ = ticks;
}

double FrameCount::Rate() const {
  return ticks_passed_ > 0 ? ids_passed_ / ticks_passed_ * kTicksPerSecond : 0;
}

bool IsWhole(const StoredMessage& message) {
  try {
    Contents().Add(message);
    return true;
  } catch (const Failure&) {
    return false;
  }
}

void Contents::Add(const StoredMessage& message) {
  VisitMessage(message, [&](const auto& decoded) {
    if (decoded.stamp_ns != message.stamp_ns) {
      ThrowDamaged(message.topic, "its time is not that of its row");
    }
    Take(decoded);
  });
  Messages& messages = topics_[static_cast<std::size_t>(message.topic)];
  messages.clock_steps += messages.count > 0 && message.stamp_ns < messages.last_ns;
  ++messages.count;
  messages.bytes += message.cdr.size();
  messages.last_ns = message.stamp_ns;
  span_.Add(message.stamp_ns);
}

void Contents::Take(const StripsMessage& message) {
  // Counted when all of it is known to fit.
  if (!WalkStrips(message, [](const auto&, const auto&) {})) {
    ThrowDamaged(Topic::kStrips, "the strips do not fit their bytes");
  }
  point_sizes_ |= message.point_bytes;
  WalkStrips(message, [this](const tessaline_strip_header& header, const auto&) {
    strips_.Add(header.frame_id, header.time_stamp);
  });
}

void Contents::Take(const ImageMessage& message) {
  tessaline_image_header header;
  if (!ReadHeader(message, header)) {
    ThrowDamaged(Topic::kImages, "the pixels do not fit their bytes");
  }
  if (images_.frames() == 0) {
    image_width_ = message.width;
    image_height_ = message.height;
  }
  images_.Add(header.frame_id, header.time_stamp);
}

void Contents::Take(const EventMessage& message) {
  const std::string name = message.name.substr(0, kLongestName);
  const bool room = events_.contains(name) || events_.size() < kMostEventNames;
  ++events_[room ? name : "others"];
}

void Contents::Take(const GapMessage& message) {
  const bool explained = message.reason != GapMessage::kUnknown;
  const auto add = [&](FrameCount& frames, std::uint64_t first, std::uint64_t last,
                       std::uint64_t count) {
    if (!explained) return;
    if (message.end_known && count > 0) frames.AddNamed(first, last);
    if (!message.end_known && first > 0) frames.AddNamed(first, std::nullopt);
  };
  add(strips_, message.strips_first, message.strips_last, message.strips_count);
  add(images_, message.images_first, message.images_last, message.images_count);
  if (first_gaps_.size() >= kMostGaps) return;
  GapMessage kept = message;
  kept.reason.resize(std::min(kept.reason.size(), kLongestName));
  kept.run.resize(std::min(kept.run.size(), kLongestName));
  first_gaps_.push_back(std::move(kept));
}

void Contents::Take(const LogMessage& message) { log_errors_ += message.level >= kErrorLevel; }

}  // namespace tool
