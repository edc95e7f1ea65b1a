#pragma once

#include <sys/types.h>

namespace storm {

// Complete programs that are interrupted in the middle. Each has a preparation, which returns a
// second thread to interrupt, or 0, and work that never ends.

// Several threads that use the heap all the time, and an end that uses it too.
pid_t ShareTheHeap();
[[noreturn]] void UseTheHeap();

// A signal with a handler every millisecond during any work.
pid_t StartTheTimer();

// Starts children all the time, in every possible way, while devices are in use.
pid_t ExpectChildren();
[[noreturn]] void StartChildren();

// Two threads; a static object's destructor waits for one of them.
pid_t StartTheOtherThread();
[[noreturn]] void WorkInTwoThreads();

}  // namespace storm
