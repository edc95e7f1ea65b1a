// The signals by which the processor reports an access to a register window, SIGSEGV and SIGTRAP.
//
// On hardware an access raises no signal. So the kernel keeps the board's handlers, whatever the
// program installs and when, and the program sets and sees its own actions beside them. A signal
// that is not for the board does what the program's action asks for.
#pragma once

#include <signal.h>

namespace board {

using SignalHandler = void (*)(int number, siginfo_t* info, void* context);

// The signals that wait while a thread is inside the board or one of these handlers: all except
// those by which the processor reports an error or a register access.
sigset_t DeferrableSignals();

// From now on the signal comes to this handler first. May be called in a signal handler, and again.
void TakeSignal(int number, SignalHandler handler);

// Treats the signal as the program's own action says. The last thing that a handler does.
void PassToProgram(int number, siginfo_t* info, void* context);

// As sigaction. Signals that the board has not taken go to the kernel. With a board, no handler of
// the others blocks those that the board takes.
int SetSignalAction(int number, const struct sigaction* action, struct sigaction* before);

// In the child of a fork, whose actions are its own.
void OwnSignalsAfterFork();

}  // namespace board
