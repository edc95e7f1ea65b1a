#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "support/FpgaFrames.h"
#include "support/LoopedVideo.h"
#include "tessaline/tessaline.h"

namespace kernel_test {

template <typename Condition>
bool Eventually(Condition condition, std::chrono::seconds patience = std::chrono::seconds(40)) {
  const auto until = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// Selects the chip on the second SPI bus.
void PutOnSpiBus1(const std::string& model);

// Both video devices, fed with frames that a product's FPGA would write. Where the driver cannot
// loop so wide a frame, the frame is scaled and every byte is 0.
class Frames {
 public:
  static constexpr unsigned kStrips = 3;
  static constexpr unsigned kPoints = 400;

  explicit Frames(const Product& product);
  // Enlarging is slow in the driver, so enlarged frames start only here.
  void Flow();
  LoopedVideo& images() { return *images_; }
  LoopedVideo& strips() { return *strips_; }

 private:
  void Lose(int percent);

  std::unique_ptr<LoopedVideo> images_, strips_;
};

}  // namespace kernel_test
