#pragma once

#include <memory>

#include "Devices/capture/V4l2Base.h"

namespace VeltranoSDK {
class UdmaBuf;
}

namespace VeltranoSDK::DevFOps {

// The buffers lie one after another in one DMA area. Each has the size of a frame, and a spare
// frame follows the last.
class V4l2FdUserPtr : public V4l2Base {
 public:
  V4l2FdUserPtr();

  bool SetFmt(unsigned int width, unsigned int height) override;

 protected:
  explicit V4l2FdUserPtr(const char* file);

  const std::shared_ptr<UdmaBuf>& udma_buf() const { return udma_buf_; }

 private:
  bool PrepareMemory(unsigned int count) override;
  bool Provide(v4l2_buffer& descriptor, Buffer& buffer) override;
  void ReleaseMemory() override;
  void ClearMemory() override;

  std::shared_ptr<UdmaBuf> udma_buf_;
  std::size_t frame_size_ = 0;   // of the format last set
  std::size_t buffer_size_ = 0;  // of the buffers in the area
  unsigned int buffer_count_ = 0;
};

}  // namespace VeltranoSDK::DevFOps
