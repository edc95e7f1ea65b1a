#pragma once

#include <cstddef>

#include "Devices/capture/V4l2Base.h"
#include "Driver.h"

namespace bench {

// The library's strip device with its own memory and a driver that answers at once. Subclasses
// implement the driver.
class StripDevice : public VeltranoSDK::DevFOps::V4l2Base, public Driver {
 public:
  StripDevice(std::byte* memory, unsigned buffers, std::size_t buffer_bytes);

  bool Owns(int descriptor) const override { return descriptor == fd(); }
  bool Answer(unsigned long request, void* argument) override;

 protected:
  // Returns the next filled buffer to dequeue.
  virtual unsigned Next() = 0;
  virtual void Queued() {}

 private:
  bool PrepareMemory(unsigned) override { return true; }
  bool Provide(v4l2_buffer& descriptor, Buffer& buffer) override;
  void ReleaseMemory() override {}
  void ClearMemory() override {}

  std::byte* const memory_;
  const unsigned buffers_;
  const std::size_t buffer_bytes_;
};

}  // namespace bench
