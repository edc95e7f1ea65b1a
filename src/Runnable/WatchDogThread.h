#pragma once

#include <chrono>

#include "Devices/peripheral/WatchdogTimer.h"
#include "Runnable/Runnable.h"

namespace VeltranoSDK {

// Arms the hardware watchdog and feeds it. The library never starts it by itself.
class WatchDogThread final : public Utility::Runnable {
 private:
  bool BeforeRun() override;
  void LoopRun() override;

  WatchdogTimer timer_{/*timeout_seconds=*/30, /*setting=*/2};
  const std::chrono::seconds period_{2};
};

}  // namespace VeltranoSDK
