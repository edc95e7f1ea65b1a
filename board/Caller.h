#pragma once

#include <poll.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <cstdint>

namespace board {

// While a thread is inside the board its cancellation is off and its signals wait, as
// they do for a system call: a handler must not find its own thread holding a lock of
// the board, which it may need itself. The outermost call remembers what the caller
// had; the waits below put that back while they last. Two plain functions and no scope
// object: a caller whose cancellation is asynchronous may be ended just before
// EnterBoard has run, and a frame with destructors cannot be unwound from there. What
// the board does inside leaves errno alone, as a system call that succeeds does.
//
// cancellation_point: the call is one (read, poll, usleep), so that a wait in it
// ends at once when the caller's cancellation is enabled. An ioctl is none: only a
// caller with asynchronous cancellation is ended in it.
void EnterBoard(bool cancellation_point);
void LeaveBoard();

// The waits. Nothing may be locked and no object with a destructor that matters may be
// alive in the caller: the thread may end right here, as it would in the kernel. Signals
// come through as in a blocking system call, and what their handlers ask of the board
// are calls of their own. Both return what the system call does, or the negative errno.
long WaitForChange(std::atomic<std::uint32_t>* word, std::uint32_t seen, const timespec* timeout);
// A signal that has come since the thread entered the board ends it too. `signals` are
// blocked meanwhile; null: those that the caller has blocked.
long WaitForAny(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals);

// Over a fork nobody is inside, so that the child finds everything at rest: no lock of the
// board is held, and no work half done.
void KeepEverybodyOut();
void LetEverybodyIn(bool child);

}  // namespace board
