#pragma once

#include <pthread.h>

namespace VeltranoSDK {

// Around every exported function: an application's thread that is cancelled in the middle
// would leave locks taken and descriptors open. The request takes effect afterwards, where
// the application next lets it.
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
