#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "Device.h"
#include "Failure.h"
#include "capture/FrameQueue.h"
#include "capture/FrameReader.h"
#include "capture/FrameWriter.h"
#include "capture/LightMeter.h"

namespace tool {

// When a recording is complete; 0: no such limit.
struct RecordingLimits {
  std::uint64_t frames = 0;
  double seconds = 0;
};

struct RecordingResult {
  std::uint64_t frames = 0;  // written
  double seconds = 0;
  std::uint64_t missing = 0;        // ids left out between frames written
  std::uint64_t dropped = 0;        // frames that the tool had no room for
  std::uint64_t outside_field = 0;  // points where the calibration was not seen
  Losses losses;                    // between the start and the last frame wanted
  bool interrupted = false;
  bool no_more_came = false;
  bool moved = false;              // by the encoder
  std::string warning;             // about the light; may be empty
  std::optional<Failure> failure;  // of the writer

  bool Lost() const {
    return missing + dropped + losses.malformed + losses.fpga_lost + losses.triggers_lost > 0;
  }
  // Whether every frame that was wanted is there.
  bool Complete() const { return !interrupted && !no_more_came && !failure && !Lost(); }
};

// Takes frames of an acquisition, has them written, and shows progress.
class Recorder {
 public:
  Recorder(Device& device, FrameWriter& writer, bool images, StripReader strips, LightMeter light)
      : device_(device),
        writer_(writer),
        images_(images),
        strips_(std::move(strips)),
        light_(light) {}

  // Runs the acquisition, and completes the files.
  RecordingResult Run(const RecordingLimits& limits, bool laser);

 private:
  using Clock = std::chrono::steady_clock;
  void TakeFrames();
  // Writes what has come and still waits.
  void TakeRest();
  void Use(const Delivery& delivery);
  void WriteFrame(const Frame& frame);
  void ShowProgress(bool last);
  bool HasEnough() const;
  bool IsOver() const;

  Device& device_;
  FrameWriter& writer_;
  const bool images_;
  StripReader strips_;
  LightMeter light_;
  RecordingLimits limits_;
  RecordingResult result_;
  Losses before_;  // the first frame
  std::optional<std::uint64_t> last_id_;
  std::optional<std::uint64_t> first_encoder_stamp_;
  Clock::time_point start_;
  Clock::time_point shown_;
};

}  // namespace tool
