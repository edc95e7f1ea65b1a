#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "record/Database.h"
#include "record/Topics.h"

namespace tool {

// Writes a recording. Not for several threads at once. After a Failure it writes nothing more, and
// throws again: what follows would hide a gap.
class BagWriter {
 public:
  // Creates `path`, which must not exist. Nothing is left of it after a Failure.
  explicit BagWriter(const std::string& path);
  // Closes without Close(): readers see that it did not end properly.
  ~BagWriter() = default;

  // Appends a message in CDR. `stamp_ns`: nanoseconds since 1970, host clock.
  void Write(Topic topic, std::int64_t stamp_ns, std::span<const std::byte> cdr);
  // When it returns, everything written so far survives a power cut.
  void Sync();
  // Syncs, marks the recording as complete and lets others read it. Ends all writing.
  void Close();

  // Any thread may ask.
  std::uint64_t syncs() const { return syncs_; }

 private:
  // Calls `call`, unless one before has thrown.
  template <typename Call>
  void Attempt(const Call& call);
  void SetKey(const char* key, const std::string& value);
  void Commit();

  // Both until Close().
  std::optional<Database> database_;
  std::optional<Statement> insert_;
  std::atomic<std::uint64_t> syncs_{0};
  std::int64_t last_stamp_ns_ = 0;
  bool failed_ = false;
};

}  // namespace tool
