#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "record/Database.h"
#include "record/Topics.h"

namespace tool {

// Writes a recording. Not for several threads at once.
class BagWriter {
 public:
  // Creates `path`, which must not exist.
  explicit BagWriter(const std::string& path);
  // Closes without Close(): readers see that it did not end properly.
  ~BagWriter() = default;

  // Appends a message in CDR. `stamp_ns`: nanoseconds since 1970, host clock.
  void Write(Topic topic, std::int64_t stamp_ns, std::span<const std::byte> cdr);
  // When it returns, everything written so far survives a power cut.
  void Sync();
  // Syncs, and marks the recording as complete.
  void Close();

  std::uint64_t messages() const { return messages_; }
  std::uint64_t bytes() const { return bytes_; }
  std::uint64_t unsynced_bytes() const { return unsynced_bytes_; }

 private:
  void SetKey(const char* key, const std::string& value);

  Database database_;
  Statement insert_;
  std::uint64_t messages_ = 0;
  std::uint64_t bytes_ = 0;
  std::uint64_t unsynced_bytes_ = 0;
  std::int64_t last_stamp_ns_ = 0;
};

}  // namespace tool
