#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fleet/Packet.h"
#include "record/Database.h"

namespace tool::fleet {

// Messages that wait in a file, in the order in which they came. What a publisher leaves behind,
// the next one finds. For one thread at a time; throws Failure.
class SpillFile {
 public:
  // Continues a file, or makes it.
  explicit SpillFile(const std::string& path);

  // All of them or, after a Failure, none. They survive the process at once.
  void Append(const std::vector<Packet>& record);

  struct Row {
    std::int64_t number = 0;
    Packet packet;
  };
  // The messages of the next record that has not been taken; they stay in the file. Empty: there is
  // none.
  std::vector<Row> Take();
  // The same, but they go.
  std::vector<Row> Drop();
  // These have arrived, and go.
  void RemoveBefore(std::int64_t number);

  // Whether all has been taken.
  bool Empty() const { return waiting_ == 0; }
  std::uint64_t waiting() const { return waiting_; }  // packets
  std::uint64_t bytes() const { return bytes_; }      // of payloads, taken ones included

 private:
  std::vector<Row> Next();

  Database database_;
  Statement insert_, next_, remove_;
  std::int64_t taken_ = 0;    // the last row that was taken
  std::int64_t removed_ = 0;  // the last one that may be gone
  std::uint64_t waiting_ = 0;
  std::uint64_t bytes_ = 0;
};

}  // namespace tool::fleet
