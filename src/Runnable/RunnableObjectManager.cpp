#include "Runnable/RunnableObjectManager.h"

#include "log/Log.h"

namespace VeltranoSDK {

RunnableObjectManager::RunnableObjectManager()
    : video_(std::make_shared<CaptureVideoStream>()),
      strip_(std::make_shared<CaptureStripStream>()),
      watchdog_(std::make_shared<WatchDogThread>()) {
  Trace(__func__);
}

}  // namespace VeltranoSDK
