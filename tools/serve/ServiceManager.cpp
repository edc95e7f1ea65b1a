#include "serve/ServiceManager.h"

#include <systemd/sd-daemon.h>

#include <cstdint>

namespace tool::serve::service_manager {

void Ready(const std::string& status) {
  sd_notify(/*unset_environment=*/0, ("READY=1\nSTATUS=" + status).c_str());
}

void Stopping() { sd_notify(0, "STOPPING=1"); }

void Alive() { sd_notify(0, "WATCHDOG=1"); }

std::optional<std::chrono::microseconds> WatchdogPeriod() {
  std::uint64_t microseconds = 0;
  if (sd_watchdog_enabled(0, &microseconds) <= 0) return std::nullopt;
  return std::chrono::microseconds(microseconds);
}

}  // namespace tool::serve::service_manager
