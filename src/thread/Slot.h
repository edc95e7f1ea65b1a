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

// Holds one shared object that several threads may fill, take and read. Fill and Take wait for
// another thread's Fill or Take. In a handler that interrupted one of them on its own thread, and
// which ends the process, Take returns null and Fill fails.
template <typename T>
class Slot {
 public:
  std::shared_ptr<T> Get() const {
    const SignalsBlocked no_handler_here;
    const std::lock_guard lock(mutex_);
    return object_;
  }

  // Fills an empty slot with the result of make(); false when it is not empty.
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

  // Calls work() if the slot is empty and nobody is filling it.
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
  std::thread::id at_it_;  // the default id: nobody
  std::shared_ptr<T> object_;
};

}  // namespace VeltranoSDK
