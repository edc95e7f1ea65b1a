#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "record/Database.h"

namespace tool {

// How far the packets of each publisher's run have come in a file. Not for several threads at once.
class PositionTable {
 public:
  struct Key {
    std::string sensor;
    std::string run;
    auto operator<=>(const Key&) const = default;
  };
  using Positions = std::map<Key, std::uint64_t>;

  // Of all sensors. A publisher has a new one each time it starts.
  static constexpr std::size_t kMost = 100'000;
  static constexpr std::size_t kMostRunName = 64;

  // Reads what is in the file, which may be hostile. Throws Failure.
  explicit PositionTable(const Database& database);

  // All packets of this run up to `sequence` are stored, or known to be lost. It never goes back.
  // Throws Failure if it is no such name or there are more runs than a file keeps.
  void Set(const std::string& sensor, const std::string& run, std::uint64_t sequence);
  const Positions& all() const { return all_; }

  bool changed() const { return !changed_.empty(); }
  // Writes what has changed, in the transaction that has begun.
  void Save(const Database& database);

 private:
  Positions all_;
  std::map<Key, bool> changed_;  // whether it has a row already
};

}  // namespace tool
