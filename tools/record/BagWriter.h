#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
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
  // The file's number of each topic.
  using Numbers = std::array<std::int64_t, kTopics.size()>;
  // In a recording of one sensor.
  static constexpr Numbers kPlainNumbers = [] {
    Numbers numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i) numbers[i] = static_cast<std::int64_t>(i) + 1;
    return numbers;
  }();

  // Creates `path`, which must not exist. Nothing is left of it after a Failure.
  explicit BagWriter(const std::string& path);
  // Writes into a database that has a recording's tables and a transaction that has begun.
  BagWriter(Database database, int version);
  // Closes without Close(): readers see that it did not end properly.
  ~BagWriter() = default;

  // Appends a message in CDR. `stamp_ns`: nanoseconds since 1970, host clock.
  void Write(Topic topic, std::int64_t stamp_ns, std::span<const std::byte> cdr) {
    Write(kPlainNumbers[static_cast<std::size_t>(topic)], stamp_ns, cdr);
  }
  // The same to a topic of a sensor, by the file's number.
  void Write(std::int64_t number, std::int64_t stamp_ns, std::span<const std::byte> cdr);
  // Makes changes of another kind, which survive together with the messages around them.
  void Change(const std::function<void(Database&)>& change);
  // When it returns, everything written so far survives a power cut.
  void Sync();
  // Syncs, marks the recording as complete and lets others read it. Ends all writing.
  void Close();

  // Until Close().
  const Database& database() const { return *database_; }
  // Any thread may ask.
  std::uint64_t syncs() const { return syncs_; }

 private:
  // Calls `call`, unless one before has thrown.
  template <typename Call>
  void Attempt(const Call& call);
  void Commit();

  // Both until Close().
  std::optional<Database> database_;
  std::optional<Statement> insert_;
  std::atomic<std::uint64_t> syncs_{0};
  std::int64_t last_stamp_ns_ = 0;
  bool failed_ = false;
};

}  // namespace tool
