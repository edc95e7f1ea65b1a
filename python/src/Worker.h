#pragma once

#include <pybind11/pybind11.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Listening.h"

namespace python {

// The thread that makes all calls of the library, one after the other.
//
// A call that waits for hardware may never return: registers out of reach block for ever, and an
// image sensor that stays busy is waited for without an end. Python's thread must still answer to
// Ctrl-C, so it only waits for this one.
class Worker {
 public:
  static Worker& Instance();

  void Post(const char* name, std::function<void()> call);
  // The call in progress; empty: none.
  std::string Busy();

 private:
  Worker();
  void Run();

  struct Job {
    const char* name;
    std::function<void()> call;
  };
  std::mutex mutex_;
  std::condition_variable posted_;
  std::vector<Job> jobs_;
  const char* busy_ = "";
};

// Gives what the library said to the Python side, which logs it and keeps it for errors.
void Report(const std::vector<Line>& lines);
// Throws what a signal's handler raised.
void LetSignalsThrough();
[[noreturn]] void ThrowNoAnswer(const char* name);

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
  };
  const auto state = std::make_shared<State>();
  auto result = state->result.get_future();
  Worker::Instance().Post(name, [state, call = std::move(call)]() mutable {
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
  });
  constexpr std::chrono::milliseconds kSlice{50};
  for (auto waited = std::chrono::milliseconds(0);; waited += kSlice) {
    std::future_status status;
    {
      const pybind11::gil_scoped_release release;
      status = result.wait_for(kSlice);
    }
    if (status == std::future_status::ready) break;
    LetSignalsThrough();
    if (waited >= longest) ThrowNoAnswer(name);
  }
  Report(state->lines);
  return result.get();
}

}  // namespace python
