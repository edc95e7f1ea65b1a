#include "capture/FrameQueue.h"

#include "capture/FrameReader.h"

namespace tool {
namespace {

constexpr std::size_t kMostBytes = std::size_t{256} << 20;

}  // namespace

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
  const std::lock_guard lock(mutex_);
  if (!open_) return;
  if (waiting_bytes_ + bytes > kMostBytes) {
    ++dropped_;
    return;
  }
  const auto* begin = static_cast<const std::uint8_t*>(data);
  waiting_.push_back({is_image, first, second, {begin, begin + bytes}});
  waiting_bytes_ += bytes;
  arrived_.notify_one();
}

void FrameQueue::Open() {
  const std::lock_guard lock(mutex_);
  waiting_.clear();
  waiting_bytes_ = 0;
  dropped_ = 0;
  open_ = true;
}

void FrameQueue::Close() {
  const std::lock_guard lock(mutex_);
  open_ = false;
}

std::optional<Delivery> FrameQueue::Take(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  if (!arrived_.wait_for(lock, patience, [this] { return !waiting_.empty(); })) return std::nullopt;
  Delivery delivery = std::move(waiting_.front());
  waiting_.pop_front();
  waiting_bytes_ -= delivery.bytes.size();
  return delivery;
}

std::uint64_t FrameQueue::Dropped() {
  const std::lock_guard lock(mutex_);
  return dropped_;
}

}  // namespace tool
