#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace storm {

// A disk in memory, on which everything is that SQLite opens while this object lives. It can be
// full, and its power can be cut: then it forgets at random what was not synced. Files that SQLite
// does not open itself are on the real disk. It has no temporary files: writing a recording must
// not depend on room in another folder. One at a time, one thread.
class SimulatedDisk {
 public:
  SimulatedDisk();
  ~SimulatedDisk();
  SimulatedDisk(const SimulatedDisk&) = delete;
  SimulatedDisk& operator=(const SimulatedDisk&) = delete;

  // After so many more calls, the power is off: nothing happens any more, and every call fails.
  void CutAfter(std::uint64_t calls) { calls_until_cut_ = calls; }
  // After so many more calls, no file can grow.
  void FullAfter(std::uint64_t calls) { calls_until_full_ = calls; }
  // Calls that changed something or made it last.
  std::uint64_t calls() const { return calls_; }

  // Writes all files to the real disk, as they are.
  void Save() const;
  // The same, as a reader finds them after a power cut: of what was not synced, some sectors are
  // there and some are not, in no order; truncations and names of files may be lost, too.
  void SaveAfterCut(std::mt19937& random) const;

 private:
  struct Change {
    bool truncation = false;
    std::size_t offset = 0;  // of a truncation: the new length
    std::vector<std::byte> bytes;
  };
  struct Content {
    std::vector<std::byte> now, synced;
    std::vector<Change> pending;
    bool journal = false;
    bool name_synced = false;  // the folder knows it for ever
    bool deleted = false;
  };
  // What SQLite knows as an open file.
  struct Handle {
    sqlite3_file base;
    Content* content;
  };

  static void Apply(const Change& change, std::vector<std::byte>& bytes);
  // False: the power is off.
  bool Count();
  bool Dead() const { return calls_ >= calls_until_cut_; }

  static int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out_flags);
  static int Delete(sqlite3_vfs*, const char* name, int sync_folder);
  static int Access(sqlite3_vfs*, const char* name, int flags, int* result);
  static int Read(sqlite3_file* file, void* to, int size, sqlite3_int64 offset);
  static int Write(sqlite3_file* file, const void* from, int size, sqlite3_int64 offset);
  static int Truncate(sqlite3_file* file, sqlite3_int64 size);
  static int Sync(sqlite3_file* file, int flags);
  static int FileSize(sqlite3_file* file, sqlite3_int64* size);
  static const sqlite3_io_methods kMethods;

  sqlite3_vfs vfs_{};
  std::map<std::string, Content> contents_;
  std::uint64_t calls_ = 0;
  std::uint64_t calls_until_cut_ = UINT64_MAX;
  std::uint64_t calls_until_full_ = UINT64_MAX;
};

}  // namespace storm
