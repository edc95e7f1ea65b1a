#include "Runnable/Runnable.h"

#include <poll.h>

#include <array>
#include <condition_variable>
#include <mutex>

#include "log/Log.h"
#include "thread/InterruptibleWait.h"
#include "thread/NotCancellable.h"
#include "thread/SignalMask.h"
#include "thread/SystemCalls.h"
#include "thread/WakeUp.h"

namespace VeltranoSDK::Utility {

namespace {

// A worker that is asked to end and is not in a callback needs only microseconds.
constexpr unsigned kFarewellMs = 500;
constexpr unsigned kFormerWorkerMs = 3000;
// Time a worker still gets when the process ends and another's handler does not return.
constexpr std::chrono::milliseconds kToGo{50};

}  // namespace

// The worker's state, owned by both sides: the worker signs off here last, when the object may be
// gone.
struct Runnable::Life {
  std::mutex mutex;
  std::condition_variable changed;
  bool present = false;
  std::atomic<bool> cancelled = false;
  std::thread::id worker;
  WakeUp wake_up;

  bool IsWorker() const { return present && worker == std::this_thread::get_id(); }
};

class Runnable::Departure {
 public:
  explicit Departure(Life& life) : life_(life) {}
  ~Departure() {
    const std::lock_guard lock(life_.mutex);
    life_.present = false;
    life_.wake_up.Close();
    life_.changed.notify_all();
  }
  Departure(const Departure&) = delete;
  Departure& operator=(const Departure&) = delete;

 private:
  Life& life_;
};

Runnable::Runnable() : life_(std::make_shared<Life>()) {}

Runnable::~Runnable() = default;

bool Runnable::BeforeRun() { return true; }

void Runnable::AfterRun() {}

bool Runnable::Start() {
  Trace(__func__);
  if (!thread_.joinable() && !WaitUntilGone(0)) {
    Cancel();
    if (!WaitUntilGone(kFormerWorkerMs)) {
      LogError()("Runnable::Start: the earlier thread is still at work, no other is started");
      return false;
    }
  }
  gate_.Open();

  const SignalsBlocked inherited_by_the_worker;
  // A worker that finishes at once waits here until its handle is known.
  const std::lock_guard lock(life_->mutex);
  life_->wake_up.Open();
  life_->cancelled = false;
  running_ = true;
  try {
    thread_ = std::thread(Work, life_, weak_from_this().lock(), this);
  } catch (...) {
    running_ = false;
    life_->wake_up.Close();
    throw;
  }
  life_->worker = thread_.get_id();
  life_->present = true;
  return true;
}

bool Runnable::Stop() {
  Trace(__func__);
  if (!running_) return true;
  if (!thread_.joinable()) {
    LogError()("Runnable::Stop: a detached thread can only be cancelled");
    return false;
  }
  running_ = false;
  thread_.join();
  stopped_ = true;
  return true;
}

bool Runnable::Detach() {
  Trace(__func__);
  if (!thread_.joinable()) {
    LogError()("Runnable::Detach: there is no thread to detach");
    return false;
  }
  thread_.detach();
  return true;
}

void Runnable::StopDelivering() { gate_.Shut(); }

bool Runnable::Cancel() {
  Trace(__func__);
  if (!gate_.Close()) {
    LogError()("Runnable::Cancel: a callback of the application does not return");
  }
  {
    const SignalsBlocked no_handler_here;
    const std::lock_guard lock(life_->mutex);
    if (life_->present) {
      life_->cancelled = true;
      life_->changed.notify_all();
      life_->wake_up.Ring();
    }
  }
  WaitUntilGone(kFarewellMs);
  return true;
}

bool Runnable::WaitUntilGone(unsigned milliseconds) {
  bool gone = false;
  WaitInterruptibly(life_->mutex, life_->changed, {std::chrono::milliseconds(milliseconds), kToGo},
                    [this, &gone] {
                      gone = !life_->present;
                      return gone || life_->IsWorker();
                    });
  return gone;
}

bool Runnable::WaitFor(int device) const {
  if (device >= 0) {
    std::array<pollfd, 2> awaited{{{device, POLLIN, 0}, {life_->wake_up.descriptor(), POLLIN, 0}}};
    Uninterrupted([&] { return poll(awaited.data(), awaited.size(), -1); });
  }
  return !life_->cancelled;
}

void Runnable::Rest(std::chrono::milliseconds time) {
  std::unique_lock lock(life_->mutex);
  life_->changed.wait_for(lock, time, [this] { return life_->cancelled.load(); });
}

void Runnable::RegisterBeforeRunFinishFunc(std::function<void()> hook) {
  Trace(__func__);
  before_run_finish_.Replace(std::move(hook));
}

void Runnable::RegisterAfterRunFinishFunc(std::function<void()> hook) {
  Trace(__func__);
  after_run_finish_.Replace(std::move(hook));
}

void Runnable::Work(std::shared_ptr<Life> life, std::shared_ptr<Runnable> self, Runnable* object) {
  const NotCancellable to_the_end;
  const Departure signs_off_last(*life);
  const std::shared_ptr<Runnable> owner = std::move(self);
  object->ThreadRun();
}

void Runnable::ThreadRun() {
  alive_ = true;
  BeforeRun();
  if (const auto hook = before_run_finish_.Get()) (*hook)();
  while (running_ && !life_->cancelled) LoopRun();
  if (life_->cancelled) return;
  AfterRun();
  if (const auto hook = after_run_finish_.Get()) (*hook)();
  alive_ = false;
}

}  // namespace VeltranoSDK::Utility
