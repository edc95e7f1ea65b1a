#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>

namespace VeltranoSDK::Utility {

// The way from a worker to the application's callback. Whoever closes it knows
// that the application is not called any more.
class DeliveryGate {
 public:
  // What happens on the other side of the gate is the application's business and
  // may wait for the very thread that closes it: patience ends.
  static constexpr std::chrono::seconds kPatience{3};

  void Open();

  // No delivery begins any more.
  void Shut();

  // Nothing is delivered from here on. Waits for the delivery in flight, unless
  // this is the thread that delivers it; false when patience ended first.
  bool Close();

  // The same wait with the gate left as it is.
  bool WaitForDelivery();

  // Calls, unless the gate is closed (then false). For threads that block SIGINT:
  // the SIGINT handler closes the gate.
  template <typename Call>
  bool Pass(Call&& call) {
    if (!Enter()) return false;
    const Passage passage{*this};
    std::forward<Call>(call)();
    return true;
  }

 private:
  struct Passage {
    DeliveryGate& gate;
    ~Passage() { gate.Leave(); }
  };

  bool Enter();
  void Leave();

  std::mutex mutex_;
  std::condition_variable left_;
  bool open_ = true;
  std::thread::id inside_;  // nobody: the default id
  std::uint64_t deliveries_ = 0;
};

}  // namespace VeltranoSDK::Utility
