#pragma once

#include <functional>

#include "Runnable/UioNotifier.h"
#include "thread/CallbackSlot.h"

namespace VeltranoSDK {

// Reports that the hardware has applied the laser power value.
class DAArrivedNotifier final : public UioNotifier {
 public:
  DAArrivedNotifier();

  // For all notifiers of the process. An interrupt without a callback ends the process
  // (std::bad_function_call), so register before switching the notification on.
  static bool RegisterDAArrivedCallback(std::function<void()> callback);

 private:
  void LoopRun() override;

  static Utility::CallbackSlot<void()>& da_arrived_callback_;
};

}  // namespace VeltranoSDK
