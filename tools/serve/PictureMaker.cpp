#include "serve/PictureMaker.h"

#include <algorithm>
#include <chrono>

#include "Interrupt.h"
#include "serve/PictureMessage.h"

namespace tool::serve {
namespace {

constexpr double kRateAlone = 2;
constexpr unsigned kMostPixels = 1024;  // a side of a picture
constexpr double kWeight = 0.1;         // of a new profile in the quality
constexpr std::uint8_t kWhite = 255;
constexpr std::chrono::milliseconds kSlice{20};
using Clock = std::chrono::steady_clock;

double Mixed(double old, double now, bool first) {
  return first ? now : old + kWeight * (now - old);
}

}  // namespace

PictureMaker::PictureMaker(std::function<void(Stream, Message)> publish)
    : publish_(std::move(publish)) {}

PictureMaker::~PictureMaker() = default;

void PictureMaker::Start() {
  const SignalsBlocked inherited;
  thread_ = std::jthread([this](const std::stop_token& stop) { Run(stop); });
}

void PictureMaker::SetView(const View& view) {
  const std::lock_guard lock(mutex_);
  view_ = view;
  view_changed_ = true;
}

LineQuality PictureMaker::quality() const {
  const std::lock_guard lock(mutex_);
  return quality_;
}

std::optional<PictureMaker::Newest> PictureMaker::newest() const {
  const std::lock_guard lock(mutex_);
  return newest_;
}

void PictureMaker::Run(const std::stop_token& stop) {
  auto due = Clock::now();
  while (!stop.stop_requested()) {
    const double rate = rate_;
    const auto period = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(1 / (rate > 0 ? rate : kRateAlone)));
    // A rate that rises counts at once. What was missed is not made up for.
    const auto now = Clock::now();
    due = std::clamp(due, now - period, now + period);
    if (due > now) {
      std::this_thread::sleep_for(std::min<Clock::duration>(due - now, kSlice));
      continue;
    }
    const auto delivery = Feed::Instance().Next(kSlice);
    if (!delivery) continue;
    due += period;
    UseView();
    if (reader_) Use(*delivery);
  }
}

void PictureMaker::UseView() {
  const std::lock_guard lock(mutex_);
  if (!std::exchange(view_changed_, false)) return;
  used_ = view_;
  reader_.emplace(used_.point_bytes, used_.measuring.geometry, used_.measuring.calibration);
}

void PictureMaker::Use(const Delivery& delivery) {
  if (delivery.is_image) {
    UseImage(delivery);
  } else {
    UseStrips(delivery);
  }
}

void PictureMaker::UseStrips(const Delivery& delivery) {
  std::optional<Frame> last;
  reader_->Read(delivery.first, delivery.bytes, [&last](const Frame& frame) { last = frame; });
  if (!last) return;
  last->raw = {};
  publish_(Stream::kProfile, std::make_shared<const std::string>(
                                 ProfileMessage(*last, used_, delivery.host_seconds)));
  const std::lock_guard lock(mutex_);
  Judge(*last);
  newest_ = {used_, std::move(*last), {}};
}

void PictureMaker::UseImage(const Delivery& delivery) {
  Frame frame = ReadImage(delivery.first, delivery.second, delivery.bytes);
  publish_(Stream::kImage, std::make_shared<const std::string>(
                               ImageMessage(frame, used_, delivery.host_seconds, kMostPixels)));
  std::vector<std::uint8_t> pixels(frame.pixels.begin(), frame.pixels.end());
  frame.raw = frame.pixels = {};
  const std::lock_guard lock(mutex_);
  newest_ = {used_, std::move(frame), std::move(pixels)};
}

void PictureMaker::Judge(const Frame& frame) {
  const bool first = std::exchange(nothing_judged_, false);
  const auto points = static_cast<double>(frame.points.size());
  const double columns = std::max(1U, used_.region.width);
  quality_.points = frame.points.size();
  quality_.missing_percent =
      Mixed(quality_.missing_percent, 100 * std::max(0.0, 1 - points / columns), first);
  if (!used_.sends_peaks) return;
  if (frame.points.empty()) {
    quality_.mean_peak = Mixed(quality_.mean_peak, 0, first);
    return;
  }
  double peaks = 0;
  double white = 0;
  for (const Point& point : frame.points) {
    peaks += point.peak;
    white += point.peak == kWhite ? 1 : 0;
  }
  quality_.mean_peak = Mixed(quality_.mean_peak, peaks / points, first);
  quality_.saturated_percent = Mixed(quality_.saturated_percent, 100 * white / points, first);
}

}  // namespace tool::serve
