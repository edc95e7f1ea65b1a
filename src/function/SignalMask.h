#pragma once

#include <pthread.h>
#include <signal.h>

namespace VeltranoSDK {

// Keeps SIGINT away from this thread for a scope: around every lock that the
// SIGINT handler takes too, so that it can never find its own thread holding it.
class SigintBlocked {
 public:
  SigintBlocked() {
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, &before_);
  }
  ~SigintBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SigintBlocked(const SigintBlocked&) = delete;
  SigintBlocked& operator=(const SigintBlocked&) = delete;

 private:
  sigset_t before_;
};

}  // namespace VeltranoSDK
