#include "thread/WakeUp.h"

#include <errno.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <system_error>
#include <utility>

#include "thread/SystemCalls.h"

namespace VeltranoSDK {

WakeUp::~WakeUp() { Close(); }

void WakeUp::Open() {
  Close();
  fd_ = AwayFromStandardStreams(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void WakeUp::Close() {
  if (fd_ >= 0) close(std::exchange(fd_, -1));
}

void WakeUp::Ring() const {
  const int error = errno;
  eventfd_write(fd_, 1);
  errno = error;
}

}  // namespace VeltranoSDK
