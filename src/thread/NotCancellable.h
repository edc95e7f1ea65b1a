#pragma once

#include <pthread.h>

namespace VeltranoSDK {

// Around every exported function: a thread of the application that was cancelled in the middle
// would leave locks taken and descriptors open. The request takes effect at the application's next
// cancellation point.
class NotCancellable {
 public:
  NotCancellable() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  // A thread whose cancellation is asynchronous may be unwound right here.
  ~NotCancellable() noexcept(false) { pthread_setcancelstate(before_, nullptr); }
  NotCancellable(const NotCancellable&) = delete;
  NotCancellable& operator=(const NotCancellable&) = delete;

 private:
  int before_;
};

}  // namespace VeltranoSDK
