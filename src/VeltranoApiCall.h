#pragma once

// What every exported function does around its one call: trace its name, hold back cancellation,
// fetch the object that does the work and keep it alive, call it, convert the result, and stop
// exceptions.

#include <limits>
#include <memory>
#include <type_traits>

#include "DeviceManager.h"
#include "Runnable/RunnableObjectManager.h"
#include "thread/NotCancellable.h"

namespace VeltranoSDK::api {

// Marks the entry into an exported function.
class Entry {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor): __func__ is meant to become one
  Entry(const char* function, const char* file = __builtin_FILE(), int line = __builtin_LINE());

  const char* function() const { return function_; }

  // Logs an ERROR that names the function.
  void Error(const char* what) const;

  // Logs the current exception; rethrows one that may leave the library.
  void TellException() const;

 private:
  NotCancellable whole_;
  const char* function_;
  const char* file_;
  int line_;
};

inline constexpr auto kSensor = &DeviceManager::cmos_sensor_;
inline constexpr auto kTemperature = &DeviceManager::temperature_;
inline constexpr auto kFpga = &DeviceManager::fpga_logic_;
inline constexpr auto kDigitalPot = &DeviceManager::digital_pot_;
inline constexpr auto kDaChip = &DeviceManager::da_chip_;
inline constexpr auto kLaser = &DeviceManager::laser_;
inline constexpr auto kRangeLed = &DeviceManager::range_led_;
inline constexpr auto kVideo = &RunnableObjectManager::video_;
inline constexpr auto kStrip = &RunnableObjectManager::strip_;

// The result when there is nothing to call.
template <typename Result>
constexpr Result Failure() {
  if constexpr (std::is_floating_point_v<Result>) {
    return std::numeric_limits<Result>::quiet_NaN();
  } else if constexpr (!std::is_void_v<Result>) {
    return static_cast<Result>(-1);
  }
}

// Calls work(). C has no exceptions, so an exception becomes an ERROR line and the failure value.
// Only two pass: SingletonLockFailed, and the unwinding of a thread that leaves with pthread_exit.
template <typename Result, typename Work>
Result Guarded(const Entry& entry, Work work) {
  try {
    return work();
  } catch (...) {
    entry.TellException();
    return Failure<Result>();
  }
}

// A shared copy of a manager's member. When there is none it is empty, and the log has an ERROR.
template <typename Manager, typename Target>
std::shared_ptr<Target> Fetch(const Entry& entry, std::shared_ptr<Target> Manager::*member) {
  auto target = Foundation::SingletonHolder<Manager>::Instance()->*member;
  if (target == nullptr) entry.Error("no such device, call RegisterHardwareInit first");
  return target;
}

// A bool becomes 0 (true) or -1 (false); other values pass unchanged.
template <typename Result, typename Value>
Result Convert(Value value) {
  if constexpr (std::is_same_v<Value, bool>) {
    return value ? 0 : -1;
  } else {
    return static_cast<Result>(value);
  }
}

// Calls work(target).
template <typename Result, typename Manager, typename Target, typename Work>
Result Call(const Entry& entry, std::shared_ptr<Target> Manager::*member, Work work) {
  return Guarded<Result>(entry, [&]() -> Result {
    const auto target = Fetch(entry, member);
    if (target == nullptr) return Failure<Result>();
    if constexpr (std::is_void_v<Result>) {
      work(*target);
    } else {
      return Convert<Result>(work(*target));
    }
  });
}

// Calls one method and converts the arguments to its own parameter types (mostly enumerations,
// which the C interface has as plain numbers).
template <typename Result, typename Manager, typename Target, typename Value, typename... Parameter,
          typename... Argument>
Result Forward(const Entry& entry, std::shared_ptr<Target> Manager::*member,
               Value (Target::*method)(Parameter...), Argument... argument) {
  return Call<Result>(entry, member, [=](Target& target) {
    return (target.*method)(static_cast<Parameter>(argument)...);
  });
}

template <typename Result, typename Manager, typename Target, typename Value, typename... Parameter,
          typename... Argument>
Result Forward(const Entry& entry, std::shared_ptr<Target> Manager::*member,
               Value (Target::*method)(Parameter...) const, Argument... argument) {
  return Call<Result>(entry, member, [=](const Target& target) {
    return (target.*method)(static_cast<Parameter>(argument)...);
  });
}

}  // namespace VeltranoSDK::api
