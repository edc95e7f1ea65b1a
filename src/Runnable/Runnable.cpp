#include "Runnable/Runnable.h"

#include <pthread.h>
#include <stdio.h>

#include <condition_variable>
#include <mutex>

#include "function/CancellationScope.h"
#include "function/InterruptibleWait.h"
#include "function/SignalMask.h"
#include "log/Log.h"

namespace VeltranoSDK::Utility {

namespace {

// A cancelled worker that is not inside a callback needs microseconds to go.
constexpr unsigned kFarewellMs = 500;
constexpr unsigned kFormerWorkerMs = 3000;
// What the process's end leaves to a worker, though another one's handler does not return.
constexpr std::chrono::milliseconds kToUnwind{50};

}  // namespace

// What is known of the worker. It belongs to both sides: the worker's last act is
// to sign off here, when the object may have been destroyed already.
struct Runnable::Life {
  std::mutex mutex;
  std::condition_variable changed;
  bool present = false;
  bool cancelled = false;
  CancellationRequest request;
  pthread_t worker{};

  bool IsWorker() const { return present && pthread_equal(worker, pthread_self()); }
};

class Runnable::Departure {
 public:
  explicit Departure(Life& life) : life_(life) {}
  ~Departure() {
    const std::lock_guard lock(life_.mutex);
    life_.present = false;
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
      LogError("Runnable::Start: the earlier thread is still at work, no other is started");
      return false;
    }
  }
  PrepareCancellation();
  running_ = true;
  gate_.Open();

  // The worker inherits the blocked signal.
  const SigintBlocked no_handler_here;
  // A worker that is done at once waits here until its handle is known.
  const std::lock_guard lock(life_->mutex);
  life_->request.Reset();
  thread_ = std::thread(Work, life_, weak_from_this().lock(), this);
  life_->worker = thread_.native_handle();
  life_->present = true;
  life_->cancelled = false;
  return true;
}

bool Runnable::Stop() {
  Trace(__func__);
  if (!running_) return true;
  if (!thread_.joinable()) {
    LogError("Runnable::Stop: a detached thread can only be cancelled");
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
    LogError("Runnable::Detach: there is no thread to detach");
    return false;
  }
  thread_.detach();
  return true;
}

void Runnable::StopDelivering() { gate_.Shut(); }

bool Runnable::Cancel() {
  Trace(__func__);
  if (!gate_.Close()) {
    LogError("Runnable::Cancel: a callback of the application does not return");
  }
  int result = 0;
  {
    const SigintBlocked no_handler_here;
    const std::lock_guard lock(life_->mutex);
    if (life_->present) {
      life_->cancelled = true;
      life_->changed.notify_all();
      result = life_->request.Make(life_->worker);
    }
  }
  if (result < 0) {
    puts("Runnable::Cancel pthread_cancel error!");
    return false;
  }
  WaitUntilGone(kFarewellMs);
  return true;
}

bool Runnable::WaitUntilGone(unsigned milliseconds) {
  bool gone = false;
  WaitInterruptibly(life_->mutex, life_->changed,
                    {std::chrono::milliseconds(milliseconds), kToUnwind}, [this, &gone] {
                      gone = !life_->present;
                      return gone || life_->IsWorker();
                    });
  return gone;
}

void Runnable::Rest(std::chrono::milliseconds time) {
  std::unique_lock lock(life_->mutex);
  life_->changed.wait_for(lock, time, [this] { return life_->cancelled; });
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
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  AnswerTo(life->request);
  const Departure signs_off_last(*life);
  const std::shared_ptr<Runnable> owner = std::move(self);
  object->ThreadRun();
}

void Runnable::ThreadRun() {
  alive_ = true;
  BeforeRun();
  if (const auto hook = before_run_finish_.Get()) (*hook)();
  while (running_) {
    LoopRun();
    // A pass need not block: its thread must be possible to end too.
    const CancellationScope between_passes;
  }
  AfterRun();
  if (const auto hook = after_run_finish_.Get()) (*hook)();
  alive_ = false;
}

}  // namespace VeltranoSDK::Utility
