#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Json.h"
#include "fleet/Gap.h"
#include "fleet/Packet.h"
#include "ring/RecordRing.h"

namespace tool::fleet {

// Makes the messages of a run out of records: splits what is too long at the borders of strips or
// rows, numbers the messages, and says what is missing between frames.
class Packetizer {
 public:
  // `most_payload`: bytes of a message.
  Packetizer(std::string run, std::size_t most_payload);

  // The messages of one record. First, where frames are missing in front of it, a gap; none of a
  // kind that is not sent. `dropped`: frames that the ring had no room for so far.
  std::vector<Packet> Make(const ring::Record& record, std::uint64_t dropped);
  Packet Make(Kind kind, std::int64_t stamp_ns, const Json& json);
  Packet Make(const Gap& gap, std::int64_t stamp_ns);
  // The end of the run: what the ring has dropped since the last frame, and the last message.
  std::vector<Packet> Finish(std::int64_t stamp_ns, std::uint64_t dropped);

  const std::string& run() const { return run_; }
  // Ids missing in what the device handed over, and those the ring had no room for.
  std::uint64_t missing() const { return missing_; }
  std::uint64_t frames() const { return frames_; }

 private:
  Packet Numbered(PacketHeader header, const void* payload, std::size_t size);
  struct Part {
    PacketHeader header{};
    std::span<const std::byte> bytes{};
  };
  void AddParts(const PacketHeader& whole, std::vector<Part> parts, std::vector<Packet>& packets);
  std::vector<Part> CutAnywhere(std::span<const std::byte> bytes) const;
  void MakeStrips(const ring::Record& record, std::vector<Packet>& packets);
  void MakeImage(const ring::Record& record, std::vector<Packet>& packets);
  // Notes an id; says what is missing in front of it.
  void Follow(bool image, std::uint64_t id, std::int64_t stamp_ns, std::vector<Packet>& packets);

  const std::string run_;
  const std::size_t most_payload_;
  std::uint64_t sequence_ = 0;
  std::optional<std::uint64_t> last_strip_, last_image_;
  std::uint64_t missing_ = 0, frames_ = 0;
  std::uint64_t dropped_ = 0;  // by the ring, so far
  std::uint64_t told_dropped_ = 0;
  std::uint8_t point_bytes_ = 8;  // of the last strips
};

}  // namespace tool::fleet
