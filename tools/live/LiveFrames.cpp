#include "live/LiveFrames.h"

#include <algorithm>
#include <chrono>

#include "Interrupt.h"

namespace tool::live {
namespace {

constexpr unsigned kMegabytesForStrips = 32;
constexpr unsigned kMegabytesForImages = 128;
constexpr std::chrono::milliseconds kPause{1};
constexpr std::chrono::milliseconds kFresh{20};
constexpr std::chrono::seconds kPatienceWithSilence{30};

LiveFrames* frames;

}  // namespace

LiveFrames::LiveFrames(const LiveSensor& sensor, tessaline_frame_handler on_image,
                       tessaline_frame_handler on_strips)
    : sensor_(sensor),
      on_image_(on_image),
      on_strips_(on_strips),
      frames_(sensor.TakeFrames("strips images",
                                on_image == nullptr ? kMegabytesForStrips : kMegabytesForImages)) {
  frames = this;
  Losses::UseSource(&LossesSoFar);
  for (const bool images : {false, true}) before_[images] = Ask(images);
  const SignalsBlocked inherited;
  std::thread([this] { Run(); }).detach();
}

bool LiveFrames::Use(const ring::Record& record) const {
  const bool image = record.kind == ring::Kind::kImage;
  if (!image && record.kind != ring::Kind::kStrips) return false;
  const auto handler = image ? on_image_ : on_strips_;
  if (handler == nullptr) return false;
  // A handler is promised memory that it may write to; ours only read.
  void* const data = const_cast<std::byte*>(record.payload.data());
  const auto second = image ? record.second : record.payload.size();
  handler(static_cast<unsigned>(record.first), static_cast<unsigned>(second), data);
  return true;
}

void LiveFrames::Run() {
  ring::RecordRing& ring = frames_.ring;
  for (;;) {
    const auto found = ring.At(ring.First());
    if (!found) {
      if (ring.Ended() || HasEnded(frames_.connection)) {
        return FrameQueue::Instance().End(sensor_.Gone());
      }
      std::this_thread::sleep_for(kPause);
      continue;
    }
    Use(found->record);
    ring.Release(found->next);
    FrameQueue::Instance().SetDroppedBefore(ring.DroppedFrames());
  }
}

Losses LiveFrames::Ask(bool images) {
  const Json now = sensor_.Get("/api/v1/statistics");
  const Json stream = now.value(images ? "images" : "strips", Json());
  const std::uint64_t malformed = stream.is_object() ? stream.value("malformed", 0ULL) : 0;
  return {malformed, now.value("fpga_lost", 0ULL), now.value("triggers_lost", 0ULL)};
}

Losses LiveFrames::LossesSoFar(bool images) {
  const std::lock_guard lock(frames->mutex_);
  Answer& newest = frames->newest_[images];
  const auto when = std::chrono::steady_clock::now();
  if (when - newest.when < kFresh) return newest.losses;
  Losses now;
  try {
    now = frames->Ask(images);
  } catch (const std::exception&) {  // the queue learns of the end from Run()
    newest.when = when + kPatienceWithSilence;
    return newest.losses;
  }
  const Losses& before = frames->before_[images];
  const auto since = [](std::uint64_t later, std::uint64_t earlier) {
    return later - std::min(later, earlier);
  };
  newest = {{since(now.malformed, before.malformed), since(now.fpga_lost, before.fpga_lost),
             since(now.triggers_lost, before.triggers_lost)},
            when};
  return newest.losses;
}

}  // namespace tool::live
