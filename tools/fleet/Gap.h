#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Json.h"
#include "fleet/Packet.h"
#include "record/Messages.h"

namespace tool::fleet {

// Frames of one kind that are missing.
struct MissingFrames {
  std::optional<Range> ids{};  // which; none: not known, or there are none
  std::uint64_t count = 0;
  bool to_end = false;  // all from ids->first to the end of the run

  void Add(const MissingFrames& more);
  bool operator==(const MissingFrames&) const = default;
};

// What is missing, and why.
struct Gap {
  static constexpr const char* kByDevice = "device";        // the ids jump in what was handed over
  static constexpr const char* kByMemory = "memory";        // the publisher did not keep up
  static constexpr const char* kByStore = "store";          // no room was left for what waited
  static constexpr const char* kByPublisher = "publisher";  // it ended without sending everything
  static constexpr const char* kUnknown = GapMessage::kUnknown;  // a subscriber missed it

  std::string reason{};
  std::string run{};  // the missing frames'
  MissingFrames strips{}, images{};
  std::uint64_t others = 0;  // messages

  // Counts what a packet has.
  void Add(const PacketHeader& lost);
  void Add(const Gap& more);
  bool Empty() const;
  bool operator==(const Gap&) const = default;
};

Json ToJson(const Gap& gap);
// Throws a Failure unless it is one.
Gap GapIn(const Json& json);

}  // namespace tool::fleet
