#include "Inbox.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "tessaline/frames.h"

namespace python {

namespace {

using std::chrono::microseconds;

// Half of what the drivers have, 10 and 18: while the capture thread waits, the others fill.
constexpr std::uint64_t kImagesToSpare = 5;
constexpr std::uint64_t kStripBuffersToSpare = 9;
constexpr microseconds kLeastPatience{2'000};
constexpr microseconds kMostPatience{1'000'000};
// Until two frames have shown how fast they come.
constexpr microseconds kFirstPatience{10'000};

// Where the time stamp stands in both headers.
constexpr std::size_t kStampAt = offsetof(tessaline_strip_header, time_stamp);
static_assert(kStampAt == offsetof(tessaline_image_header, time_stamp));

}  // namespace

Inbox::Inbox(Stream stream)
    : stream_(stream), event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), patience_(kFirstPatience) {}

void Inbox::Signal() const {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(event_, &one, sizeof one);
}

void Inbox::Unsignal() const {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t got = read(event_, &count, sizeof count);
}

std::size_t Inbox::BytesOf(unsigned first, unsigned second) const {
  if (stream_ == Stream::kStrips) return second;
  return std::size_t{first} * second + sizeof(tessaline_image_header);
}

void Inbox::FollowRhythm(unsigned first, unsigned second, const void* data) {
  if (stream_ == Stream::kStrips && second < sizeof(tessaline_strip_header)) return;
  const std::size_t header = stream_ == Stream::kStrips ? 0 : std::size_t{first} * second;
  std::uint64_t stamp = 0;
  std::memcpy(&stamp, static_cast<const std::uint8_t*>(data) + header + kStampAt, sizeof stamp);
  const std::uint64_t before = std::exchange(last_stamp_, stamp);
  if (before == 0 || stamp <= before) return;
  const std::uint64_t spare = stream_ == Stream::kStrips ? kStripBuffersToSpare : kImagesToSpare;
  const std::uint64_t most = static_cast<std::uint64_t>(kMostPatience.count());
  const std::uint64_t period = (stamp - before) * TESSALINE_NANOSECONDS_PER_TICK / 1000;
  patience_ =
      std::max(kLeastPatience, microseconds(std::min(most, std::min(most, period) * spare)));
}

void Inbox::AddToBacklog(Delivery delivery) {
  ++counters_.copied;
  backlog_bytes_ += delivery.loan->bytes();
  backlog_.push_back(std::move(delivery));
  Signal();
}

void Inbox::WaitForRoom(std::unique_lock<std::mutex>& lock, std::size_t bytes) {
  settled_.wait_for(lock, patience_,
                    [&] { return !open_ || backlog_bytes_ + bytes <= backlog_limit_; });
}

void Inbox::Deliver(unsigned first, unsigned second, const void* data) try {
  const std::size_t bytes = BytesOf(first, second);
  std::unique_lock lock(mutex_);
  FollowRhythm(first, second, data);
  if (open_ && (offer_ != Offer::kNone || !backlog_.empty())) {
    // Python is behind: it has a frame, or frames wait for it.
    WaitForRoom(lock, bytes);
    if (open_ && backlog_bytes_ + bytes > backlog_limit_) {
      ++counters_.dropped;
      return;
    }
    if (open_) {
      AddToBacklog({first, second, Loan::CopyOf(data, bytes)});
      return;
    }
  }
  if (!open_) {
    ++counters_.unclaimed;
    return;
  }
  offered_ = {first, second, Loan::Of(data, bytes)};
  offer_ = Offer::kOpen;
  Signal();
  const auto is_over = [this] { return offer_ == Offer::kNone || offer_ == Offer::kRevoked; };
  if (settled_.wait_for(lock, patience_, is_over)) return;
  if (offer_ == Offer::kOpen) {
    offered_ = {};
    offer_ = Offer::kNone;
    AddToBacklog({first, second, Loan::CopyOf(data, bytes)});
    return;
  }
  try {
    if (const auto loan = taken_.lock()) loan->Detach();
    ++counters_.copied;
    offer_ = Offer::kRevoked;
  } catch (const std::bad_alloc&) {
    // There is no memory for a copy. The buffer must stay as it is until Python lets go.
    while (!is_over() && !taken_.expired()) settled_.wait_for(lock, kFirstPatience);
    offer_ = Offer::kNone;
  }
} catch (const std::bad_alloc&) {
  const std::lock_guard lock(mutex_);
  ++counters_.dropped;
}

std::uint64_t Inbox::Open(std::size_t backlog_bytes) {
  const std::lock_guard lock(mutex_);
  open_ = true;
  backlog_limit_ = backlog_bytes;
  last_stamp_ = 0;
  patience_ = kFirstPatience;
  Unsignal();
  return ++opening_;
}

void Inbox::Close() {
  GiveBack();
  {
    const std::lock_guard lock(mutex_);
    open_ = false;
    Signal();  // whoever waits
    offered_ = {};
    offer_ = Offer::kNone;
    backlog_.clear();
    backlog_bytes_ = 0;
  }
  settled_.notify_all();
}

bool Inbox::IsOpen(std::uint64_t opening) {
  const std::lock_guard lock(mutex_);
  return open_ && opening == opening_;
}

void Inbox::Detach() {
  {
    const std::lock_guard lock(mutex_);
    if (offer_ != Offer::kTaken) return;
    if (const auto loan = taken_.lock()) loan->Detach();
    offer_ = Offer::kRevoked;
  }
  settled_.notify_all();
}

std::optional<Delivery> Inbox::Take(std::uint64_t opening) {
  const std::lock_guard lock(mutex_);
  if (!open_ || opening != opening_) return std::nullopt;
  Unsignal();
  if (!backlog_.empty()) {
    Delivery next = std::move(backlog_.front());
    backlog_.pop_front();
    backlog_bytes_ -= next.loan->bytes();
    settled_.notify_all();
    return next;
  }
  if (offer_ != Offer::kOpen) return std::nullopt;
  offer_ = Offer::kTaken;
  taken_ = offered_.loan;
  if (offered_.loan->borrowed()) {
    ++counters_.lent;
  } else {
    ++counters_.copied;
  }
  return std::exchange(offered_, {});
}

void Inbox::GiveBack() {
  {
    const std::lock_guard lock(mutex_);
    if (offer_ != Offer::kTaken && offer_ != Offer::kRevoked) return;
    const auto loan = taken_.lock();
    if (loan && loan->borrowed()) {
      loan->Detach();
      ++counters_.detached;
    }
    offer_ = Offer::kNone;
  }
  settled_.notify_all();
}

Inbox::Counters Inbox::counters() {
  const std::lock_guard lock(mutex_);
  return counters_;
}

}  // namespace python
