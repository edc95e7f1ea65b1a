#pragma once

#include <errno.h>
#include <sys/ioctl.h>

namespace VeltranoSDK {

// Repeats a system call while signals interrupt it. Not for close: Linux has released the
// descriptor even when close reports EINTR, and closing it again would close whatever another
// thread has just opened.
template <typename Call>
auto Uninterrupted(Call call) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

template <typename Argument>
int Ioctl(int fd, unsigned long request, Argument argument) {
  return Uninterrupted([=] { return ioctl(fd, request, argument); });
}

// open() for devices: the descriptor is closed in children that exec, and is never 0 to 2, where
// other code's output would go to the device. If one of those is not open, it becomes /dev/null.
// Returns -1 and sets errno on failure. May be called wherever open() may.
int OpenDevice(const char* path, int flags);

// Moves a descriptor made otherwise away from 0 to 2 and closes the original; -1 stays -1.
int AwayFromStandardStreams(int fd);

}  // namespace VeltranoSDK
