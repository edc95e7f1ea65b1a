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

namespace tool {

// When a recording is complete; 0: no such limit.
struct RecordingLimits {
  std::uint64_t frames = 0;
  double seconds = 0;
};

struct RecordingResult {
  std::uint64_t frames = 0;  // written
  double seconds = 0;
  std::uint64_t missing = 0;  // ids left out between frames written
  std::uint64_t malformed = 0;
  std::uint64_t dropped = 0;        // deliveries that the tool had no room for
  std::uint64_t fpga_lost = 0;      // strips the FPGA had no buffer for
  std::uint64_t triggers_lost = 0;  // came before the sensor was ready
  bool interrupted = false;
  bool no_more_came = false;
  std::optional<Failure> failure;  // of the writer
};

// Takes frames of an acquisition, has them written, and shows progress.
class Recorder {
 public:
  Recorder(Device& device, FrameWriter& writer, bool images, std::size_t point_bytes)
      : device_(device), writer_(writer), images_(images), point_bytes_(point_bytes) {}

  // Runs the acquisition, and completes the files.
  RecordingResult Run(const RecordingLimits& limits, bool laser);

 private:
  using Clock = std::chrono::steady_clock;
  void Use(const Delivery& delivery);
  void WriteFrame(const Frame& frame);
  void ShowProgress(bool last);
  bool Complete() const;

  Device& device_;
  FrameWriter& writer_;
  const bool images_;
  const std::size_t point_bytes_;
  RecordingLimits limits_;
  RecordingResult result_;
  std::optional<std::uint64_t> last_id_;
  Clock::time_point start_;
  Clock::time_point shown_;
};

}  // namespace tool
