#include "capture/FrameQueue.h"

#include "capture/FrameReader.h"
#include "tessaline/capture_statistics.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

constexpr std::size_t kMostBytes = std::size_t{256} << 20;

Losses::Source losses_source = nullptr;

}  // namespace

void Losses::UseSource(Source source) { losses_source = source; }

Losses Losses::SoFar(bool images) {
  if (losses_source != nullptr) return losses_source(images);
  tessaline_capture_statistics statistics{};
  TessalineGetCaptureStatistics(images ? TESSALINE_STREAM_IMAGES : TESSALINE_STREAM_STRIPS,
                                &statistics);
  return {statistics.malformed, GetCallbackLostNum(), GetXtrigLostSta()};
}

FrameQueue& FrameQueue::Instance() {
  static FrameQueue* queue = new FrameQueue;
  return *queue;
}

void FrameQueue::OnImage(unsigned width, unsigned height, void* data) {
  Instance().Put(true, width, height, data, std::size_t{width} * height + kFrameHeaderBytes);
}

void FrameQueue::OnStrips(unsigned strips, unsigned bytes, void* data) {
  Instance().Put(false, strips, bytes, data, bytes);
}

void FrameQueue::Put(bool is_image, unsigned first, unsigned second, const void* data,
                     std::size_t bytes) {
  {
    const std::lock_guard lock(mutex_);
    if (!open_) return;
  }
  Delivery delivery{is_image, first, second, Losses::SoFar(is_image), {}};
  const std::lock_guard lock(mutex_);
  if (!open_) return;
  if (waiting_bytes_ + bytes > kMostBytes) {
    dropped_ += delivery.Frames();
    return;
  }
  const auto* begin = static_cast<const std::uint8_t*>(data);
  delivery.bytes.assign(begin, begin + bytes);
  waiting_.push_back(std::move(delivery));
  waiting_bytes_ += bytes;
  arrived_.notify_one();
}

void FrameQueue::Open() {
  const std::lock_guard lock(mutex_);
  waiting_.clear();
  waiting_bytes_ = 0;
  dropped_ = 0;
  dropped_before_open_ = dropped_before_;
  open_ = true;
}

void FrameQueue::Close() {
  const std::lock_guard lock(mutex_);
  open_ = false;
}

std::optional<Delivery> FrameQueue::Take(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  arrived_.wait_for(lock, patience, [this] { return !waiting_.empty() || end_; });
  if (waiting_.empty() && end_) throw Failure(*end_);
  if (waiting_.empty()) return std::nullopt;
  Delivery delivery = std::move(waiting_.front());
  waiting_.pop_front();
  waiting_bytes_ -= delivery.bytes.size();
  return delivery;
}

void FrameQueue::End(const Failure& reason) {
  const std::lock_guard lock(mutex_);
  end_ = reason;
  arrived_.notify_one();
}

bool FrameQueue::Abandon() {
  const std::lock_guard lock(mutex_);
  const bool any = !waiting_.empty();
  for (const Delivery& delivery : waiting_) dropped_ += delivery.Frames();
  waiting_.clear();
  waiting_bytes_ = 0;
  return any;
}

std::uint64_t FrameQueue::Dropped() {
  const std::lock_guard lock(mutex_);
  return dropped_ + dropped_before_ - dropped_before_open_;
}

void FrameQueue::SetDroppedBefore(std::uint64_t frames) {
  const std::lock_guard lock(mutex_);
  dropped_before_ = frames;
}

}  // namespace tool
