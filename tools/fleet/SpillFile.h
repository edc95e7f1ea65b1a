#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "fleet/Packet.h"
#include "record/Database.h"

namespace tool::fleet {

// Messages that wait in a file, in the order in which they came. What a publisher leaves behind,
// the next one finds. For one thread at a time; throws Failure.
class SpillFile {
 public:
  // Continues a file, or makes it. Any other program's file stays as it is.
  explicit SpillFile(const std::string& path);

  // All of them or, after a Failure, none. They survive the process at once.
  void Append(const std::vector<Packet>& record);
  // The same, but they replace all that was taken, and are the next.
  void PutInFront(const std::vector<Packet>& packets);

  struct Row {
    std::int64_t number = 0;  // never 0
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
  // Packets; at most so many, until what an earlier process left has been taken.
  std::uint64_t waiting() const { return waiting_; }
  std::uint64_t bytes() const { return bytes_; }  // that rows take in the file, taken ones, too

 private:
  std::vector<Row> Next();
  void InTransaction(const std::function<void()>& work);
  void Insert(std::int64_t number, const Packet& packet);
  void Remove(std::int64_t after, std::int64_t last);
  void Measure();

  Database database_;
  Statement insert_, next_, remove_, pages_, free_pages_;
  std::int64_t taken_ = 0;    // the last row that was taken
  std::int64_t removed_ = 0;  // the last one that may be gone
  std::int64_t last_ = 0;     // number that was used
  std::uint64_t waiting_ = 0;
  std::uint64_t bytes_ = 0;
};

}  // namespace tool::fleet
