#pragma once

#include <functional>

#include "Runnable/UioNotifier.h"
#include "thread/CallbackSlot.h"

namespace VeltranoSDK {

// Reports every pulse of the external trigger with the input's level.
class ExternalTriggerGuard final : public UioNotifier {
 public:
  ExternalTriggerGuard();

  // For all guards of the process. A pulse without a callback ends the process
  // (std::bad_function_call), so register before switching the notification on.
  static bool RegisterPulseSignalCallback(std::function<void(unsigned int)> callback);

 private:
  void LoopRun() override;
  void AfterRun() override;

  static Utility::CallbackSlot<void(unsigned int)>& pulse_signal_callback_;
};

}  // namespace VeltranoSDK
