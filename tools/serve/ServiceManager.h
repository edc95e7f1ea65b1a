#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tool::serve {

// What systemd wants to know. Without systemd these do nothing.
namespace service_manager {

void Ready(const std::string& status);
void Stopping();
// Feeds the watchdog.
void Alive();
// How often it wants to be fed; nothing if it does not watch us.
std::optional<std::chrono::microseconds> WatchdogPeriod();

}  // namespace service_manager
}  // namespace tool::serve
