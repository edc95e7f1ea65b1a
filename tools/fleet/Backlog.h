#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "fleet/Dropped.h"
#include "fleet/Packet.h"
#include "fleet/SpillFile.h"

namespace tool::fleet {

// What waits to be sent: in memory, and when that is full, all of it in a file. When that is full,
// too, the oldest or the newest go, and a gap takes their place. One thread puts, one takes.
class Backlog {
 public:
  struct Settings {
    std::uint64_t memory = 0;  // bytes
    std::string file;          // empty: none
    std::uint64_t file_bytes = 0;
    bool drop_oldest = false;
  };
  // What an earlier publisher left in the file goes first. Throws a Failure if the file cannot be
  // used.
  explicit Backlog(Settings settings);

  // All messages of one record: they stay or go together.
  void Put(std::vector<Packet> record);
  struct Taken {
    Packet packet;
    std::int64_t row = 0;  // of the file, where it still is; 0: it was in memory
  };
  // The oldest message; none if there is none within a time.
  std::optional<Taken> Take(std::chrono::milliseconds patience);
  // It was not sent, and is the oldest again.
  void PutBack(Taken taken);
  // All rows before this one have arrived.
  void DoneBefore(std::int64_t row);

  struct Counts {
    std::uint64_t memory_bytes = 0;  // that wait now
    std::uint64_t file_bytes = 0;
    std::uint64_t packets = 0;
    std::uint64_t dropped_frames = 0;  // in all
    std::uint64_t dropped_packets = 0;
    std::string file_error;  // why the file could not be used the last time; empty: all is well
  };
  Counts counts() const;

  // At the end, when what was taken has arrived or was put back: moves all that waits to the file,
  // where the next publisher finds it. True if there is one, and it took everything.
  bool SaveAll();

 private:
  bool InFile() const { return file_ && !file_->Empty(); }
  bool FitsInMemory(const std::vector<Packet>& record) const;
  void PutInMemory(std::vector<Packet> record);
  std::vector<Packet> TakeFromMemory();
  void Append(std::vector<Packet> record);
  // Runs work with the file. False: it could not be done.
  bool WithFile(const std::function<void()>& work);
  bool MoveToFile();
  bool DropOldest();
  void DropNewest(const std::vector<Packet>& record);
  void Note(const std::vector<Packet>& dropped, std::deque<Dropped>& gaps);
  void FillHands();

  const Settings settings_;
  mutable std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Taken> hands_;     // the record that is being sent
  std::deque<Dropped> oldest_;  // stand in front of all that waits
  std::deque<std::vector<Packet>> memory_;
  std::uint64_t memory_bytes_ = 0;
  std::uint64_t memory_packets_ = 0;
  std::unique_ptr<SpillFile> file_;
  std::deque<Dropped> newest_;  // stand behind all that waits, until there is room for more
  Counts counts_;
};

}  // namespace tool::fleet
