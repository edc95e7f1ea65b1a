#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "record/BagWriter.h"
#include "record/SensorWriter.h"
#include "record/Standard.h"
#include "ring/RecordRing.h"

namespace tool {

// Writes what comes out of a ring into a recording. For one thread. Throws Failure when the disk is
// full and the like; what was synced before is kept.
class RecordingFile {
 public:
  using Counts = SensorWriter::Counts;

  // Creates `path`, which must not exist. `standard`: frames are also written as standard messages.
  explicit RecordingFile(const std::string& path,
                         const std::optional<StandardMessages::Settings>& standard = {});

  void Write(const ring::Record& record) { sensor_.Write(record); }
  // Facts about the run that the device does not know; `json`: an object.
  void WriteDevice(std::int64_t stamp_ns, const std::string& json) {
    sensor_.WriteDevice(stamp_ns, json);
  }
  // What is missing so far. A message is written when it has grown, at the next sync.
  void SetLost(std::uint64_t by_device, std::uint64_t frames_dropped,
               std::uint64_t others_dropped) {
    sensor_.SetLost(by_device, frames_dropped, others_dropped);
  }

  // Call often: once a second it makes what was written survive a power cut.
  void SyncIfDue();
  // Completes the file.
  void Close();

  const std::string& path() const { return path_; }
  const Counts& counts() const { return sensor_.counts(); }
  // Of what survives everything.
  const Counts& synced() const { return synced_; }

 private:
  using Clock = std::chrono::steady_clock;

  std::string path_;
  BagWriter writer_;
  SensorWriter sensor_;
  Counts synced_;
  Clock::time_point next_sync_;
};

}  // namespace tool
