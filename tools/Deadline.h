#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "Interrupt.h"

namespace tool {

// Runs a library call that may never return on a thread of its own. False if it has not
// returned in time: the thread is abandoned, and the process should end soon.
template <typename Call>
bool ReturnsInTime(std::chrono::seconds limit, Call call) {
  struct Shared {
    std::mutex mutex;
    std::condition_variable done_changed;
    bool done = false;
  };
  const auto shared = std::make_shared<Shared>();
  {
    const SignalsBlocked inherited;
    std::thread([shared, call = std::move(call)]() mutable {
      call();
      const std::lock_guard lock(shared->mutex);
      shared->done = true;
      shared->done_changed.notify_one();
    }).detach();
  }
  std::unique_lock lock(shared->mutex);
  return shared->done_changed.wait_for(lock, limit, [&] { return shared->done; });
}

}  // namespace tool
