#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "Json.h"

namespace tool::serve {

// Makes calls that take their time, one after the other, on a thread of its own. A call that waits
// for hardware may never return.
class CallThread {
 public:
  using Clock = std::chrono::steady_clock;
  using Job = std::function<Json()>;
  // Gets the job's answer, or what it threw; on the same thread.
  using Done = std::function<void(const Json&, std::exception_ptr)>;

  // `idle` runs every now and then between two jobs.
  CallThread(std::function<void()> idle, std::chrono::milliseconds idle_every);
  ~CallThread();
  CallThread(const CallThread&) = delete;
  CallThread& operator=(const CallThread&) = delete;

  void Start();
  // What waits is dropped. Waits for the call that is being made, for a while. False: it still
  // lasts.
  bool Stop();

  // False: too many wait, or it has been stopped. An urgent one overtakes all, and always has room.
  bool Post(Job job, Done done, bool urgent = false);
  // Drops what waits, unanswered.
  void Clear();

  // How long the call lasts that is being made now; nothing between two.
  std::optional<Clock::duration> BusyFor() const;

 private:
  struct Entry {
    Job job;
    Done done;
  };
  struct Shared {  // outlives us if a call never returns
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::deque<Entry> waiting;
    std::optional<Clock::time_point> busy_since;
    bool stop = false;
    bool ended = true;
    std::function<void()> idle;
    std::chrono::milliseconds idle_every;
  };
  static void Run(const std::shared_ptr<Shared>& shared);

  std::shared_ptr<Shared> shared_;
};

}  // namespace tool::serve
