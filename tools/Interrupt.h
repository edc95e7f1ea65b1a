#pragma once

#include <signal.h>

#include <chrono>
#include <functional>

namespace tool {

// Ctrl-C and the like (SIGTERM, SIGQUIT, a closed terminal, a closed pipe) ask the tool to end in
// order. The library's own handler would end the process in the middle of a file. If that takes
// five seconds, `last_resort` runs on a thread of its own. A second request runs it at once and
// ends the process; a third only ends it.
void CatchInterrupts(std::function<void()> last_resort);

bool Interrupted();

// When the process is about to stop (Ctrl-Z) it runs `before`, and when it goes on, `after`. Both
// run in a signal handler on the main thread.
void AtStop(void (*before)(), void (*after)());

// While it lives, signals go to other threads; a thread that is started meanwhile gets none ever,
// but for its own faults.
class SignalsBlocked {
 public:
  SignalsBlocked();
  ~SignalsBlocked();
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

// Ends the process. Only the first thread that calls it gets through.
[[noreturn]] void EndProcess(int status);

// Sleeps in real time, and wakes up for an interrupt. True if there was one.
bool PauseFor(std::chrono::milliseconds time);

}  // namespace tool
