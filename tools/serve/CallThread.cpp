#include "serve/CallThread.h"

#include <memory>
#include <utility>

#include "Interrupt.h"

namespace tool::serve {
namespace {

constexpr std::size_t kMostWaiting = 32;
constexpr std::chrono::seconds kPatienceAtTheEnd{3};

}  // namespace

CallThread::CallThread(std::function<void()> idle, std::chrono::milliseconds idle_every)
    : shared_(std::make_shared<Shared>()) {
  shared_->idle = std::move(idle);
  shared_->idle_every = idle_every;
}

void CallThread::Start() {
  shared_->ended = false;
  const SignalsBlocked inherited;
  std::thread([shared = shared_] { Run(shared); }).detach();
}

CallThread::~CallThread() { Stop(); }

bool CallThread::Stop() {
  std::unique_lock lock(shared_->mutex);
  shared_->stop = true;
  shared_->waiting.clear();
  shared_->changed.notify_all();
  return shared_->changed.wait_for(lock, kPatienceAtTheEnd, [this] { return shared_->ended; });
}

bool CallThread::Post(Job job, Done done, bool urgent) {
  const std::lock_guard lock(shared_->mutex);
  if (shared_->stop || (!urgent && shared_->waiting.size() >= kMostWaiting)) return false;
  const auto place = urgent ? shared_->waiting.begin() : shared_->waiting.end();
  shared_->waiting.insert(place, {std::move(job), std::move(done)});
  shared_->changed.notify_all();
  return true;
}

void CallThread::Clear() {
  std::deque<Entry> dropped;  // whose destructors run without the lock
  const std::lock_guard lock(shared_->mutex);
  dropped.swap(shared_->waiting);
}

std::optional<CallThread::Clock::duration> CallThread::BusyFor() const {
  const std::lock_guard lock(shared_->mutex);
  if (!shared_->busy_since) return std::nullopt;
  return Clock::now() - *shared_->busy_since;
}

void CallThread::Run(const std::shared_ptr<Shared>& shared) {
  std::unique_lock lock(shared->mutex);
  auto idle_at = Clock::now();
  const auto without_lock = [&](const auto& work) {
    shared->busy_since = Clock::now();
    lock.unlock();
    work();
    lock.lock();
    shared->busy_since.reset();
  };
  while (!shared->stop) {
    if (Clock::now() >= idle_at) {
      without_lock([&shared] {
        try {
          shared->idle();
        } catch (const std::exception&) {  // it is tried again soon
        }
      });
      idle_at = Clock::now() + shared->idle_every;
    }
    if (shared->waiting.empty()) {
      shared->changed.wait_until(lock, idle_at);
      continue;
    }
    const Entry entry = std::move(shared->waiting.front());
    shared->waiting.pop_front();
    without_lock([&entry] {
      Json answer;
      std::exception_ptr failure;
      try {
        answer = entry.job();
      } catch (...) {
        failure = std::current_exception();
      }
      entry.done(answer, failure);
    });
  }
  shared->ended = true;
  shared->changed.notify_all();
}

}  // namespace tool::serve
