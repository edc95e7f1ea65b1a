#include "Devices/capture/V4l2FdUserPtr.h"

#include "Devices/capture/UdmaBuf.h"

namespace VeltranoSDK::DevFOps {

V4l2FdUserPtr::V4l2FdUserPtr() : V4l2FdUserPtr(__builtin_FILE()) {}

V4l2FdUserPtr::V4l2FdUserPtr(const char* file) : V4l2Base(V4L2_MEMORY_USERPTR, file) {}

bool V4l2FdUserPtr::SetFmt(unsigned int width, unsigned int height) {
  frame_size_ = std::size_t{width} * height;
  return V4l2Base::SetFmt(width, height);
}

bool V4l2FdUserPtr::PrepareMemory(unsigned int count) {
  buffer_size_ = frame_size_;
  buffer_count_ = count;
  udma_buf_ = std::make_shared<UdmaBuf>(0, buffer_size_ * (std::size_t{count} + 1));
  return udma_buf_->IsMapped();
}

bool V4l2FdUserPtr::Provide(v4l2_buffer& descriptor, Buffer& buffer) {
  if (descriptor.index >= buffer_count_) {
    Tell()("v4l2 driver wants more buffers than the DMA area has: %u", buffer_count_);
    return false;
  }
  buffer.data = static_cast<std::byte*>(udma_buf_->GetMappAddr()) + buffer_size_ * descriptor.index;
  buffer.size = buffer_size_;
  descriptor.m.userptr = reinterpret_cast<unsigned long>(buffer.data);
  return true;
}

// Also runs in the SIGINT handler, which may have interrupted malloc(): release the contents, keep
// the object.
void V4l2FdUserPtr::ReleaseMemory() {
  if (udma_buf_) udma_buf_->Release();
}

void V4l2FdUserPtr::ClearMemory() {
  if (udma_buf_) udma_buf_->ClearBuf();
}

}  // namespace VeltranoSDK::DevFOps
