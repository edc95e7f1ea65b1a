#include "Runnable/DeliveryGate.h"

#include "function/SignalMask.h"

namespace VeltranoSDK::Utility {

void DeliveryGate::Open() {
  const SigintBlocked no_handler_here;
  const std::lock_guard lock(mutex_);
  open_ = true;
}

bool DeliveryGate::Close() {
  const SigintBlocked no_handler_here;
  std::unique_lock lock(mutex_);
  open_ = false;
  return WaitForDelivery(lock);
}

bool DeliveryGate::WaitForDelivery() {
  const SigintBlocked no_handler_here;
  std::unique_lock lock(mutex_);
  return WaitForDelivery(lock);
}

bool DeliveryGate::WaitForDelivery(std::unique_lock<std::mutex>& lock) {
  if (inside_ == std::this_thread::get_id()) return true;
  // The next delivery may begin before this thread gets to look.
  const std::uint64_t noted = deliveries_;
  return left_.wait_for(lock, kPatience, [this, noted] {
    return inside_ == std::thread::id() || deliveries_ != noted;
  });
}

bool DeliveryGate::Enter() {
  const std::lock_guard lock(mutex_);
  if (!open_) return false;
  inside_ = std::this_thread::get_id();
  ++deliveries_;
  return true;
}

void DeliveryGate::Leave() {
  const std::lock_guard lock(mutex_);
  inside_ = std::thread::id();
  left_.notify_all();
}

}  // namespace VeltranoSDK::Utility
