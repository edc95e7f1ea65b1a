#include "function/CancellationScope.h"

#include <execinfo.h>
#include <pthread.h>
#include <sys/ioctl.h>

namespace VeltranoSDK {

namespace {

// The C library declares ioctl as never throwing. Called by its name, the
// compiler would leave it out of the caller's unwind tables, and the end of a
// thread inside it would end the process.
using ThrowingIoctl = int (*)(int, unsigned long, ...);
ThrowingIoctl volatile throwing_ioctl = ::ioctl;

}  // namespace

CancellationScope::CancellationScope() {
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &before_);
  pthread_testcancel();
}

CancellationScope::~CancellationScope() { pthread_setcancelstate(before_, nullptr); }

// With asynchronous cancellation the thread can end at any instruction of this
// frame, so the frame must hold nothing that needs destruction and must not be
// merged into one that does.
[[gnu::noinline]] int CancellableIoctl(int fd, unsigned long request, void* argument) {
  int type_before;
  pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, &type_before);
  const int result = throwing_ioctl(fd, request, argument);
  pthread_setcanceltype(type_before, nullptr);
  return result;
}

void PrepareCancellation() {
  void* caller;
  backtrace(&caller, 1);
}

}  // namespace VeltranoSDK
