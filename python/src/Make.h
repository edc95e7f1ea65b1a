#pragma once

#include <pybind11/pybind11.h>

#include <chrono>
#include <mutex>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "Listening.h"

namespace python {

// Gives what the library said to the Python side, which logs it and keeps it for errors.
void Report(Listening& listening);

// Most functions must not overlap with others, and waiting for the few that may costs nothing.
std::timed_mutex& OneCallAtATime();

// Makes one call without Python's lock.
template <typename Call>
auto Make(const char* name, Call call) {
  using Result = decltype(call());
  constexpr std::chrono::seconds kLongestCall{20};
  Listening listening;
  const auto make = [&]() -> Result {
    const pybind11::gil_scoped_release release;
    const std::unique_lock lock(OneCallAtATime(), kLongestCall);
    if (!lock) {
      throw std::runtime_error(std::string(name) + " waited 20 s for a call of another thread");
    }
    return call();
  };
  if constexpr (std::is_void_v<Result>) {
    make();
    Report(listening);
  } else {
    Result result = make();
    Report(listening);
    return result;
  }
}

}  // namespace python
