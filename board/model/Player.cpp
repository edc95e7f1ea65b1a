#include "model/Player.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "Clock.h"
#include "model/ImageFrame.h"

namespace board {
namespace {

constexpr std::int64_t kNever = -1;
constexpr std::size_t kCountBytes = 8;  // with the unused ones of a narrow count before it
// The other process is reading its file.
constexpr std::int64_t kLookAgainNs = 2'000'000;

}  // namespace

Player::Player(std::unique_ptr<Replay> replay, const EngineWiring& wiring, StreamCounters& images,
               StreamCounters& strips, OnEvent on_event)
    : replay_(std::move(replay)),
      wiring_(wiring),
      counters_{&images, &strips},
      on_event_(std::move(on_event)) {}

CaptureQueue& Player::QueueOf(Replay::Stream stream) const {
  return stream == Replay::kImages ? *wiring_.images : *wiring_.strips;
}

bool Player::Settle(Replay::Stream stream) {
  std::optional<Sent>& sent = sent_[stream];
  if (!sent) return true;
  const CaptureQueue::Fate fate = QueueOf(stream).LastFate();
  if (fate == CaptureQueue::Fate::kWaiting) return false;
  if (!sent->taken && fate != CaptureQueue::Fate::kLost) {
    sent->taken = true;
    const auto record = replay_->Next(stream);
    Count(stream, *record, /*delivered=*/true);
    replay_->Take(stream, *record);
  }
  if (fate == CaptureQueue::Fate::kTaken) return true;
  if (sent->taken) replay_->Return(stream);
  sent.reset();
  return true;
}

void Player::Count(Replay::Stream stream, const ring::Record& record, bool delivered) {
  const std::uint64_t frames = stream == Replay::kImages ? 1 : record.first;
  StreamCounters& counters = *counters_[stream];
  counters.frames += frames;
  (delivered ? counters.delivered : counters.lost) += frames;
  counters.buffers += delivered ? 1 : 0;
}

std::int64_t Player::Work(bool armed, const SensorState& sensor) {
  const bool images_settled = Settle(Replay::kImages);
  const bool strips_settled = Settle(Replay::kStrips);
  if (!armed) {
    for (const auto stream : {Replay::kImages, Replay::kStrips}) replay_->Rest(stream);
    return kNever;
  }
  if (!claimed_ && !refused_) {
    claimed_ = replay_->Claim();
    refused_ = !claimed_;
    if (refused_) {
      std::fprintf(stderr, "tessaline replay: another process takes the recording's frames\n");
    }
  }
  if (refused_) return kNever;
  const bool settled =
      wiring_.fpga->CommittedRoute() == Route::kImages ? images_settled : strips_settled;
  // The bell rings when software takes the last frame.
  return Sooner(settled ? Frames(sensor) : kNever, Events());
}

std::int64_t Player::Frames(const SensorState& sensor) {
  const Route route = wiring_.fpga->CommittedRoute();
  if (route != Route::kImages) replay_->Rest(Replay::kImages);
  if (route != Route::kStrips) replay_->Rest(Replay::kStrips);
  if (route == Route::kNone) return kNever;
  const auto stream = route == Route::kImages ? Replay::kImages : Replay::kStrips;
  const bool ended = replay_->Ended(stream);  // before the look, or a last frame would be missed
  const auto record = replay_->Next(stream);
  if (!record) return ended ? kNever : kLookAgainNs;
  const std::int64_t wait = replay_->Wait(stream, *record);
  if (wait > 0) return wait;
  const Fate fate = stream == Replay::kImages ? SendImage(*record, sensor) : SendStrips(*record);
  // The bell rings when there is a buffer.
  if (fate == Fate::kNoBuffer) return kNever;
  replay_->Sent(*record);
  if (fate == Fate::kUnfit) {
    Count(stream, *record, /*delivered=*/false);
    replay_->Take(stream, *record);
    replay_->Return(stream);
  }
  return 0;
}

std::int64_t Player::Events() {
  const bool ended = replay_->Ended(Replay::kEvents);
  const auto record = replay_->Next(Replay::kEvents);
  if (!record) return ended ? kNever : kLookAgainNs;
  const std::int64_t wait = replay_->Wait(Replay::kEvents, *record);
  if (wait != 0) return wait;
  on_event_(*record);
  replay_->Take(Replay::kEvents, *record);
  return 0;
}

void Player::Complain(Replay::Stream stream, const std::string& what) {
  if (std::exchange(complained_[stream], true)) return;
  std::fprintf(stderr, "tessaline replay: %s\n", what.c_str());
}

Player::Fate Player::SendImage(const ring::Record& record, const SensorState& sensor) {
  const ImageSize size = SizeOf(*wiring_.fpga, AsReceived(*wiring_.fpga, sensor));
  const std::uint64_t pixels = std::uint64_t{size.width} * size.height;
  if (record.first != size.width || record.second != size.height ||
      record.payload.size() != pixels + kFrameHeaderBytes) {
    Complain(Replay::kImages,
             fmt::format("the recording has images of {} x {}, the application reads {} x {}; they "
                         "are left out",
                         record.first, record.second, size.width, size.height));
    return Fate::kUnfit;
  }
  const auto fill = wiring_.images->Begin();
  if (!fill) return Fate::kNoBuffer;
  const std::size_t full_pixels = std::size_t{fill->width} * (fill->height - 1);
  const std::size_t used = PutImage(record.payload, full_pixels, fill->memory);
  if (used == 0) {
    std::fill(fill->memory.begin(), fill->memory.end(), 0);  // of an older frame
    wiring_.images->Finish(*fill, 0);
    return Fate::kUnfit;
  }
  std::optional<std::size_t> guard;
  if (TimeStampOf(record) != 0) guard = used - kFrameHeaderBytes + kTimeStampAt;
  wiring_.images->Finish(*fill, fill->memory.size(), guard);
  sent_[Replay::kImages] = Sent{};
  return Fate::kDelivered;
}

Player::Fate Player::SendStrips(const ring::Record& record) {
  const StripSettings settings = SettingsOf(*wiring_.fpga, wiring_.points);
  if (record.second != settings.bytes_per_point) {
    Complain(Replay::kStrips,
             fmt::format("the recording has points of {} bytes, the application's settings make "
                         "them {}; they are left out",
                         record.second, settings.bytes_per_point));
    return Fate::kUnfit;
  }
  const auto fill = wiring_.strips->Begin();
  if (!fill) return Fate::kNoBuffer;
  const bool fits = PutStrips(record.payload, record.first, settings, fill->memory);
  if (!fits) {
    std::fill(fill->memory.begin(), fill->memory.end(), 0);  // of an older frame
    wiring_.strips->Finish(*fill, 0);
    return Fate::kUnfit;
  }
  // The count, unless there are no strips to lose.
  std::optional<std::size_t> guard;
  if (record.first > 0) guard = fill->memory.size() - kCountBytes;
  wiring_.strips->Finish(*fill, fill->memory.size(), guard);
  sent_[Replay::kStrips] = Sent{};
  return Fate::kDelivered;
}

}  // namespace board
