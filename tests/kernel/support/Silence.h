#pragma once

#include <sys/types.h>

#include "support/LoopedVideo.h"

namespace kernel_test {

// Both video devices of a K3610 capture, and nothing comes: whoever wants a frame waits.
class Silence {
 public:
  Silence();

 private:
  LoopedVideo images_, strips_;
};

// At least so many threads of this process sleep in poll, by the kernel's own account.
bool ThreadsWaitInPoll(pid_t process, int count);

}  // namespace kernel_test
