#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace VeltranoSDK {

// Place for one shared object that comes and goes while threads reach for it.
template <typename T>
class Slot {
 public:
  std::shared_ptr<T> Get() const {
    const std::lock_guard lock(mutex_);
    return object_;
  }

  std::shared_ptr<T> Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(object_, nullptr);
  }

  // Fills an empty slot with what make() returns; false when it is not empty. Whoever wants
  // to take it waits until make() is through.
  template <typename Make>
  bool Fill(Make make) {
    const std::lock_guard lock(mutex_);
    if (object_ != nullptr) return false;
    object_ = make();
    return true;
  }

  // Calls work() while the slot is empty and nobody fills it; not at all when it is not empty.
  template <typename Work>
  void WhileEmpty(Work work) {
    const std::lock_guard lock(mutex_);
    if (object_ == nullptr) work();
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<T> object_;
};

}  // namespace VeltranoSDK
