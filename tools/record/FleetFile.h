#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "record/BagWriter.h"
#include "record/Messages.h"
#include "record/PositionTable.h"
#include "record/SensorWriter.h"
#include "ring/RecordRing.h"

namespace tool {

// A recording of several sensors, each with topics of its own (see SensorName.h), which says for
// each publisher how far its packets have come. A file that another process has left, however it
// ended, is continued. For one thread. After a Failure while writing it writes nothing more; what
// was synced is kept, and a new object continues it.
class FleetFile {
 public:
  // Creates `path`, or continues it if it is such a file; what its last writer had not synced is
  // taken back first. Throws Failure if it is any other file, which stays as it is, or if another
  // process writes or reads it (both ExitCode::kExists).
  explicit FleetFile(const std::string& path);

  // Appends what a record says. Throws Failure if `sensor` is no name of one.
  void Write(const std::string& sensor, const ring::Record& record);
  void Write(const std::string& sensor, const GapMessage& gap);
  // The sensor's counts of what is missing. A message is written if they have changed, at the next
  // sync.
  void SetLost(const std::string& sensor, std::uint64_t by_device, std::uint64_t frames_dropped,
               std::uint64_t others_dropped);

  // All packets of this run up to `sequence` have been written, or are known to be lost. It
  // survives together with what was written since the last sync, or is taken back with it.
  void SetPosition(const std::string& sensor, const std::string& run, std::uint64_t sequence);
  const PositionTable::Positions& positions() const { return positions_.all(); }

  // When it returns, everything so far survives a power cut. Costs nothing if there is nothing new.
  void Sync();
  // Completes the file. It may be continued all the same.
  void Close();

  const std::string& path() const { return path_; }
  // Of what this object has written: of a sensor, and in all.
  SensorWriter::Counts CountsOf(const std::string& sensor) const;
  SensorWriter::Counts counts() const;

 private:
  SensorWriter& Of(const std::string& sensor);
  // False: nothing has changed since the last sync.
  bool PrepareSync();

  std::string path_;
  BagWriter writer_;
  PositionTable positions_;
  std::map<std::string, SensorWriter> sensors_;
  std::uint64_t synced_messages_ = 0;
};

}  // namespace tool
