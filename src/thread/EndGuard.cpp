#include "thread/EndGuard.h"

#include <errno.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "thread/SignalMask.h"

namespace VeltranoSDK {

namespace {

using Clock = std::chrono::steady_clock;

sem_t called;
std::atomic<bool> stands_in_for_main{false};
std::atomic<Clock::duration> last_moment{Clock::duration::max()};
std::atomic<pthread_t> guard{};

// An absolute time on the monotonic clock.
void WaitUntil(Clock::duration moment) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(moment);
  const timespec until{static_cast<time_t>(seconds.count()),
                       static_cast<long>(std::chrono::nanoseconds(moment - seconds).count())};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

void AcceptSigint() {
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
}

[[noreturn]] void Guard() {
  guard = pthread_self();
  for (;;) {
    if (stands_in_for_main.exchange(false)) AcceptSigint();
    const auto moment = last_moment.load();
    if (moment != Clock::duration::max()) {
      WaitUntil(moment);
      _exit(0);
    }
    while (sem_wait(&called) != 0) {
    }
  }
}

void StartGuard() {
  const SignalsBlocked inherited_by_the_guard;
  std::thread(Guard).detach();
}

// The process that has a guard; a forked child has none.
std::atomic<pid_t> guarded{0};

// Runs when main() leaves with pthread_exit, but not when the process ends.
void MainLeaves(void* /*value*/) {
  sigset_t signals;
  pthread_sigmask(SIG_BLOCK, nullptr, &signals);
  if (sigismember(&signals, SIGINT) != 0) return;
  stands_in_for_main = true;
  if (guarded == getpid()) sem_post(&called);
}

}  // namespace

void EndGuard::NoticeMain() {
  static std::atomic<bool> noticed{false};
  if (noticed || gettid() != getpid()) return;
  pthread_key_t leaving;
  if (pthread_key_create(&leaving, MainLeaves) != 0) return;
  pthread_setspecific(leaving, &called);
  noticed = true;
}

void EndGuard::Start() {
  if (guarded == getpid()) return;
  sem_init(&called, 0, 0);
  StartGuard();
  guarded = getpid();
}

void EndGuard::EndProcessBy(Clock::time_point moment) {
  last_moment = moment.time_since_epoch();
  // The handler may have interrupted the guard itself. It waits where it holds no lock, so a new
  // thread can be created here.
  if (pthread_equal(guard, pthread_self()) != 0) {
    try {
      StartGuard();
    } catch (...) {
      // Without a guard the process ends in its own time.
    }
  }
  sem_post(&called);
}

}  // namespace VeltranoSDK
