#include "StripDevice.h"

namespace bench {

StripDevice::StripDevice(std::byte* memory, unsigned buffers, std::size_t buffer_bytes)
    : V4l2Base(V4L2_MEMORY_MMAP, "strips"),
      memory_(memory),
      buffers_(buffers),
      buffer_bytes_(buffer_bytes) {}

bool StripDevice::Answer(unsigned long request, void* argument) {
  switch (request) {
    case VIDIOC_DQBUF:
      static_cast<v4l2_buffer*>(argument)->index = Next();
      break;
    case VIDIOC_QBUF:
      Queued();
      break;
    case VIDIOC_QUERYCAP:
      static_cast<v4l2_capability*>(argument)->capabilities = V4L2_CAP_VIDEO_CAPTURE;
      break;
    case VIDIOC_REQBUFS:
      static_cast<v4l2_requestbuffers*>(argument)->count = buffers_;
      break;
    default:
      break;
  }
  return true;
}

bool StripDevice::Provide(v4l2_buffer& descriptor, Buffer& buffer) {
  buffer.data = memory_ + descriptor.index * buffer_bytes_;
  buffer.size = buffer_bytes_;
  return true;
}

}  // namespace bench
