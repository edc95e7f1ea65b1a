#pragma once

#include <atomic>

namespace VeltranoSDK {

// A plain setting that one thread changes while others read it. It promises no order with other
// settings, only that no value is torn. It is copied like the value it holds.
template <typename T>
class Relaxed {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor): stands where a T stood
  Relaxed(T value = T{}) : value_(value) {}
  Relaxed(const Relaxed& other) : value_(other.Get()) {}
  Relaxed& operator=(const Relaxed& other) {
    Set(other.Get());
    return *this;
  }
  Relaxed& operator=(T value) {
    Set(value);
    return *this;
  }

  // NOLINTNEXTLINE(google-explicit-constructor)
  operator T() const { return Get(); }
  T Get() const { return value_.load(std::memory_order_relaxed); }
  void Set(T value) { value_.store(value, std::memory_order_relaxed); }

 private:
  std::atomic<T> value_;
};

}  // namespace VeltranoSDK
