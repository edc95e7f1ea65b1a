#pragma once

#include <linux/videodev2.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace kernel_test {

// A video output device of the kernel's test driver, which feeds the capture device with the same
// number: the substitute for the FPGA. Sends frames at the device's own pace while the object
// exists.
class LoopedVideo {
 public:
  using Fill = std::function<void(unsigned frame, std::byte* pixels, unsigned line_bytes)>;

  // `number` 0 feeds /dev/video0, 1 feeds /dev/video1. The capturing side takes the upper left
  // width x height pixels of each frame.
  LoopedVideo(unsigned number, unsigned width, unsigned height);
  ~LoopedVideo();
  LoopedVideo(const LoopedVideo&) = delete;
  LoopedVideo& operator=(const LoopedVideo&) = delete;

  void Start(Fill fill);
  unsigned Sent() const { return sent_; }
  // No video mode is that large, so the capturing side sees a smaller frame enlarged.
  bool IsScaled() const { return scaled_; }
  double FramesPerSecond() const { return frames_per_second_; }

  // The capture device loses this percentage of the frames; 100 leaves it silent.
  static void LosePercent(unsigned number, int percent);

 private:
  struct Mapped {
    std::byte* data;
    std::size_t size;
  };
  v4l2_dv_timings ChooseTimings(unsigned width, unsigned height);
  void SetUpCapture(unsigned number, v4l2_dv_timings timings);
  void Feed(const Fill& fill);

  int output_ = -1;
  unsigned line_bytes_ = 0;
  double frames_per_second_ = 0;
  bool scaled_ = false;
  std::vector<Mapped> buffers_;
  std::atomic<bool> running_{false};
  std::atomic<unsigned> sent_{0};
  std::thread feeder_;
};

}  // namespace kernel_test
