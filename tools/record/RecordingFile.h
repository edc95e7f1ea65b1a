#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "record/BagWriter.h"
#include "record/Messages.h"
#include "record/Standard.h"
#include "ring/RecordRing.h"

namespace tool {

// Writes what comes out of a ring into a recording. For one thread. Throws Failure when the disk is
// full and the like; what was synced before is kept.
class RecordingFile {
 public:
  struct Counts {
    std::uint64_t strips = 0;
    std::uint64_t images = 0;
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;

    void Add(const Counts& other);
  };

  // Creates `path`, which must not exist. `standard`: frames are also written as standard messages.
  explicit RecordingFile(const std::string& path,
                         const std::optional<StandardMessages::Settings>& standard = {});

  void Write(const ring::Record& record);
  // Facts about the run that the device does not know; `json`: an object.
  void WriteDevice(std::int64_t stamp_ns, const std::string& json);
  // What is missing so far. A message is written when it has grown, at the next sync.
  void SetLost(std::uint64_t by_device, std::uint64_t frames_dropped, std::uint64_t others_dropped);

  // Call often: once a second it makes what was written survive a power cut.
  void SyncIfDue();
  // Completes the file.
  void Close();

  const std::string& path() const { return path_; }
  const Counts& counts() const { return counts_; }
  // Of what survives everything.
  const Counts& synced() const { return synced_; }

 private:
  using Clock = std::chrono::steady_clock;

  template <typename Message>
  void Put(Message message);
  void PutCoded(Topic topic, std::int64_t stamp_ns, const Cdr& cdr);
  void WriteLosses();

  std::string path_;
  BagWriter writer_;
  std::optional<StandardMessages> standard_;
  Cdr cdr_;  // its memory is used again and again
  Counts counts_;
  Counts synced_;
  std::uint8_t point_bytes_ = 8;  // of the last strips
  LossesMessage losses_;
  LossesMessage told_;
  std::int64_t last_stamp_ns_ = 0;
  bool unsynced_ = false;
  Clock::time_point next_sync_;
};

// How many bytes a point of these strips has, so that they fill their data exactly: `point_bytes`
// itself, if it fits or nothing does.
std::uint8_t PointBytesOf(StripsMessage strips);

}  // namespace tool
