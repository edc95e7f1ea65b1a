// The actions of the process's signals.

#include <errno.h>
#include <signal.h>

#include "ProgramSignals.h"
#include "RealCalls.h"

namespace board {
namespace {

// The two of the C library differ in what they do to a handler that runs.
__sighandler_t SetHandler(int number, __sighandler_t handler, int flags, bool blocks) {
  if (handler == SIG_ERR) {
    errno = EINVAL;
    return SIG_ERR;
  }
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  if (blocks) sigaddset(&action.sa_mask, number);
  return SetSignalAction(number, &action, &before) < 0 ? SIG_ERR : before.sa_handler;
}

bool MayBeTaken(int number) { return number == SIGSEGV || number == SIGTRAP; }

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

int sigaction(int number, const struct sigaction* action, struct sigaction* before) {
  return board::SetSignalAction(number, action, before);
}

int __sigaction(int number, const struct sigaction* action, struct sigaction* before) {
  return board::SetSignalAction(number, action, before);
}

__sighandler_t signal(int number, __sighandler_t handler) {
  if (!board::MayBeTaken(number)) return board::real::Signal(number, handler);
  return board::SetHandler(number, handler, SA_RESTART, true);
}

__sighandler_t bsd_signal(int number, __sighandler_t handler) { return signal(number, handler); }

__sighandler_t ssignal(int number, __sighandler_t handler) { return signal(number, handler); }

__sighandler_t sysv_signal(int number, __sighandler_t handler) {
  if (!board::MayBeTaken(number)) return board::real::SysvSignal(number, handler);
  return board::SetHandler(number, handler, SA_RESETHAND | SA_NODEFER, false);
}

__sighandler_t __sysv_signal(int number, __sighandler_t handler) {
  return sysv_signal(number, handler);
}

}  // extern "C"
#pragma GCC visibility pop
