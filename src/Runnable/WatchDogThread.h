#pragma once

#include <unistd.h>

#include "Devices/WatchdogTimer.h"
#include "Runnable/Runnable.h"

namespace VeltranoSDK {

// Arms the hardware watchdog and feeds it. Nothing starts it by itself.
class WatchDogThread final : public Utility::Runnable {
 private:
  bool BeforeRun() override;
  void LoopRun() override;

  WatchdogTimer timer_{/*timeout_seconds=*/30, /*setting=*/2};
  const useconds_t period_us_ = 2'000'000;
};

}  // namespace VeltranoSDK
