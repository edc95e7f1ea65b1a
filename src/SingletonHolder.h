#pragma once

#include <mutex>
#include <system_error>

#include "thread/SignalMask.h"

namespace VeltranoSDK::Foundation {

// Thrown when a holder's lock cannot be taken: one of the two exceptions that leave the library.
class SingletonLockFailed : public std::system_error {
 public:
  using std::system_error::system_error;
};

// The only instance of T: made on first use and never destroyed, so that threads that outlive
// main() can still use it.
template <typename T>
class SingletonHolder {
 public:
  static T* Instance() {
    const SignalsBlocked no_handler_here;  // the SIGINT handler fetches singletons too
    const std::unique_lock lock = Lock();
    if (pS_ == nullptr) pS_ = new T;
    return pS_;
  }

 private:
  static std::unique_lock<std::mutex> Lock() {
    try {
      return std::unique_lock(m_);
    } catch (const std::system_error& error) {
      throw SingletonLockFailed(error.code());
    }
  }

  static inline T* pS_ = nullptr;
  static inline std::mutex m_;
};

}  // namespace VeltranoSDK::Foundation
