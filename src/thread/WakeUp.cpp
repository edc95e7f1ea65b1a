#include "thread/WakeUp.h"

#include <errno.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <system_error>

#include "function/SystemCalls.h"

namespace VeltranoSDK {

WakeUp::~WakeUp() {
  if (fd_ >= 0) close(fd_);
}

void WakeUp::Reset() {
  if (fd_ >= 0) {
    eventfd_t rings;
    eventfd_read(fd_, &rings);  // fails when there were none
    return;
  }
  fd_ = AwayFromStandardStreams(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void WakeUp::Ring() const {
  const int error = errno;
  eventfd_write(fd_, 1);
  errno = error;
}

}  // namespace VeltranoSDK
