#pragma once

#include <mutex>

#include "function/SignalMask.h"

namespace VeltranoSDK::Foundation {

// The one instance of T: made on first use, never destroyed, so that threads
// which outlive main() never see it go.
template <typename T>
class SingletonHolder {
 public:
  static T* Instance() {
    const SigintBlocked no_handler_here;  // the SIGINT handler fetches singletons too
    const std::lock_guard lock(m_);
    if (pS_ == nullptr) pS_ = new T;
    return pS_;
  }

 private:
  static inline T* pS_ = nullptr;
  static inline std::mutex m_;
};

}  // namespace VeltranoSDK::Foundation
