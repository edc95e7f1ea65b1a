#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "Json.h"
#include "fleet/Server.h"

namespace tool::fleet {

// What the servers keep of one sensor.
struct Kept {
  std::uint64_t messages = 0, bytes = 0;
  std::int64_t replicas = 0;
  std::string leader;  // empty: none now, or a server that stands alone
  // How many messages each subscriber has not stored yet, by its name. None: not all of them have a
  // leader who knows.
  std::optional<std::map<std::string, std::uint64_t>> unstored;

  // Of the slowest one.
  std::optional<std::uint64_t> MostUnstored() const;
};
Json ToJson(const Kept& kept);

// Of all sensors whose names match, by name; empty if nothing is kept at all. None for a sensor of
// which the servers say nothing now.
std::map<std::string, std::optional<Kept>> AllKept(const Server& server,
                                                   const std::string& pattern);

}  // namespace tool::fleet
