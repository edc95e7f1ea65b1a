#include "record/WriteQueue.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <utility>

namespace tool {
namespace {

std::int64_t HostNs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec * 1'000'000'000ll + now.tv_nsec;
}

// Signals are for the application's threads.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace

WriteQueue::WriteQueue(BagWriter& writer, const Settings& settings)
    : writer_(writer), settings_(settings) {
  const SignalsBlocked inherited;
  thread_ = std::thread([this] { Run(); });
}

WriteQueue::~WriteQueue() {
  {
    const std::lock_guard lock(mutex_);
    waiting_.clear();
    waiting_bytes_ = 0;
  }
  End();
}

WriteQueue::Counts WriteQueue::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

bool WriteQueue::PutCoded(Topic topic, std::int64_t stamp_ns, std::uint64_t frames, Cdr cdr) {
  const std::lock_guard lock(mutex_);
  // A message larger than all room passes when nothing else waits.
  const bool fits = waiting_.empty() || waiting_bytes_ + cdr.size() <= settings_.most_bytes;
  if (!fits || failed_ || ending_) {
    counts_.dropped_frames += frames;
    counts_.dropped_messages += frames == 0 ? 1 : 0;
    return false;
  }
  waiting_bytes_ += cdr.size();
  waiting_.push_back({topic, stamp_ns, std::move(cdr)});
  changed_.notify_one();
  return true;
}

void WriteQueue::Finish() {
  End();
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
  WriteLosses();
  writer_.Close();
}

void WriteQueue::End() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void WriteQueue::Run() {
  try {
    WriteAll();
  } catch (...) {
    failure_ = std::current_exception();
    failed_ = true;
  }
}

void WriteQueue::WriteAll() {
  using Clock = std::chrono::steady_clock;
  Clock::time_point next_sync = Clock::now() + settings_.sync_period;
  bool unsynced = false;
  for (std::unique_lock lock(mutex_);;) {
    changed_.wait_until(lock, next_sync, [this] { return ending_ || !waiting_.empty(); });
    if (!waiting_.empty()) {
      const Item item = std::move(waiting_.front());
      waiting_.pop_front();
      lock.unlock();
      writer_.Write(item.topic, item.stamp_ns, item.cdr);
      unsynced = true;
      lock.lock();
      // It still takes room while it is written.
      waiting_bytes_ -= item.cdr.size();
      ++counts_.written;
      counts_.written_bytes += item.cdr.size();
    } else if (ending_) {
      return;
    }
    if (Clock::now() < next_sync) continue;
    lock.unlock();
    if (WriteLosses() || unsynced) writer_.Sync();
    unsynced = false;
    next_sync = Clock::now() + settings_.sync_period;
    lock.lock();
  }
}

bool WriteQueue::WriteLosses() {
  const Counts counts = this->counts();
  LossesMessage losses;
  losses.frames_by_device = lost_by_device_;
  losses.frames_by_recorder = counts.dropped_frames;
  losses.messages_by_recorder = counts.dropped_messages;
  if (losses.frames_by_device == told_.frames_by_device &&
      losses.frames_by_recorder == told_.frames_by_recorder &&
      losses.messages_by_recorder == told_.messages_by_recorder) {
    return false;
  }
  losses.stamp_ns = HostNs();
  writer_.Write(Topic::kLosses, losses.stamp_ns, Encode(losses));
  told_ = losses;
  return true;
}

}  // namespace tool
