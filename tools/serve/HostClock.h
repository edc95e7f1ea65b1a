#pragma once

#include <chrono>

namespace tool::serve {

// The host's clock in seconds since 1970, as the messages and the log show it.
inline double HostSeconds() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace tool::serve
