#pragma once

#include <dirent.h>
#include <errno.h>
#include <time.h>

#include <chrono>

namespace tessaline_test {

// Waits in real time, whatever signals arrive and whatever the board does with sleeps: the board
// does not change sleeps until a point in time.
inline void ReallyWait(std::chrono::milliseconds time) {
  timespec until{};
  clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_nsec += static_cast<long>(time.count() % 1000) * 1'000'000;
  until.tv_sec += time.count() / 1000 + until.tv_nsec / 1'000'000'000;
  until.tv_nsec %= 1'000'000'000;
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

// Waits until another thread makes the condition true; false when it does not.
template <typename Condition>
bool Eventually(Condition condition,
                std::chrono::milliseconds patience = std::chrono::seconds(20)) {
  const auto until = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > until) return false;
    ReallyWait(std::chrono::milliseconds(1));
  }
  return true;
}

inline int OpenDescriptors() {
  int count = 0;
  DIR* directory = opendir("/proc/self/fd");
  while (readdir(directory) != nullptr) ++count;
  closedir(directory);
  return count - 3;  // ".", "..", and the directory itself
}

// Whether no more descriptors are open than before. A thread opens some briefly while it is being
// created.
inline bool NoDescriptorsAreLeft(int before) {
  return Eventually([before] { return OpenDescriptors() == before; });
}

}  // namespace tessaline_test
