#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>

#include "record/Database.h"
#include "record/Messages.h"
#include "record/Topics.h"

namespace tool {

// A message of a recording, not decoded yet. Valid until the next one is read.
struct StoredMessage {
  std::int64_t id = 0;
  Topic topic = Topic::kStrips;
  std::int64_t stamp_ns = 0;
  std::span<const std::byte> cdr;

  template <typename Message>
  Message As() const {
    return Decode<Message>(cdr);
  }
};

// Reads a recording, which may be hostile or damaged. Not for several threads at once.
class BagReader {
 public:
  // Throws Failure if `path` is no recording or a newer one. Messages on topics that are not ours
  // are left out.
  explicit BagReader(const std::string& path);

  // The next message in the order of arrival; none at the end.
  std::optional<StoredMessage> Next();

  // Whether it was closed properly.
  bool closed() const { return closed_; }
  // Messages later than this may be missing in a recording that was not closed.
  std::int64_t synced_ns() const { return synced_ns_; }
  const Database& database() const { return database_; }
  // By the file's number.
  const std::map<std::int64_t, Topic>& topics() const { return topics_; }

 private:
  std::string Key(const char* key);

  Database database_;
  std::map<std::int64_t, Topic> topics_;
  std::optional<Statement> messages_;
  bool closed_ = false;
  std::int64_t synced_ns_ = 0;
};

}  // namespace tool
