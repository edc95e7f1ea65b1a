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

// A thread with a body of three phases: set-up once, a pass repeated while the
// flag is set, tear-down once, and a hook after set-up and after tear-down.
//
// A worker ends because it is asked to: a pass waits with WaitFor() and makes its blocking
// call when that says so. It runs with asynchronous signals blocked. While it runs it shares
// the ownership of its object (when a shared_ptr owns it), so the last owner may let go at
// any time; an object without such an owner must outlive its worker.
class Runnable : public std::enable_shared_from_this<Runnable> {
 public:
  Runnable();
  Runnable(const Runnable&) = delete;
  Runnable& operator=(const Runnable&) = delete;

  // Always true, but for a detached worker of an earlier start that cannot be
  // ended first (false, nothing started). Ends the process when a worker that was
  // never detached is still there. Throws std::system_error, and nothing is started, when
  // the process has no thread or descriptor left.
  bool Start();

  // Lets the pass in progress end, and waits for the worker. For workers that
  // were not detached.
  bool Stop();

  bool Detach();

  // No callback begins any more; one may still be running.
  void StopDelivering();

  // Asks the worker to end and wakes it; tear-down and its hook do not run. When this
  // returns no callback is delivered any more, and the worker is normally gone; one that is
  // blocked in a driver without poll goes when the driver lets it. May be called from the
  // worker's own callback, from the SIGINT handler, and on a runnable that was never started
  // or is gone already. Always true.
  bool Cancel();

  // True once there is no worker (any more); false when there still is one after
  // so many milliseconds, and at once on the worker itself.
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

  // Waits until a call on the device need not block, or fails (true), or the worker is asked
  // to end (false). True at once for a device that is not open.
  bool WaitFor(int device) const;

  // A pause of the worker, cut short when it is cancelled.
  void Rest(std::chrono::milliseconds time);

  // Calls the application, unless the worker was cancelled meanwhile.
  template <typename Call>
  bool Deliver(Call&& call) {
    return gate_.Pass(std::forward<Call>(call));
  }

  // Replaces a callback; when this returns the old one is not running any more, or
  // an ERROR says that it does not return.
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
