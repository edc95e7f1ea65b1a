#include "time/KernelClock.h"

namespace tool {
namespace {

constexpr std::int64_t kNsOfMicrosecond = 1000;

// Programs that know none leave zero.
std::optional<std::int64_t> Known(long microseconds) {
  if (microseconds <= 0) return std::nullopt;
  return microseconds * kNsOfMicrosecond;
}

}  // namespace

KernelClock KernelClock::Read() {
  timex kernel{};
  const int state = ntp_adjtime(&kernel);
  return From(kernel, state);
}

KernelClock KernelClock::From(const timex& kernel, int state) {
  KernelClock clock;
  clock.synchronised = state >= 0 && state != TIME_ERROR && (kernel.status & STA_UNSYNC) == 0;
  if (clock.synchronised) {
    clock.most_error_ns = Known(kernel.maxerror);
    // A program that never states one leaves what the kernel starts with, 16 s.
    if (kernel.esterror <= kernel.maxerror) clock.likely_error_ns = Known(kernel.esterror);
  }
  if (state >= 0 && kernel.tai != 0) clock.tai_offset_s = kernel.tai;
  return clock;
}

}  // namespace tool
