#include "function/CancellationScope.h"

#include <errno.h>
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

constinit thread_local const CancellationRequest* answers_to = nullptr;

// With asynchronous cancellation the thread can end at any instruction of this
// frame, so the frame must hold nothing that needs destruction and must not be
// merged into one that does.
[[gnu::noinline]] int AsynchronousIoctl(int fd, unsigned long request, void* argument) {
  int type_before;
  pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, &type_before);
  const int result = throwing_ioctl(fd, request, argument);
  pthread_setcanceltype(type_before, nullptr);
  return result;
}

bool MayEndHere() {
  int state;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
  pthread_setcancelstate(state, nullptr);
  return state == PTHREAD_CANCEL_ENABLE;
}

// A request that found the thread in the ioctl above may still be on its way, as a
// signal. The C library's next blocking call would let it end the thread there, with
// cancellation disabled or not: in the middle of a register access. So the thread
// goes no further.
void EndIfCancelled() {
  if (answers_to == nullptr || !answers_to->Made() || !MayEndHere()) return;
  for (;;) pthread_testcancel();
}

}  // namespace

void CancellationRequest::Reset() {
  const std::lock_guard lock(mutex_);
  made_ = false;
}

int CancellationRequest::Make(pthread_t thread) {
  const std::lock_guard lock(mutex_);
  made_ = true;
  return pthread_cancel(thread);
}

bool CancellationRequest::Made() const {
  const std::lock_guard lock(mutex_);
  return made_;
}

void AnswerTo(const CancellationRequest& request) { answers_to = &request; }

CancellationScope::CancellationScope() {
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &before_);
  pthread_testcancel();
}

CancellationScope::~CancellationScope() { pthread_setcancelstate(before_, nullptr); }

int CancellableIoctl(int fd, unsigned long request, void* argument) {
  const int result = AsynchronousIoctl(fd, request, argument);
  const int error = errno;
  EndIfCancelled();
  errno = error;
  return result;
}

void PrepareCancellation() {
  void* caller;
  backtrace(&caller, 1);
}

}  // namespace VeltranoSDK
