#pragma once

#include <sys/types.h>

#include <chrono>
#include <mutex>
#include <string>

#include "Json.h"
#include "serve/Feed.h"

namespace tool::serve {

// Recordings that the page starts and stops. Each is written by a "tessaline record" of its own,
// which takes the frames from us, so that a slow disk costs nobody else a frame.
class Recordings {
 public:
  // `folder`: empty: none may be made. `socket`: where the recorder finds us.
  Recordings(std::string folder, std::string socket);
  // Completes the one that runs.
  void End();

  bool possible() const { return !folder_.empty(); }
  // Their names are ours, made of date and time. Throw Failure. For one thread.
  Json Start();
  Json Stop();
  // For any thread.
  Json List() const;
  Json Current();   // null: none runs
  Json WhyEnded();  // why the last one ended by itself; null: it did not

 private:
  using Clock = std::chrono::steady_clock;
  // Whether one runs.
  bool Look();
  Json Report() const;
  void Explain(int status);
  std::string PathOf(const std::string& file) const { return folder_ + "/" + file; }

  const std::string folder_;
  const std::string socket_;
  mutable std::mutex mutex_;
  pid_t child_ = -1;
  int report_ = -1;  // what the recorder prints
  bool asked_to_end_ = false;
  Json failure_;
  std::string file_;
  Clock::time_point start_;
  Feed::Counts before_;
  std::uint64_t dropped_before_ = 0;
};

}  // namespace tool::serve
