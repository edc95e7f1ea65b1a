#include "thread/SystemCalls.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>

namespace VeltranoSDK {

namespace {

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) >= 0; }

// Whether 0 to 2 are known to be open.
std::atomic<bool> occupied{false};

// Before a device is opened, so that none is on 0 to 2 even for a moment. A process that
// closes them later is noticed by AwayFromStandardStreams, once.
void OccupyStandardStreams() {
  if (occupied.load(std::memory_order_relaxed)) return;
  const int error = errno;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (IsOpen(fd)) continue;
    // The lowest free number is taken; another thread may have been faster.
    const int null = open("/dev/null", O_RDWR);  // NOLINT: to be inherited, as 0 to 2 are
    if (null > STDERR_FILENO) close(null);
  }
  occupied = true;
  errno = error;
}

}  // namespace

int OpenDevice(const char* path, int flags) {
  OccupyStandardStreams();
  // With a mode, so that it is open() in a checked build too, which a tracer stands in front of.
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
