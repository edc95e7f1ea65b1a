// Arms the watchdog and lets it bite. This is the guest's last check, because it ends the guest.
#include <unistd.h>

#include <cstdio>

#include "Devices/peripheral/WatchdogTimer.h"

int main() {
  constexpr int kSeconds = 1;
  VeltranoSDK::WatchdogTimer timer(kSeconds);
  if (!timer.Start() || !timer.Feed()) return 1;
  sleep(20);
  std::puts("the watchdog did not bite");
  return 1;
}
