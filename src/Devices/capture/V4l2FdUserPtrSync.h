#pragma once

#include "Devices/capture/V4l2FdUserPtr.h"

namespace VeltranoSDK::DevFOps {

// For boards whose DMA is not cache coherent: makes a dequeued buffer coherent for the processor,
// and hands its completion marker back to the device.
class V4l2FdUserPtrSync final : public V4l2FdUserPtr {
 public:
  V4l2FdUserPtrSync();

 private:
  void AfterDequeue(unsigned int index, std::size_t size) override;
  void BeforeQueue(unsigned int index, std::size_t size) override;
};

}  // namespace VeltranoSDK::DevFOps
