#include "Driver.h"

#include <dlfcn.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

std::atomic<bench::Driver*> serving{nullptr};

bench::Driver* DriverOf(int descriptor) {
  bench::Driver* const driver = serving.load(std::memory_order_relaxed);
  return driver != nullptr && driver->Owns(descriptor) ? driver : nullptr;
}

int NextPoll(pollfd* fds, nfds_t count, int timeout) {
  static const auto next =
      reinterpret_cast<int (*)(pollfd*, nfds_t, int)>(dlsym(RTLD_NEXT, "poll"));
  return next(fds, count, timeout);
}

}  // namespace

// These override the board's functions.
#pragma GCC visibility push(default)
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  static const auto next =
      reinterpret_cast<int (*)(int, unsigned long, void*)>(dlsym(RTLD_NEXT, "ioctl"));
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  bench::Driver* const driver = DriverOf(fd);
  if (driver != nullptr && driver->Answer(request, argument)) return 0;
  return next(fd, request, argument);
}

// Has another name in C++, because the C library declares that poll only writes to `fds`.
extern "C" int AnswerPoll(pollfd* fds, nfds_t count, int timeout) __asm__("poll");
extern "C" int AnswerPoll(pollfd* fds, nfds_t count, int timeout) {
  bench::Driver* const driver = count == 2 ? DriverOf(fds[0].fd) : nullptr;
  return driver != nullptr ? driver->Wait(fds, timeout) : NextPoll(fds, count, timeout);
}
#pragma GCC visibility pop

namespace bench {

Driver::Driver() : ready_(eventfd(1, EFD_CLOEXEC)) {
  if (ready_ < 0) {
    std::perror("eventfd");
    std::exit(1);
  }
  serving = this;
}

// The next driver may already exist.
Driver::~Driver() {
  Driver* self = this;
  serving.compare_exchange_strong(self, nullptr);
  close(ready_);
}

int Driver::Wait(pollfd* device_and_wake_up, int timeout) {
  pollfd& device = device_and_wake_up[0];
  pollfd& wake_up = device_and_wake_up[1];
  if (!HasNext()) {
    done_ = true;
    return NextPoll(&wake_up, 1, timeout);
  }
  device.revents = POLLIN;
  if (!WaitsInKernel()) return 1;
  std::array<pollfd, 2> both{{{ready_, POLLIN, 0}, wake_up}};
  return NextPoll(both.data(), both.size(), timeout);
}

}  // namespace bench
