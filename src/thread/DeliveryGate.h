#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>

namespace VeltranoSDK::Utility {

// Every call of an application callback passes this gate. Once it is closed, no further call
// begins.
class DeliveryGate {
 public:
  // A callback may wait for the thread that closes the gate, so the wait is limited.
  static constexpr std::chrono::seconds kPatience{3};

  void Open();

  // No delivery begins after this.
  void Shut();

  // No delivery begins after this. Waits for the delivery in progress, unless this is the thread
  // that delivers it; false when the wait has timed out.
  bool Close();

  // The same wait; the gate stays as it is.
  bool WaitForDelivery();

  // Calls unless the gate is closed (then false). For threads that block SIGINT: the SIGINT handler
  // closes the gate.
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
  std::thread::id inside_;  // the default id: nobody
  std::uint64_t deliveries_ = 0;
};

}  // namespace VeltranoSDK::Utility
