#pragma once

#include "Devices/capture/V4l2Base.h"

namespace VeltranoSDK::DevFOps {

// Uses the driver's own buffers, mapped.
class V4l2Fd final : public V4l2Base {
 public:
  V4l2Fd();

 private:
  bool PrepareMemory(unsigned int count) override;
  bool Provide(v4l2_buffer& descriptor, Buffer& buffer) override;
  void ReleaseMemory() override;
  void ClearMemory() override;
};

}  // namespace VeltranoSDK::DevFOps
