#pragma once

// Drivers that answer otherwise than the virtual board's: the program stands between
// the library and the board and changes a request or its answer. To be included by
// one file of a program: it replaces the program's ioctl.

#include <dlfcn.h>
#include <linux/videodev2.h>
#include <stdarg.h>

#include <functional>
#include <utility>

namespace tessaline_test {

using Ioctl = int (*)(int, unsigned long, ...);

// Makes the call, with arguments or answer changed.
using Driver = std::function<int(Ioctl call, int fd, unsigned long request, void* argument)>;

// Empty: the board's own. Not to be changed while the library is in a call.
inline Driver changed_driver;

// The driver grants another number of buffers than asked for.
inline void GrantBuffers(unsigned granted) {
  changed_driver = [granted](Ioctl call, int fd, unsigned long request, void* argument) {
    if (request == VIDIOC_REQBUFS) static_cast<v4l2_requestbuffers*>(argument)->count = granted;
    return call(fd, request, argument);
  };
}

// The device is there, and cannot capture.
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
// By another name than the C library's, whose declaration says that it never throws:
// the end of a library's thread is an unwinding of its stack, through this frame too.
extern "C" int ChangedIoctl(int fd, unsigned long request, ...) asm("ioctl");
extern "C" int ChangedIoctl(int fd, unsigned long request, ...) {
  // Constant from the first call on, before any thread can be ended here.
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
