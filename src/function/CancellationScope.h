#pragma once

#include <pthread.h>

#include <mutex>

namespace VeltranoSDK {

// A library thread works with cancellation disabled, so that no register access,
// log line or callback is ever torn in the middle. Where it blocks, it opens this
// scope: there, and only there, pthread_cancel ends it (a request that came
// earlier ends it on entry). Nothing on the way out may be noexcept, and nothing
// may catch everything: the end of a thread is an unwinding of its stack.
class CancellationScope {
 public:
  CancellationScope();
  ~CancellationScope();
  CancellationScope(const CancellationScope&) = delete;
  CancellationScope& operator=(const CancellationScope&) = delete;

 private:
  int before_;
};

// What a thread that may be cancelled and the one that cancels it share.
class CancellationRequest {
 public:
  // For a new thread.
  void Reset();
  // pthread_cancel on the thread that answers to it; its result.
  int Make(pthread_t thread);
  // Waits for a request that is just being made.
  bool Made() const;

 private:
  mutable std::mutex mutex_;
  bool made_ = false;
};

// From now on the calling thread is cancelled by this request alone. The request
// must outlive the thread.
void AnswerTo(const CancellationRequest& request);

// ioctl, where the thread can be cancelled while it is blocked in the driver. The
// C library's ioctl is no cancellation point. To be called within a
// CancellationScope; outside one it is an ioctl like any other.
int CancellableIoctl(int fd, unsigned long request, void* argument);

// The first cancellation of a process loads the unwinder and allocates, which
// must not happen inside the SIGINT handler: load it before.
void PrepareCancellation();

}  // namespace VeltranoSDK
