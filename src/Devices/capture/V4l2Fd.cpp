#include "Devices/capture/V4l2Fd.h"

#include <string.h>
#include <sys/mman.h>

namespace VeltranoSDK::DevFOps {

V4l2Fd::V4l2Fd() : V4l2Base(V4L2_MEMORY_MMAP, __builtin_FILE()) {}

// The driver owns the memory; only mappings of an earlier request must go.
bool V4l2Fd::PrepareMemory(unsigned int) {
  ReleaseMemory();
  return true;
}

bool V4l2Fd::Provide(v4l2_buffer& descriptor, Buffer& buffer) {
  void* address = mmap(nullptr, descriptor.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd(),
                       descriptor.m.offset);
  if (address == MAP_FAILED) {
    Tell()("v4l2 mmap failed!");
    return false;
  }
  buffer.data = static_cast<std::byte*>(address);
  buffer.size = descriptor.length;
  return true;
}

void V4l2Fd::ReleaseMemory() {
  for (Buffer& buffer : buffers()) {
    if (buffer.data != nullptr) munmap(buffer.data, buffer.size);
  }
}

void V4l2Fd::ClearMemory() {
  for (Buffer& buffer : buffers()) {
    if (buffer.data != nullptr) memset(buffer.data, 0, buffer.size);
  }
}

}  // namespace VeltranoSDK::DevFOps
