#include "StripDevice.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdarg>

namespace {

std::atomic<bench::StripDevice*> serving{nullptr};

}  // namespace

// Stands in front of the board's. The C library promises that ioctl does not throw; a
// cancelled thread unwinds through this one, so it goes by another name here.
extern "C" int AnswerIoctl(int fd, unsigned long request, ...) __asm__("ioctl");
extern "C" int AnswerIoctl(int fd, unsigned long request, ...) {
  static const auto next =
      reinterpret_cast<int (*)(int, unsigned long, void*)>(dlsym(RTLD_NEXT, "ioctl"));
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  bench::StripDevice* const device = serving.load(std::memory_order_relaxed);
  if (device != nullptr && device->Owns(fd)) return device->Answer(request, argument);
  return next(fd, request, argument);
}

namespace bench {

StripDevice::StripDevice(std::byte* memory, unsigned buffers, std::size_t buffer_bytes)
    : V4l2Device(V4L2_MEMORY_MMAP, "strips"),
      memory_(memory),
      buffers_(buffers),
      buffer_bytes_(buffer_bytes) {
  serving = this;
}

// The next one may be there already.
StripDevice::~StripDevice() {
  StripDevice* self = this;
  serving.compare_exchange_strong(self, nullptr);
}

int StripDevice::Answer(unsigned long request, void* argument) {
  switch (request) {
    case VIDIOC_DQBUF: {
      auto* const buffer = static_cast<v4l2_buffer*>(argument);
      if (Next(buffer->index)) return 0;
      done_ = true;
      for (;;) pause();
    }
    case VIDIOC_QBUF:
      Queued();
      return 0;
    case VIDIOC_QUERYCAP:
      static_cast<v4l2_capability*>(argument)->capabilities = V4L2_CAP_VIDEO_CAPTURE;
      return 0;
    case VIDIOC_REQBUFS:
      static_cast<v4l2_requestbuffers*>(argument)->count = buffers_;
      return 0;
    default:
      return 0;
  }
}

bool StripDevice::Provide(v4l2_buffer& descriptor, Buffer& buffer) {
  buffer.data = memory_ + descriptor.index * buffer_bytes_;
  buffer.size = buffer_bytes_;
  return true;
}

}  // namespace bench
