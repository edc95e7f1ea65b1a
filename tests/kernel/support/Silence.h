#pragma once

#include <sys/types.h>

#include "support/LoopedVideo.h"

namespace kernel_test {

// Both video devices of a K3610 capture, but no frame arrives: a reader waits.
class Silence {
 public:
  Silence();

 private:
  LoopedVideo images_, strips_;
};

// Whether at least `count` threads of the process sleep in poll, according to the kernel.
bool ThreadsWaitInPoll(pid_t process, int count);

}  // namespace kernel_test
