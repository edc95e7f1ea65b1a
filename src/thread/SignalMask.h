#pragma once

#include <pthread.h>
#include <signal.h>

namespace VeltranoSDK {

// Blocks all signals on this thread for a scope, except those that report its own faults.
//
// Used around every lock: the library's SIGINT handler takes some of them, and a handler of the
// application may end the process, whose atexit functions call the library. Neither may find its
// own thread holding a lock. Also used while the library starts a thread, which inherits the mask:
// no signal ends its waits, and no handler of the application runs on it.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
      sigdelset(&signals, fault);
    }
    pthread_sigmask(SIG_BLOCK, &signals, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

}  // namespace VeltranoSDK
