#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "record/BagWriter.h"
#include "record/Messages.h"
#include "record/Standard.h"
#include "ring/RecordRing.h"

namespace tool {

// Writes what comes out of a ring as messages of one sensor. For one thread. Throws Failure when
// the disk is full and the like.
class SensorWriter {
 public:
  struct Counts {
    std::uint64_t strips = 0;
    std::uint64_t images = 0;
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;

    void Add(const Counts& other);
  };

  // `numbers`: of the sensor's topics. `standard`: frames are also written as standard messages.
  // The writer must live longer.
  SensorWriter(BagWriter& writer, const BagWriter::Numbers& numbers,
               const std::optional<StandardMessages::Settings>& standard = {});

  void Write(const ring::Record& record);
  void Write(const GapMessage& gap);
  // Facts about the run that the device does not know; `json`: an object.
  void WriteDevice(std::int64_t stamp_ns, const std::string& json);
  // What is missing so far; see WriteLosses().
  void SetLost(std::uint64_t by_device, std::uint64_t frames_dropped, std::uint64_t others_dropped);
  // Writes a message about it if it has changed. To be called before each sync.
  void WriteLosses();

  const Counts& counts() const { return counts_; }

 private:
  template <typename Message>
  void Put(const Message& message);
  void PutCoded(Topic topic, std::int64_t stamp_ns, const Cdr& cdr);

  BagWriter& writer_;
  const BagWriter::Numbers numbers_;
  std::optional<StandardMessages> standard_;
  Cdr cdr_;  // its memory is used again and again
  Counts counts_;
  std::uint8_t point_bytes_ = 8;  // of the last strips
  LossesMessage losses_;
  LossesMessage told_;
  std::int64_t last_stamp_ns_ = 0;
};

// How many bytes a point of these strips has, so that they fill their data exactly: `point_bytes`
// itself, if it fits or nothing does.
std::uint8_t PointBytesOf(StripsMessage strips);

}  // namespace tool
