#include "Runnable/CaptureStatistics.h"

#include <algorithm>
#include <chrono>

namespace VeltranoSDK {

CaptureStatistics::Counts CaptureStatistics::Snapshot() const {
  const Counts counts = published_.Read();
  // The thread has not carried out a reset yet, so no frame has come since.
  return counts.epoch == resets_.load(std::memory_order_acquire) ? counts : Counts{};
}

void CaptureStatistics::Reset() { resets_.fetch_add(1, std::memory_order_acq_rel); }

void CaptureStatistics::ExpectOtherIds() { other_ids_.store(true, std::memory_order_release); }

void CaptureStatistics::DequeueFailed() {
  GrantRequests();
  ++counts_.dequeue_errors;
  Publish();
}

void CaptureStatistics::Dequeued() {
  GrantRequests();
  ++counts_.dequeued;
}

void CaptureStatistics::Done(Fate fate) {
  switch (fate) {
    case Fate::kDelivered:
      ++counts_.delivered;
      break;
    case Fate::kSuppressed:
      ++counts_.suppressed;
      break;
    case Fate::kReleased:
      ++counts_.released;
      break;
    case Fate::kMalformed:
      ++counts_.malformed;
      break;
  }
  Publish();
}

std::uint64_t CaptureStatistics::Nanoseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

void CaptureStatistics::GrantRequests() {
  const std::uint64_t epoch = resets_.load(std::memory_order_acquire);
  if (epoch != counts_.epoch) {
    counts_ = {};
    counts_.epoch = epoch;
    ids_.ClearCounts();
  }
  // Read first, which costs nothing; then taken in one step, so that no later request is lost.
  if (other_ids_.load(std::memory_order_relaxed) &&
      other_ids_.exchange(false, std::memory_order_acquire)) {
    ids_.Restart();
  }
}

void CaptureStatistics::AddCallback(std::uint64_t nanoseconds) {
  ++counts_.callbacks;
  counts_.callback_total_ns += nanoseconds;
  counts_.callback_max_ns = std::max(counts_.callback_max_ns, nanoseconds);
}

void CaptureStatistics::Publish() {
  counts_.ids = ids_.counts();
  published_.Publish(counts_);
}

}  // namespace VeltranoSDK
