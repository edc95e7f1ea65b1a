#include "Runnable/DAArrivedNotifier.h"

#include <utility>

#include "log/Log.h"

namespace VeltranoSDK {

// Never destroyed: an interrupt may still come while the process ends.
Utility::CallbackSlot<void()>& DAArrivedNotifier::da_arrived_callback_ =
    *new Utility::CallbackSlot<void()>;

DAArrivedNotifier::DAArrivedNotifier() : UioNotifier("/dev/uio1") {}

bool DAArrivedNotifier::RegisterDAArrivedCallback(std::function<void()> callback) {
  Trace(__func__);
  da_arrived_callback_.Replace(std::move(callback));
  return true;
}

void DAArrivedNotifier::LoopRun() {
  Trace(__func__);
  if (!WaitForInterrupt()) return;
  Deliver([] { da_arrived_callback_(); });
  UnmaskInterrupt();
}

}  // namespace VeltranoSDK
