#include "reliability/StormPrograms.h"

#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "reliability/StormTraffic.h"

namespace storm {

namespace {

// --- Heap

// Most blocks are small. Some have sizes that are cut from the top of the heap, and a few have
// their own mapping.
class Hoard {
 public:
  explicit Hoard(unsigned seed) : random_(seed) {}

  void Exchange() {
    constexpr std::array<std::size_t, 8> kMostBytes{64, 64, 512, 512, 4096, 4096, 40'000, 300'000};
    const std::size_t most = kMostBytes[random_() % kMostBytes.size()];
    auto& block = blocks_[random_() % blocks_.size()];
    block = std::make_unique<std::byte[]>(1 + random_() % most);
    names_[random_() % 100] = std::string(random_() % 100, 'n');
  }

 private:
  std::minstd_rand random_;
  std::array<std::unique_ptr<std::byte[]>, 200> blocks_;
  std::map<unsigned, std::string> names_;
};

// Work that C++ programs do at their end.
struct Diary {
  ~Diary() {
    for (unsigned i = 0; i < 100; ++i)
      pages.push_back(std::make_unique<std::string>(1000 + i, 'd'));
  }
  std::vector<std::unique_ptr<std::string>> pages;
};

void SumUp() {
  std::vector<std::string> lines;
  for (unsigned i = 0; i < 100; ++i) lines.emplace_back(i * 100, 's');
}

// --- Signals

volatile sig_atomic_t alarms_seen = 0;

void CountAlarm(int /*signal*/) { alarms_seen = alarms_seen + 1; }

// --- Two threads

class Worker {
 public:
  pid_t Start() {
    thread_ = std::thread([this] {
      thread_id_ = gettid();
      for (unsigned i = 0; !stop_; ++i) RegisterTraffic(i);
    });
    while (thread_id_ == 0) std::this_thread::yield();
    return thread_id_;
  }
  // exit() may run on this thread, if it was interrupted, and a thread cannot wait for itself.
  ~Worker() {
    stop_ = true;
    if (!thread_.joinable()) return;
    if (thread_.get_id() == std::this_thread::get_id()) {
      thread_.detach();
    } else {
      thread_.join();
    }
  }

 private:
  std::thread thread_;
  std::atomic<pid_t> thread_id_{0};
  std::atomic<bool> stop_{false};
};

}  // namespace

pid_t ShareTheHeap() {
  static Diary diary;
  atexit(SumUp);
  for (unsigned seed = 1; seed <= 3; ++seed) {
    std::thread([seed] {
      for (Hoard hoard(seed);;) hoard.Exchange();
    }).detach();
  }
  return 0;
}

void UseTheHeap() {
  Hoard hoard(0);
  for (unsigned i = 0;; ++i) {
    hoard.Exchange();
    if (i % 500 == 0) RegisterTraffic(i / 500);
  }
}

pid_t StartTheTimer() {
  struct sigaction action {};
  action.sa_handler = CountAlarm;  // no SA_RESTART, so every call is interrupted
  sigaction(SIGALRM, &action, nullptr);
  constexpr timeval kMillisecond{0, 1000};
  const itimerval every{kMillisecond, kMillisecond};
  setitimer(ITIMER_REAL, &every, nullptr);
  return 0;
}

pid_t StartTheOtherThread() {
  static Worker worker;
  return worker.Start();
}

void WorkInTwoThreads() {
  for (unsigned i = 0;; ++i) RegisterTraffic(i);
}

}  // namespace storm
