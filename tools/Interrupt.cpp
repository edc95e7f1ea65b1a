#include "Interrupt.h"

#include <semaphore.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <thread>
#include <utility>

namespace tool {
namespace {

std::atomic<int> interrupts = 0;
std::atomic<int> last_signal = 0;
sem_t requests;  // the first and the second

// For what the command does after an interrupt; a reader may never read again.
constexpr timespec kGrace{5, 0};

// These mean that the user has gone. They come more than once, which is not impatience.
bool ComesFromAPerson(int signal) { return signal != SIGPIPE && signal != SIGHUP; }

void OnInterrupt(int signal) {
  if (!ComesFromAPerson(signal)) {
    int none = 0;
    if (interrupts.compare_exchange_strong(none, 1)) sem_post(&requests);
    return;
  }
  last_signal = signal;
  switch (interrupts.fetch_add(1)) {
    case 0:
    case 1:
      sem_post(&requests);
      return;
    default:
      _exit(128 + signal);
  }
}

constexpr std::array kStops{SIGTSTP, SIGTTIN, SIGTTOU};

struct StopHook {
  void (*before)();
  void (*after)();
};
std::array<StopHook, 2> stop_hooks;  // the laser and the screen
std::atomic<std::size_t> stop_hook_count = 0;

void OnStop(int signal) {
  const int error = errno;
  const std::size_t hooks = stop_hook_count;
  for (std::size_t i = 0; i < hooks; ++i) stop_hooks[i].before();
  struct sigaction standard {};
  struct sigaction ours {};
  standard.sa_handler = SIG_DFL;
  sigaction(signal, &standard, &ours);
  sigset_t only;
  sigset_t before;
  sigemptyset(&only);
  sigaddset(&only, signal);
  raise(signal);
  pthread_sigmask(SIG_UNBLOCK, &only, &before);  // stops here
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  sigaction(signal, &ours, nullptr);
  for (std::size_t i = hooks; i > 0; --i) stop_hooks[i - 1].after();
  errno = error;
}

void Catch(int signal, void (*handler)(int) = OnInterrupt) {
  struct sigaction action {};
  action.sa_handler = handler;
  if (handler == OnStop) {
    // One stop at a time, and what it interrupts goes on afterwards.
    for (const int stop : kStops) sigaddset(&action.sa_mask, stop);
    action.sa_flags = SA_RESTART;
  }
  sigaction(signal, &action, nullptr);
}

bool IsIgnored(int signal) {
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

}  // namespace

void CatchInterrupts(std::function<void()> last_resort) {
  sem_init(&requests, /*pshared=*/0, 0);
  const SignalsBlocked inherited;
  std::thread([last_resort = std::move(last_resort)] {
    while (sem_wait(&requests) != 0) {
    }
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += kGrace.tv_sec;
    if (sem_clockwait(&requests, CLOCK_MONOTONIC, &until) != 0) {
      last_resort();  // light without anybody who takes frames
      while (sem_wait(&requests) != 0) {
      }
    }
    last_resort();
    for (std::size_t i = 0; i < stop_hook_count; ++i) stop_hooks[i].before();
    EndProcess(128 + last_signal);
  }).detach();
  for (const int signal : {SIGINT, SIGTERM, SIGQUIT, SIGPIPE}) Catch(signal);
  if (!IsIgnored(SIGHUP)) Catch(SIGHUP);  // ignored: started with nohup
}

void EndProcess(int status) {
  static std::atomic<bool> ending = false;
  while (ending.exchange(true)) pause();
  std::exit(status);
}

bool Interrupted() { return interrupts > 0; }

void AtStop(void (*before)(), void (*after)()) {
  stop_hooks.at(stop_hook_count) = {before, after};
  ++stop_hook_count;
  for (const int signal : kStops) {
    if (!IsIgnored(signal)) Catch(signal, OnStop);  // ignored: no shell would make it go on
  }
}

SignalsBlocked::SignalsBlocked() {
  sigset_t all;
  sigfillset(&all);
  // A thread's own faults. The virtual board lives on one of them.
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP}) sigdelset(&all, fault);
  pthread_sigmask(SIG_SETMASK, &all, &before_);
}

SignalsBlocked::~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

// Sleeps until a point in time, because the virtual board scales relative sleeps. In slices,
// because a signal may come just before a sleep, or to another thread.
bool PauseFor(std::chrono::milliseconds time) {
  constexpr std::chrono::milliseconds kSlice{50};
  constexpr long kNsPerSecond = 1'000'000'000;
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + time;
  while (!Interrupted() && Clock::now() < end) {
    const auto until = std::min(end, Clock::now() + kSlice).time_since_epoch();
    const auto ns = std::chrono::nanoseconds(until).count();
    const timespec point{ns / kNsPerSecond, ns % kNsPerSecond};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &point, nullptr);
  }
  return Interrupted();
}

}  // namespace tool
