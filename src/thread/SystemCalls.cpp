#include "thread/SystemCalls.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>

namespace VeltranoSDK {

namespace {

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) >= 0; }

// Whether 0 to 2 are known to be open.
std::atomic<bool> occupied{false};

// Runs before a device is opened, so that none is on 0 to 2 even for a moment. If the process
// closes them later, AwayFromStandardStreams notices it once.
void OccupyStandardStreams() {
  if (occupied.load(std::memory_order_relaxed)) return;
  const int error = errno;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (IsOpen(fd)) continue;
    // open() takes the lowest free number; another thread may have been faster.
    const int null = open("/dev/null", O_RDWR);  // NOLINT: to be inherited, as 0 to 2 are
    if (null > STDERR_FILENO) close(null);
  }
  occupied = true;
  errno = error;
}

}  // namespace

int OpenDevice(const char* path, int flags) {
  OccupyStandardStreams();
  // Passes a mode so that a fortified build still calls open(), which tracers replace.
  return AwayFromStandardStreams(Uninterrupted([=] { return open(path, flags | O_CLOEXEC, 0); }));
}

int AwayFromStandardStreams(int fd) {
  if (fd < 0 || fd > STDERR_FILENO) return fd;
  occupied = false;
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(fd);
  errno = error;
  return moved;
}

}  // namespace VeltranoSDK
