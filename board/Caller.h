#pragma once

#include <poll.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <cstdint>

namespace board {

// While a thread is inside the board, its cancellation is off and its signals are blocked, as in a
// system call. The reason is that a signal handler may call the board too, and its own thread must
// not hold one of the board's locks then. The outermost call saves the caller's state. The waits
// below restore it for their duration. Errno does not change, as in a system call that succeeds.
//
// These are two plain functions instead of a scope object. A caller with asynchronous cancellation
// may end just before EnterBoard has run, and a frame with destructors cannot be unwound from
// there.
//
// cancellation_point: the call is a cancellation point (read, poll, usleep), so a wait in it ends
// at once if the caller has cancellation enabled. An ioctl is not one, so it only ends a caller
// with asynchronous cancellation.
void EnterBoard(bool cancellation_point);
void LeaveBoard();

// The waits. The caller must hold no lock and have no object whose destructor matters, because the
// thread may end here, as it would in the kernel. Signals arrive as in a blocking system call, and
// their handlers may call the board. Both functions return the system call's result, or the
// negative errno.
// shared: another process may change the word.
long WaitForChange(std::atomic<std::uint32_t>* word, std::uint32_t seen, const timespec* timeout,
                   bool shared);
// A signal that has arrived since the thread entered the board also ends the wait. `signals` are
// blocked during the wait; null means those that the caller has blocked.
long WaitForAny(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals);

// During a fork no thread is inside, so the child finds the board idle: no lock of the board is
// held, and no work is half done.
void KeepEverybodyOut();
void LetEverybodyIn(bool child);

}  // namespace board
