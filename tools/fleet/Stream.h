#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fleet/Names.h"
#include "fleet/Server.h"

namespace tool::fleet {

// How the server stores a sensor's messages.
struct StreamSettings {
  std::string sensor;
  unsigned replicas = 0;         // 0: three, or as many as there are servers for
  std::uint64_t most_bytes = 0;  // 0: as many as the server has room for
};

// All of these throw a Failure: ExitCode::kNegative if the server stores nothing at all.

// Makes sure that there is the sensor's stream, and the archive's place in it. What is there stays
// as it is.
void RequireStream(const Server& server, const StreamSettings& settings);

// How much of what its stream may take a sensor uses. It stops short of it: a server that is full
// takes small messages, and refuses larger ones in front of them.
struct Room {
  std::uint64_t used = 0;
  std::uint64_t limit = UINT64_MAX;
};
Room RoomOf(const Server& server, const std::string& sensor);

// Whether the server knows the sensor's stream, and the archive's place in it.
bool HasStream(const Server& server, const std::string& sensor);

// Makes sure that messages are kept for a subscriber, from the oldest on that is still there.
void RequireSubscriber(const Server& server, const std::string& sensor,
                       const std::string& subscriber);

// Removes a sensor's stream, and what is in it.
void ForgetStream(const Server& server, const std::string& sensor);

// Removes a subscriber's place there: nothing is kept for it any more.
void ForgetSubscriber(const Server& server, const std::string& sensor,
                      const std::string& subscriber);

// The sensors whose names match and that have a stream, in order.
std::vector<std::string> SensorsWithStreams(const Server& server, const std::string& pattern);

// How long the server waits before it sends again what a subscriber has not acknowledged.
inline constexpr std::int64_t kAckWaitNs = 10'000'000'000;

// Messages of a sensor that a subscriber may have and not have stored yet. It holds that much in
// memory, and gets no more. The largest image in the smallest messages is 138, and is stored when
// the last of them is there.
inline constexpr std::int64_t kMostUnstored = 256;

}  // namespace tool::fleet
