#pragma once

#include <chrono>
#include <mutex>
#include <thread>

#include "capture/FrameQueue.h"
#include "live/LiveSensor.h"
#include "tessaline/startup.h"

namespace tool::live {

// Calls the handlers with the frames of a served sensor, as the library's capture threads do with
// those of one that this process has started. There is one, to the end of the process.
class LiveFrames {
 public:
  // Begins at once.
  LiveFrames(const LiveSensor& sensor, tessaline_frame_handler on_image,
             tessaline_frame_handler on_strips);

  // Since the beginning; what was known last if the daemon has ended.
  static Losses LossesSoFar(bool images);

 private:
  void Run();
  bool Use(const ring::Record& record) const;
  Losses Ask(bool images);

  const LiveSensor& sensor_;
  const tessaline_frame_handler on_image_;
  const tessaline_frame_handler on_strips_;
  LiveSensor::Frames frames_;
  std::mutex mutex_;
  Losses before_[2];
  // What the daemon said last. Every delivery wants to know, so it is not asked each time.
  struct Answer {
    Losses losses;
    std::chrono::steady_clock::time_point when;
  };
  Answer newest_[2];
};

}  // namespace tool::live
