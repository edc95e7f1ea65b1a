#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "thread/InterruptibleWait.h"
#include "thread/SignalMask.h"

namespace VeltranoSDK {

// Place for one shared object that comes and goes while threads reach for it. Who fills or
// takes waits for another thread that is at it. A thread that is at it itself, and was
// interrupted by a handler that ends the process, finds the place empty and cannot fill it.
template <typename T>
class Slot {
 public:
  std::shared_ptr<T> Get() const {
    const SignalsBlocked no_handler_here;
    const std::lock_guard lock(mutex_);
    return object_;
  }

  // Fills an empty slot with what make() returns; false when it is not empty.
  template <typename Make>
  bool Fill(Make make) {
    const Turn turn(*this);
    if (!turn.mine() || Get() != nullptr) return false;
    Put(make());
    return true;
  }

  // Empties it; null when it was empty.
  std::shared_ptr<T> Take() {
    const Turn turn(*this);
    return turn.mine() ? Put(nullptr) : nullptr;
  }

  // Calls work() unless somebody has filled the slot meanwhile, or does so.
  template <typename Work>
  void WhileEmpty(Work work) {
    const Turn turn(*this);
    if (turn.mine() && Get() == nullptr) work();
  }

 private:
  static constexpr std::chrono::minutes kPatience{1};

  class Turn {
   public:
    explicit Turn(Slot& slot) : slot_(slot), mine_(slot.Enter()) {}
    ~Turn() {
      if (mine_) slot_.Leave();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    bool mine() const { return mine_; }

   private:
    Slot& slot_;
    const bool mine_;
  };

  bool Enter() {
    bool mine = false;
    WaitInterruptibly(mutex_, left_, {kPatience}, [&] {
      if (at_it_ == std::this_thread::get_id()) return true;
      mine = at_it_ == std::thread::id();
      if (mine) at_it_ = std::this_thread::get_id();
      return mine;
    });
    return mine;
  }

  void Leave() {
    const SignalsBlocked no_handler_here;
    const std::lock_guard lock(mutex_);
    at_it_ = {};
    left_.notify_all();
  }

  std::shared_ptr<T> Put(std::shared_ptr<T> object) {
    const SignalsBlocked no_handler_here;
    const std::lock_guard lock(mutex_);
    return std::exchange(object_, std::move(object));
  }

  mutable std::mutex mutex_;
  std::condition_variable left_;
  std::thread::id at_it_;  // nobody: the default id
  std::shared_ptr<T> object_;
};

}  // namespace VeltranoSDK
