#pragma once

#include <signal.h>
#include <time.h>

#include <atomic>
#include <cstdint>

namespace board {

// While a thread is inside the board its cancellation is off and its signals wait, as
// they do for a system call: a handler must not find its own thread holding a lock of
// the board, which it may need itself. The outermost call remembers what the caller
// had; the wait below puts that back while it lasts. Two plain functions and no scope
// object: a caller whose cancellation is asynchronous may be ended just before
// EnterBoard has run, and a frame with destructors cannot be unwound from there.
//
// cancellation_point: the call is one (read, poll, usleep), so that a wait in it
// ends at once when the caller's cancellation is enabled. An ioctl is none: only a
// caller with asynchronous cancellation is ended in it.
void EnterBoard(bool cancellation_point);
void LeaveBoard();

// The wait. Nothing may be locked and no object with a destructor that matters may be
// alive in the caller: the thread may end right here, as it would in the kernel. Signals
// come through as in a blocking system call, and what their handlers ask of the board
// are calls of their own. Returns what the system call does, or the negative errno.
long WaitForChange(std::atomic<std::uint32_t>* word, std::uint32_t seen, const timespec* timeout);

// Over a fork nobody is inside, so that the child finds everything at rest: no lock of the
// board is held, and no work half done.
void KeepEverybodyOut();
void LetEverybodyIn(bool child);

}  // namespace board
