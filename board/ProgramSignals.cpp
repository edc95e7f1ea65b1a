#include "ProgramSignals.h"

#include <errno.h>
#include <pthread.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

#include "Board.h"
#include "RealCalls.h"

namespace board {
namespace {

// How many bytes of a signal mask the kernel knows.
constexpr std::size_t kKernelMaskBytes = (_NSIG - 1) / 8;

struct TakenSignal {
  int number;
  std::atomic<SignalHandler> handler{nullptr};  // ours; null: the board has not taken it
  struct sigaction program {};
};

constinit std::array<TakenSignal, 2> signals{{{SIGSEGV}, {SIGTRAP}}};

// Kept for a few instructions that neither fault nor wait, with all signals blocked.
constinit std::atomic<bool> locked{false};
// A child of vfork has this memory, but actions of its own.
constinit std::atomic<pid_t> owner{0};

TakenSignal* Find(int number) {
  const auto found = std::ranges::find(signals, number, &TakenSignal::number);
  return found == signals.end() ? nullptr : &*found;
}

template <typename Part>
void Locked(Part part) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  while (locked.exchange(true, std::memory_order_acquire)) {
  }
  part();
  locked.store(false, std::memory_order_release);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

struct sigaction ActionOf(SignalHandler handler) {
  struct sigaction action {};
  action.sa_sigaction = handler;
  // A program calls the board from handlers of its own, so both signals may come again.
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  action.sa_mask = DeferrableSignals();
  return action;
}

// Many programs block all signals in a handler. Registers can be reached there nevertheless.
struct sigaction WithRegisters(struct sigaction action) {
  for (const TakenSignal& signal : signals) sigdelset(&action.sa_mask, signal.number);
  return action;
}

bool Calls(const struct sigaction& action) {
  return (action.sa_flags & SA_SIGINFO) != 0 ||
         (action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN);
}

// The program's action for one signal. The action may last for one signal only.
struct sigaction Use(TakenSignal& signal) {
  struct sigaction action {};
  Locked([&] {
    action = signal.program;
    if (!Calls(action) || (action.sa_flags & SA_RESETHAND) == 0) return;
    signal.program.sa_flags &= ~SA_SIGINFO;
    signal.program.sa_handler = SIG_DFL;
  });
  return action;
}

void EndAsByDefault(int number, bool comes_again) {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  real::Sigaction(number, &action, nullptr);
  if (!comes_again) raise(number);
}

// The mask that the program's handler asks for. It ends with our own handler.
void BlockFor(const struct sigaction& action, int number, const ucontext_t& context) {
  sigset_t interrupted;
  sigset_t mask;
  sigemptyset(&interrupted);
  std::memcpy(&interrupted, &context.uc_sigmask, kKernelMaskBytes);
  sigorset(&mask, &interrupted, &action.sa_mask);
  if ((action.sa_flags & SA_NODEFER) == 0) sigaddset(&mask, number);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

}  // namespace

sigset_t DeferrableSignals() {
  sigset_t deferrable;
  sigfillset(&deferrable);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
    sigdelset(&deferrable, fault);
  }
  return deferrable;
}

void TakeSignal(int number, SignalHandler handler) {
  TakenSignal& signal = *Find(number);
  owner = getpid();
  Locked([&] {
    struct sigaction current {};
    real::Sigaction(number, nullptr, &current);
    signal.handler = handler;
    // A program can ask the kernel without the C library.
    if ((current.sa_flags & SA_SIGINFO) != 0 && current.sa_sigaction == handler) return;
    signal.program = current;
    const struct sigaction ours = ActionOf(handler);
    real::Sigaction(number, &ours, nullptr);
  });
}

void PassToProgram(int number, siginfo_t* info, void* context) {
  const struct sigaction action = Use(*Find(number));
  const bool processor = info->si_code > 0;
  if (!Calls(action)) {
    // The kernel ignores no error of the processor.
    if (action.sa_handler == SIG_IGN && !processor) return;
    // The instruction that faulted runs again; one that trapped does not.
    return EndAsByDefault(number, processor && number != SIGTRAP);
  }
  BlockFor(action, number, *static_cast<const ucontext_t*>(context));
  if ((action.sa_flags & SA_SIGINFO) != 0) {
    action.sa_sigaction(number, info, context);
  } else {
    action.sa_handler(number);
  }
}

int SetSignalAction(int number, const struct sigaction* action, struct sigaction* before) {
  TakenSignal* const signal = Find(number);
  if (signal == nullptr && action != nullptr && Board::PluggedIn()) {
    const struct sigaction open = WithRegisters(*action);
    return real::Sigaction(number, &open, before);
  }
  if (signal == nullptr || signal->handler == nullptr || owner != getpid()) {
    return real::Sigaction(number, action, before);
  }
  // The program's addresses may be wrong, so they are not used under the lock.
  struct sigaction wanted {};
  if (action != nullptr) wanted = *action;
  struct sigaction current {};
  Locked([&] {
    current = signal->program;
    if (action != nullptr) signal->program = wanted;
  });
  if (before != nullptr) *before = current;
  return 0;
}

void OwnSignalsAfterFork() {
  locked = false;
  if (owner != 0) owner = getpid();
}

}  // namespace board
