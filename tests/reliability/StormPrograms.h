#pragma once

#include <sys/types.h>

namespace storm {

// Whole programs in the middle of which the interrupt comes. Each has a preparation, which
// returns the thread that is to be interrupted too, or 0, and work that never ends.

// Several threads that use the heap all the time, and an end that uses it too.
pid_t ShareTheHeap();
[[noreturn]] void UseTheHeap();

// A signal with a handler every millisecond, whatever the work is.
pid_t StartTheTimer();

// Children are started all the time, in all ways there are, while devices are in use.
pid_t ExpectChildren();
[[noreturn]] void StartChildren();

// Two threads, one of which a static object's destructor waits for.
pid_t StartTheOtherThread();
[[noreturn]] void WorkInTwoThreads();

}  // namespace storm
