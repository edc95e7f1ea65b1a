// Arms the watchdog and lets it bite: the guest ends here, as the last of its checks.
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
