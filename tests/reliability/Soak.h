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

// Takes strips and images as fast as they come, in turns, while the region of interest
// and the collect mode change, the acquisition stops and goes on, and another thread
// reads and writes registers. Once in the life of a process, behind the start-up.
class Soak {
 public:
  explicit Soak(SoakPlan plan) : plan_(std::move(plan)) {}

  void Run();
  // Prints what came out; whether all of it is right.
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

  // Ends the program: nothing came any more.
  template <typename Condition>
  void Await(const char* what, Condition condition);

  const SoakPlan plan_;
  ProcessGauge gauge_;
  unsigned small_regions_ = 0;  // changes to one of them
  unsigned large_regions_ = 0;
  unsigned mode_changes_ = 0;
  std::vector<IdRange> stops_;  // in which images may be dropped
  std::uint64_t dropped_ = 0;   // by them
  double seconds_ = 0;
  std::uint64_t produced_ = 0;  // by the board, of both kinds
  std::uint64_t lost_ = 0;      // for want of a buffer
};

}  // namespace tessaline_test
