#pragma once

#include <sys/types.h>

#include "support/LoopedVideo.h"

namespace kernel_test {

// Both video devices of a K3610 capture, and nothing comes: whoever dequeues is blocked.
class Silence {
 public:
  Silence();

 private:
  LoopedVideo images_, strips_;
};

// At least so many threads of this process sleep where the kernel lets a thread wait for
// a buffer, by the kernel's own account.
bool ThreadsWaitForABuffer(pid_t process, int count);

}  // namespace kernel_test
