#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>

#include "Loan.h"

namespace python {

// What a frame handler got.
struct Delivery {
  unsigned first = 0;   // width, or strips
  unsigned second = 0;  // height, or bytes
  std::shared_ptr<Loan> loan;
};

// Takes frames from a capture thread and hands them to one thread of Python, in order.
//
// The capture thread offers the driver's buffer and waits until Python gives it back, so nothing is
// copied. It never waits longer than the driver has buffers left: then it copies the buffer and
// goes on, and what follows is copied into a backlog until Python has caught up. When the backlog
// is full too, frames are dropped and counted. The capture thread never needs Python's lock.
class Inbox {
 public:
  enum class Stream { kImages, kStrips };
  explicit Inbox(Stream stream);
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  struct Counters {
    std::uint64_t lent = 0;       // taken by Python as the driver's buffer
    std::uint64_t copied = 0;     // into the backlog, or because Python kept the buffer for long
    std::uint64_t detached = 0;   // copied because arrays outlived their turn
    std::uint64_t dropped = 0;    // the backlog was full
    std::uint64_t unclaimed = 0;  // nobody was asking for frames
  };

  // --- Capture thread
  void Deliver(unsigned first, unsigned second, const void* data);

  // --- Python
  // From now on frames are kept; the backlog may take so many bytes. The number tells this opening
  // from others.
  std::uint64_t Open(std::size_t backlog_bytes);
  // Drops what was not taken. Throws std::bad_alloc as GiveBack().
  void Close();
  // The next frame, if there is one. The previous one must have been given back.
  std::optional<Delivery> Take(std::uint64_t opening);
  // Whether this opening still is the one.
  bool IsOpen(std::uint64_t opening);
  // The caller has let go of the frame. If something else still refers to its memory, that gets a
  // copy of it. Throws std::bad_alloc: the buffer stays with it, and the capture thread waits.
  void GiveBack();
  // Before a fork: memory that is shared with the driver would be shared with the child.
  void Detach();
  // Readable while there may be a frame.
  int event() const { return event_; }
  Counters counters();

 private:
  enum class Offer {
    kNone,
    kOpen,     // the capture thread waits for Python to take it
    kTaken,    // the capture thread waits for Python to give it back
    kRevoked,  // Python has it still, as a copy
  };

  void Signal() const;
  void Unsignal() const;
  std::size_t BytesOf(unsigned first, unsigned second) const;
  void FollowRhythm(unsigned first, unsigned second, const void* data);
  void AddToBacklog(Delivery delivery);
  void WaitForRoom(std::unique_lock<std::mutex>& lock, std::size_t bytes);

  const Stream stream_;
  const int event_;

  std::mutex mutex_;
  std::condition_variable settled_;  // an offer is over, or there is more room
  bool open_ = false;
  std::uint64_t opening_ = 0;
  Offer offer_ = Offer::kNone;
  Delivery offered_;           // while kOpen
  std::weak_ptr<Loan> taken_;  // while kTaken
  std::deque<Delivery> backlog_;
  std::size_t backlog_bytes_ = 0;
  std::size_t backlog_limit_ = 0;
  std::uint64_t last_stamp_ = 0;
  std::chrono::microseconds patience_;
  Counters counters_;
};

}  // namespace python
