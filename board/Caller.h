#pragma once

#include <poll.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <cstdint>

namespace board {

// While a thread is inside the board, its cancellation is off and its signals are blocked, as
// in a system call: a signal handler may call the board too, and must not find its own thread
// holding one of the board's locks. The outermost call saves the caller's state; the waits
// below restore it while they last. Errno is left alone, as by a system call that succeeds.
//
// These are two plain functions instead of a scope object, because a caller with asynchronous
// cancellation may be ended just before EnterBoard has run, and a frame with destructors
// cannot be unwound from there.
//
// cancellation_point: the call is a cancellation point (read, poll, usleep), so a wait in it
// ends at once if the caller has cancellation enabled. An ioctl is not one: only a caller with
// asynchronous cancellation is ended in it.
void EnterBoard(bool cancellation_point);
void LeaveBoard();

// The waits. The caller must hold no lock and have no object whose destructor matters: the
// thread may end right here, as it would in the kernel. Signals come through as in a blocking
// system call, and their handlers may call the board. Both return what the system call
// returns, or the negative errno.
long WaitForChange(std::atomic<std::uint32_t>* word, std::uint32_t seen, const timespec* timeout);
// A signal that has arrived since the thread entered the board ends the wait too. `signals`
// are blocked meanwhile; null: those that the caller has blocked.
long WaitForAny(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals);

// During a fork no thread is inside, so the child finds everything at rest: no lock of the
// board is held, and no work is half done.
void KeepEverybodyOut();
void LetEverybodyIn(bool child);

}  // namespace board
