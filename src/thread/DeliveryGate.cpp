#include "thread/DeliveryGate.h"

#include <optional>

#include "thread/InterruptibleWait.h"
#include "thread/SignalMask.h"

namespace VeltranoSDK::Utility {

void DeliveryGate::Open() {
  const SignalsBlocked no_handler_here;
  const std::lock_guard lock(mutex_);
  open_ = true;
}

void DeliveryGate::Shut() {
  const SignalsBlocked no_handler_here;
  const std::lock_guard lock(mutex_);
  open_ = false;
}

bool DeliveryGate::Close() {
  Shut();
  return WaitForDelivery();
}

bool DeliveryGate::WaitForDelivery() {
  // Compares counts, because the next delivery may begin before this thread wakes up.
  std::optional<std::uint64_t> noted;
  return WaitInterruptibly(mutex_, left_, {kPatience}, [this, &noted] {
    if (!noted) noted = deliveries_;
    return inside_ == std::thread::id() || inside_ == std::this_thread::get_id() ||
           deliveries_ != noted;
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
