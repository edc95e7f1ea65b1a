#pragma once

#include <memory>

#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "Runnable/DAArrivedNotifier.h"
#include "Runnable/ExternalTriggerGuard.h"
#include "Runnable/WatchDogThread.h"
#include "SingletonHolder.h"
#include "thread/Slot.h"

namespace VeltranoSDK {

// Owns the threads and releases them in reverse order.
class RunnableObjectManager {
 public:
  RunnableObjectManager();

  std::shared_ptr<CaptureVideoStream> video_;
  std::shared_ptr<CaptureStripStream> strip_;
  std::shared_ptr<WatchDogThread> watchdog_;
  // Empty while the notification is switched off.
  Slot<DAArrivedNotifier> da_notifier_;
  Slot<ExternalTriggerGuard> trigger_guard_;
};

using RunnableObjectManagerHolder = Foundation::SingletonHolder<RunnableObjectManager>;

}  // namespace VeltranoSDK
