#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "thread/SignalMask.h"

namespace VeltranoSDK::Utility {

template <typename Signature>
class CallbackSlot;

// A callback that may be replaced while it runs: a running call keeps its function alive.
template <typename... Args>
class CallbackSlot<void(Args...)> {
 public:
  using Function = std::function<void(Args...)>;

  void Replace(Function function) {
    // Declared before the lock, so that the old function is destroyed after the lock is released.
    std::shared_ptr<const Function> fresh;
    if (function) fresh = std::make_shared<const Function>(std::move(function));
    const SignalsBlocked no_handler_here;
    const std::lock_guard lock(mutex_);
    function_.swap(fresh);
  }

  // Null when there is none. For worker threads, which block SIGINT: the SIGINT handler waits for
  // them.
  std::shared_ptr<const Function> Get() const {
    const std::lock_guard lock(mutex_);
    return function_;
  }

  // Like an empty std::function, throws std::bad_function_call when there is none.
  void operator()(Args... args) const {
    const auto function = Get();
    if (!function) throw std::bad_function_call();
    (*function)(std::forward<Args>(args)...);
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const Function> function_;
};

}  // namespace VeltranoSDK::Utility
