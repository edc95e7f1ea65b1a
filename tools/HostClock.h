#pragma once

#include <chrono>
#include <cstdint>

namespace tool {

// The host's clock, nanoseconds since 1970, as records and messages have it.
inline std::int64_t HostNs() {
  return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

// The same in seconds, as pages and the log show it.
inline double HostSeconds() { return static_cast<double>(HostNs()) * 1e-9; }

}  // namespace tool
