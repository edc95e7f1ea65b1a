#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "fleet/Server.h"

namespace tool::fleet {

// Removes from a sensor's stream what every subscriber by name has stored, some time later, or at
// once when the stream gets full. Has a thread of its own, because a server may let it wait for
// seconds.
class Tidier {
 public:
  Tidier(const Server& server, const std::string& sensor);
  ~Tidier();
  Tidier(const Tidier&) = delete;
  Tidier& operator=(const Tidier&) = delete;

  void Stop();

 private:
  using Clock = std::chrono::steady_clock;
  struct Kept {
    std::uint64_t first, last;  // numbers in the stream
    std::uint64_t stored;       // up to this one, everybody has all
    bool half_full;             // of what the stream may take
  };
  void Run();
  void Tidy();
  // None: the server does not say for certain.
  std::optional<Kept> KeptOn(jsCtx* context) const;

  const Server& server_;
  const std::string stream_;
  struct Stored {
    Clock::time_point at;
    std::uint64_t number;  // in the stream: up to this one
  };
  std::deque<Stored> stored_;

  std::mutex mutex_;
  std::condition_variable stopped_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace tool::fleet
