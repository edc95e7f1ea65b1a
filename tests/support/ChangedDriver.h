#pragma once

// Drivers that behave differently from the virtual board's: the program changes a request or its
// answer between the library and the board. Include it in only one file of a program: it replaces
// the program's ioctl.

#include <dlfcn.h>
#include <linux/videodev2.h>
#include <stdarg.h>

#include <functional>
#include <utility>

namespace tessaline_test {

using Ioctl = int (*)(int, unsigned long, ...);

// Makes the call, with arguments or answer changed.
using Driver = std::function<int(Ioctl call, int fd, unsigned long request, void* argument)>;

// Empty: the board's own driver. Do not change it while the library is in a call.
inline Driver changed_driver;

// The driver grants a different number of buffers than requested.
inline void GrantBuffers(unsigned granted) {
  changed_driver = [granted](Ioctl call, int fd, unsigned long request, void* argument) {
    if (request == VIDIOC_REQBUFS) static_cast<v4l2_requestbuffers*>(argument)->count = granted;
    return call(fd, request, argument);
  };
}

// The device exists but cannot capture.
inline void RefuseToCapture() {
  changed_driver = [](Ioctl call, int fd, unsigned long request, void* argument) {
    const int result = call(fd, request, argument);
    if (request == VIDIOC_QUERYCAP) {
      static_cast<v4l2_capability*>(argument)->capabilities = V4L2_CAP_VIDEO_OUTPUT;
    }
    return result;
  };
}

}  // namespace tessaline_test

#pragma GCC visibility push(default)
// The name differs from the C library's, whose declaration says that it never throws: the end of a
// library thread unwinds its stack, through this frame too.
extern "C" int ChangedIoctl(int fd, unsigned long request, ...) asm("ioctl");
extern "C" int ChangedIoctl(int fd, unsigned long request, ...) {
  // Set at the first call, before any thread can be ended here.
  static const auto board_ioctl =
      reinterpret_cast<tessaline_test::Ioctl>(dlsym(RTLD_NEXT, "ioctl"));
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  const auto& driver = tessaline_test::changed_driver;
  return driver ? driver(board_ioctl, fd, request, argument) : board_ioctl(fd, request, argument);
}
#pragma GCC visibility pop
