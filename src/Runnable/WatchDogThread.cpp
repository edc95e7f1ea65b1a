#include "Runnable/WatchDogThread.h"

#include "log/Log.h"

namespace VeltranoSDK {

bool WatchDogThread::BeforeRun() {
  Trace(__func__);
  return timer_.Start();
}

void WatchDogThread::LoopRun() {
  Trace(__func__);
  timer_.Feed();
  Rest(period_);
}

}  // namespace VeltranoSDK
