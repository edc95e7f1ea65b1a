#pragma once

#include <atomic>
#include <cstddef>

#include "Devices/V4l2Device.h"

namespace bench {

// The library's capture device over memory of its own, with a driver behind it that
// answers at once: no kernel and no virtual board is in the way. Subclasses are the
// driver. The one made last is served.
class StripDevice : public VeltranoSDK::DevFOps::V4l2Device {
 public:
  StripDevice(std::byte* memory, unsigned buffers, std::size_t buffer_bytes);
  ~StripDevice() override;
  StripDevice(const StripDevice&) = delete;
  StripDevice& operator=(const StripDevice&) = delete;

  // Once there are no more buffers; the next dequeue does not come back.
  bool IsDone() const { return done_; }

  // What the driver is asked; the result of the ioctl.
  int Answer(unsigned long request, void* argument);
  bool Owns(int descriptor) const { return descriptor == fd(); }

 protected:
  // The filled buffer to dequeue. False: there is no more.
  virtual bool Next(unsigned& index) = 0;
  virtual void Queued() {}

 private:
  bool PrepareMemory(unsigned) override { return true; }
  bool Provide(v4l2_buffer& descriptor, Buffer& buffer) override;
  void ReleaseMemory() override {}
  void ClearMemory() override {}

  std::byte* const memory_;
  const unsigned buffers_;
  const std::size_t buffer_bytes_;
  std::atomic<bool> done_{false};
};

}  // namespace bench
