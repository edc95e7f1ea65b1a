#include "serve/Feed.h"

#include <algorithm>
#include <chrono>

#include "HostClock.h"
#include "tessaline/frames.h"

namespace tool::serve {
namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

Feed& Feed::Instance() {
  static Feed* feed = new Feed;
  return *feed;
}

void Feed::OnImage(unsigned width, unsigned height, void* pixels) {
  Instance().Deliver(true, width, height, pixels,
                     std::size_t{width} * height + sizeof(tessaline_image_header));
}

void Feed::OnStrips(unsigned strips, unsigned bytes, void* data) {
  Instance().Deliver(false, strips, bytes, data, bytes);
}

void Feed::OnLogLine(log_Event* event) {
  Instance().ForEachTap([event](RecordTap& tap) { tap.LogLine(*event); });
}

void Feed::Deliver(bool is_image, unsigned first, unsigned second, const void* data,
                   std::size_t bytes) {
  const auto start = Clock::now();
  ForEachTap([&](RecordTap& tap) {
    if (is_image) {
      tap.Image(first, second, data);
    } else {
      tap.Strips(first, second, data);
    }
    tap.State();
  });
  Offer(is_image, first, second, data, bytes);
  (is_image ? images_ : strips_) += is_image ? 1 : first;
  bytes_ += bytes;
  ++deliveries_;
  Note(Clock::now() - start);
}

void Feed::Offer(bool is_image, unsigned first, unsigned second, const void* data,
                 std::size_t bytes) {
  if (!wanted_) return;
  const std::lock_guard lock(newest_mutex_);
  if (!wanted_) return;
  wanted_ = false;
  newest_.is_image = is_image;
  newest_.first = first;
  newest_.second = second;
  newest_.host_seconds = HostSeconds();
  const auto* const begin = static_cast<const std::uint8_t*>(data);
  newest_.bytes.assign(begin, begin + bytes);
  has_newest_ = true;
  arrived_.notify_one();
}

std::optional<Delivery> Feed::Next(std::chrono::milliseconds patience) {
  std::unique_lock lock(newest_mutex_);
  has_newest_ = false;
  wanted_ = true;
  if (!arrived_.wait_for(lock, patience, [this] { return has_newest_; })) return std::nullopt;
  return std::move(newest_);
}

unsigned Feed::AddTap(std::unique_ptr<RecordTap> tap,
                      const std::function<void(RecordTap&)>& begin) {
  begin(*tap);
  const std::unique_lock lock(taps_mutex_);
  taps_.emplace(next_tap_, std::move(tap));
  return next_tap_++;
}

void Feed::RemoveTap(unsigned number) {
  std::unique_ptr<RecordTap> gone;  // unmaps its memory when nobody waits for us any more
  const std::unique_lock lock(taps_mutex_);
  const auto found = taps_.find(number);
  if (found == taps_.end()) return;
  gone = std::move(found->second);
  dropped_before_ += gone->ring().DroppedFrames();
  taps_.erase(found);
}

void Feed::ForEachTap(const std::function<void(RecordTap&)>& use) {
  const std::shared_lock lock(taps_mutex_);
  for (const auto& [number, tap] : taps_) use(*tap);
}

std::size_t Feed::TapCount() const {
  const std::shared_lock lock(taps_mutex_);
  return taps_.size();
}

std::uint64_t Feed::DroppedByTaps() const {
  const std::shared_lock lock(taps_mutex_);
  std::uint64_t dropped = dropped_before_;
  for (const auto& [number, tap] : taps_) dropped += tap->ring().DroppedFrames();
  return dropped;
}

Feed::Counts Feed::counts() const { return {strips_, images_, bytes_, deliveries_}; }

Feed::Times Feed::times() const {
  Times times;
  std::copy(times_.begin(), times_.end(), times.counts.begin());
  times.seconds = static_cast<double>(handler_ns_) / 1e9;
  return times;
}

void Feed::Note(std::chrono::nanoseconds time) {
  const double seconds = std::chrono::duration<double>(time).count();
  const auto place = std::lower_bound(kHandlerSeconds.begin(), kHandlerSeconds.end(), seconds);
  ++times_[static_cast<std::size_t>(place - kHandlerSeconds.begin())];
  handler_ns_ += static_cast<std::uint64_t>(time.count());
}

}  // namespace tool::serve
