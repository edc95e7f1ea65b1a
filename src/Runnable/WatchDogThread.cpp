#include "Runnable/WatchDogThread.h"

#include "function/CancellationScope.h"
#include "log/Log.h"

namespace VeltranoSDK {

bool WatchDogThread::BeforeRun() {
  Trace(__func__);
  return timer_.Start();
}

void WatchDogThread::LoopRun() {
  Trace(__func__);
  timer_.Feed();
  const CancellationScope may_end_here;
  usleep(period_us_);
}

}  // namespace VeltranoSDK
