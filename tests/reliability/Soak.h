#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "reliability/FrameRuns.h"
#include "reliability/ProcessGauge.h"

namespace tessaline_test {

struct SoakPlan {
  std::string model;
  std::uint64_t strips;
  std::uint64_t images;
};

// Takes strips and images in turns, as fast as they come. Meanwhile the region of interest and the
// collect mode change, acquisition stops and continues, and another thread reads and writes
// registers. Runs once per process, after start-up.
class Soak {
 public:
  explicit Soak(SoakPlan plan) : plan_(std::move(plan)) {}

  void Run();
  // Prints the results; returns whether all are right.
  bool Report() const;

 private:
  void WarmUp();
  void TakeStrips(std::uint64_t until);
  void TakeImages(std::uint64_t until);
  void SettleImages();
  void ChangeRegion(bool small);
  void StopAndGo();
  void ComeToRest();
  void WatchOver();

  static void RegisterTraffic(const std::atomic<bool>& over);

  // Waits for the condition. Ends the program when nothing arrives any more.
  template <typename Condition>
  void Await(const char* what, Condition condition);

  const SoakPlan plan_;
  ProcessGauge gauge_;
  unsigned small_regions_ = 0;  // changes to a small one
  unsigned large_regions_ = 0;
  unsigned mode_changes_ = 0;
  std::vector<IdRange> stops_;  // images may be dropped in these
  std::uint64_t dropped_ = 0;   // dropped in stops
  double seconds_ = 0;
  std::uint64_t produced_ = 0;  // frames of both kinds made by the board
  std::uint64_t lost_ = 0;      // lost because no buffer was free
};

}  // namespace tessaline_test
