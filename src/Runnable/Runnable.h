#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "log/Log.h"
#include "thread/CallbackSlot.h"
#include "thread/DeliveryGate.h"

namespace VeltranoSDK::Utility {

// A thread with three phases: set-up once, a pass that repeats while it is running, tear-down once.
// A hook follows set-up and another one tear-down.
//
// A worker ends because it is asked to: a pass waits with WaitFor() and makes its blocking call
// when that returns true. The worker runs with asynchronous signals blocked. While it runs it
// shares ownership of its object (if a shared_ptr owns it), so the last owner may let go at any
// time. An object without such an owner must outlive its worker.
class Runnable : public std::enable_shared_from_this<Runnable> {
 public:
  Runnable();
  Runnable(const Runnable&) = delete;
  Runnable& operator=(const Runnable&) = delete;

  // Returns false and starts nothing when a detached worker of an earlier start cannot be ended
  // first. Ends the process when a worker that was never detached is still there. Throws
  // std::system_error and starts nothing when the process has no thread or descriptor left.
  bool Start();

  // Waits until the worker has finished its current pass and ended. For workers that were not
  // detached.
  bool Stop();

  bool Detach();

  // No callback begins after this; one may still be running.
  void StopDelivering();

  // Asks the worker to end and wakes it; tear-down and its hook do not run. When this returns, no
  // more callbacks are delivered and the worker is normally gone; one that is blocked in a driver
  // without poll goes when the driver lets it. May be called from the worker's own callback, from
  // the SIGINT handler, and on a runnable that was never started or is already gone. Always returns
  // true.
  bool Cancel();

  // True when there is no worker; false when there still is one after this time, and at once on the
  // worker itself.
  bool WaitUntilGone(unsigned milliseconds);

  void RegisterBeforeRunFinishFunc(std::function<void()> hook);
  void RegisterAfterRunFinishFunc(std::function<void()> hook);

  // The body of the worker.
  void ThreadRun();

  bool IsRunning() const { return running_; }  // the passes go on
  bool IsAlive() const { return alive_; }      // stays true after Cancel
  bool IsStopped() const { return stopped_; }  // by Stop

 protected:
  ~Runnable();

  virtual bool BeforeRun();
  virtual void LoopRun() = 0;
  virtual void AfterRun();

  // Waits until a call on the device would not block or would fail (true), or the worker is asked
  // to end (false). Returns true at once for a device that is not open.
  bool WaitFor(int device) const;

  // A pause of the worker; cancelling ends it early.
  void Rest(std::chrono::milliseconds time);

  // Calls the application unless the worker has been cancelled.
  template <typename Call>
  bool Deliver(Call&& call) {
    return gate_.Pass(std::forward<Call>(call));
  }

  // Replaces a callback. When this returns the old one is no longer running, or an ERROR says that
  // it does not return.
  template <typename Signature>
  void ReplaceCallback(CallbackSlot<Signature>& slot, std::function<Signature> callback) {
    slot.Replace(std::move(callback));
    if (!gate_.WaitForDelivery()) LogError()("a callback of the application does not return");
  }

 private:
  struct Life;
  class Departure;

  static void Work(std::shared_ptr<Life> life, std::shared_ptr<Runnable> self, Runnable* object);

  std::thread thread_;
  std::atomic<bool> running_{false};
  std::atomic<bool> alive_{false};
  std::atomic<bool> stopped_{false};
  CallbackSlot<void()> before_run_finish_;
  CallbackSlot<void()> after_run_finish_;
  DeliveryGate gate_;
  const std::shared_ptr<Life> life_;
};

}  // namespace VeltranoSDK::Utility
