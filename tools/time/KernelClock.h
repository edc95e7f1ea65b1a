#pragma once

#include <sys/timex.h>

#include <cstdint>
#include <optional>

namespace tool {

// What the kernel knows about the host's clock: the programs that set it tell the kernel how well
// they did (adjtimex(2)).
struct KernelClock {
  bool synchronised = false;
  // Only if it is synchronised. The first grows by 500 ppm until the clock is set the next time.
  std::optional<std::int64_t> most_error_ns;
  std::optional<std::int64_t> likely_error_ns;
  std::optional<int> tai_offset_s;  // TAI - UTC

  // Now. Does not change anything.
  static KernelClock Read();
  // `state`: what ntp_adjtime() returned.
  static KernelClock From(const timex& kernel, int state);
};

}  // namespace tool
