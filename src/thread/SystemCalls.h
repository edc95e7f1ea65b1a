#pragma once

#include <errno.h>
#include <sys/ioctl.h>

namespace VeltranoSDK {

// Makes a system call again for as long as a signal interrupts it. Not for close: Linux has
// released the descriptor when close reports EINTR, and closing it again would close
// whatever another thread has just opened.
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

// open() for devices: the descriptor is closed in children that exec, and is never 0 to 2,
// where the texts of others would go into the device. Where one of those is not open, it
// becomes /dev/null. -1 and errno on failure. Callable wherever open() is.
int OpenDevice(const char* path, int flags);

// The same for a descriptor made otherwise, given up when it is moved; -1 stays -1.
int AwayFromStandardStreams(int fd);

}  // namespace VeltranoSDK
