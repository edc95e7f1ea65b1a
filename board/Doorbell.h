#pragma once

#include <atomic>
#include <cstdint>

namespace board {

// What a blocked call waits on. The waiter reads Count() while it holds the lock
// under which it found nothing to do, lets the lock go, and waits for the count
// to move on; nobody's ring in between is missed.
class Doorbell {
 public:
  std::uint32_t Count() const { return count_.load(std::memory_order_acquire); }
  void Ring();

  // Waits until the count is no longer `seen`, or the timeout (nanoseconds;
  // negative: none) is over. Nothing may be locked and no object with a
  // destructor that matters may be alive in the caller: with the caller's
  // cancellation state restored, the thread may end right here, as it would in
  // the kernel. Returns false on timeout.
  bool Wait(std::uint32_t seen, std::int64_t timeout_ns = -1);

 private:
  std::atomic<std::uint32_t> count_{0};
};

// While a thread is inside the board its cancellation is off and its signals wait, as
// they do for a system call: a handler must not find its own thread holding a lock of
// the board, which it may need itself. The outermost call remembers what the caller
// had; Doorbell::Wait puts that back for the length of the wait. Two plain functions and no scope object: a caller whose cancellation
// is asynchronous may be ended just before EnterBoard has run, and a frame with
// destructors cannot be unwound from there.
//
// cancellation_point: the call is one (read, poll, usleep), so that a wait in it
// ends at once when the caller's cancellation is enabled. An ioctl is none: only a
// caller with asynchronous cancellation is ended in it.
void EnterBoard(bool cancellation_point);
void LeaveBoard();

}  // namespace board
