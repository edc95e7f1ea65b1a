#pragma once

#include <pthread.h>
#include <signal.h>

namespace VeltranoSDK {

// Keeps signals away from this thread for a scope.
class SignalsBlocked {
 public:
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 protected:
  explicit SignalsBlocked(const sigset_t& signals) {
    pthread_sigmask(SIG_BLOCK, &signals, &before_);
  }

 private:
  sigset_t before_;
};

// Around every lock that the SIGINT handler takes too, so that it can never find its own
// thread holding it.
class SigintBlocked : public SignalsBlocked {
 public:
  SigintBlocked() : SignalsBlocked(Interrupt()) {}

 private:
  static sigset_t Interrupt() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    return signals;
  }
};

// While a thread of the library is started, which inherits it: no signal interrupts the
// waiting of such a thread, and no handler of the application runs on it. All signals but
// those by which the processor reports a mistake of the very thread.
class AsynchronousSignalsBlocked : public SignalsBlocked {
 public:
  AsynchronousSignalsBlocked() : SignalsBlocked(Asynchronous()) {}

 private:
  static sigset_t Asynchronous() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
      sigdelset(&signals, fault);
    }
    return signals;
  }
};

}  // namespace VeltranoSDK
