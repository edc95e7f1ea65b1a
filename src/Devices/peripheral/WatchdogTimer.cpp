#include "Devices/peripheral/WatchdogTimer.h"

#include <fcntl.h>
#include <linux/watchdog.h>

#include <cstdio>

#include "log/Log.h"
#include "thread/SystemCalls.h"

namespace VeltranoSDK {

WatchdogTimer::WatchdogTimer(int timeout_seconds, int setting)
    : timeout_seconds_(timeout_seconds), setting_(setting) {}

bool WatchdogTimer::Start() {
  const int fd = OpenDevice("/dev/watchdog", O_RDWR);
  if (fd < 0) {
    perror("Veltrano::WatchdogTimer::OnStartUp() open");
    return false;
  }
  fd_ = fd;
  if (Ioctl(fd_, WDIOC_SETTIMEOUT, &timeout_seconds_) < 0) {
    perror("Veltrano::WatchdogTimer::OnStartUp() ioctl settimeout");
    return false;
  }
  LogInfo()("enable watchdog timer");
  return true;
}

bool WatchdogTimer::Feed() {
  if (Ioctl(fd_, WDIOC_KEEPALIVE, 0) < 0) {
    perror("Veltrano::WatchdogTimer::run ioctl keepalive");
    return false;
  }
  return true;
}

}  // namespace VeltranoSDK
