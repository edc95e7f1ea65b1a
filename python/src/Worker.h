#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Listening.h"
#include "WithoutGil.h"

namespace python {

// The thread that makes all calls of the library, one after the other.
//
// A call that waits for hardware may never return: registers out of reach block for ever, and an
// image sensor that stays busy is waited for without an end. Python's thread must still answer to
// Ctrl-C, so it only waits for this one.
class Worker {
 public:
  static Worker& Instance();

  void Post(std::string name, std::function<void()> call);
  // The same on a thread of its own, for a call that must be made when this thread is stuck.
  static void PostAside(std::function<void()> call);
  // The call in progress; empty: none.
  std::string Busy();

  // The call in progress will not return. Holds until it does.
  void GiveUp();
  bool stuck();

 private:
  Worker();
  void Run();

  struct Job {
    std::string name;
    std::function<void()> call;
  };
  std::mutex mutex_;
  std::condition_variable posted_;
  std::vector<Job> jobs_;
  std::string busy_;
  bool stuck_ = false;
};

// Gives what the library said to the Python side, which logs it and keeps it for errors.
void Report(const std::vector<Line>& lines);
// Throws what a signal's handler raised.
void LetSignalsThrough();
[[noreturn]] void ThrowNoAnswer(const char* name);

// The library opens the registers for every access. When that fails once, it says this and blocks
// for ever at the next one.
inline constexpr std::string_view kRegistersGone = "open(/dev/mem) failed.";
// Switches two lines of the processor, so it works without the registers.
inline constexpr std::string_view kLaserOff = "CloseLaser";

// Longer than any call of a working device.
inline constexpr std::chrono::seconds kLongestCall{20};

// Makes a call on the worker, without Python's lock. `call` must own what it uses: it may go on
// when nobody waits for it any more.
template <typename Call>
auto Make(const char* name, Call call, std::chrono::milliseconds longest = kLongestCall) {
  using Result = decltype(call());
  struct State {
    std::promise<Result> result;
    std::vector<Line> lines;
    std::atomic<bool> abandoned = false;  // nobody waits: it must not begin any more
  };
  const auto state = std::make_shared<State>();
  auto result = state->result.get_future();
  Worker& worker = Worker::Instance();
  const bool aside = worker.stuck() && name == kLaserOff;
  if (worker.stuck() && !aside) ThrowNoAnswer(name);
  auto job = [state, call = std::move(call)]() mutable {
    if (state->abandoned) return;
    Listening listening;
    if constexpr (std::is_void_v<Result>) {
      call();
      state->lines = listening.Lines();
      state->result.set_value();
    } else {
      Result value = call();
      state->lines = listening.Lines();
      state->result.set_value(std::move(value));
    }
  };
  if (aside) {
    Worker::PostAside(std::move(job));
  } else {
    worker.Post(name, std::move(job));
  }
  // A call that was asked for and did not begin may not surprise anybody later. Off stays off.
  struct Abandon {
    State& state;
    bool keep;
    ~Abandon() { state.abandoned = !keep; }
  } const abandon{*state, name == kLaserOff};
  constexpr std::chrono::milliseconds kSlice{50};
  for (auto waited = std::chrono::milliseconds(0);; waited += kSlice) {
    std::future_status status;
    {
      const WithoutGil release;
      status = result.wait_for(kSlice);
    }
    if (status == std::future_status::ready) break;
    LetSignalsThrough();
    if (waited >= longest) worker.GiveUp();
    if (worker.stuck() && (!aside || waited >= longest)) ThrowNoAnswer(name);
  }
  Report(state->lines);
  return result.get();
}

}  // namespace python
