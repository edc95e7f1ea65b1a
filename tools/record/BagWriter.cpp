#include "record/BagWriter.h"

#include <utility>

#include "record/Schema.h"

namespace tool {
namespace {

Database NewRecording(const std::string& path) {
  Database database(path, Database::Mode::kCreate);
  database.Run(std::string("BEGIN;") + kSchemaSql);
  Statement topic(database, "INSERT INTO topics VALUES(?, ?, ?, 'cdr', '', '')");
  Statement definition(database, "INSERT INTO message_definitions VALUES(?, ?, 'ros2msg', ?, '')");
  for (const TopicEntry& entry : kTopics) {
    const auto id = static_cast<std::int64_t>(entry.topic) + 1;
    topic.Bind(0, id);
    topic.Bind(1, entry.name);
    topic.Bind(2, entry.type);
    topic.Run();
    definition.Bind(0, id);
    definition.Bind(1, entry.type);
    const std::string whole = WholeDefinition(entry);
    definition.Bind(2, std::string_view(whole));
    definition.Run();
  }
  return database;
}

}  // namespace

BagWriter::BagWriter(const std::string& path)
    : database_(NewRecording(path)),
      insert_(std::in_place, *database_,
              "INSERT INTO messages(topic_id, timestamp, data) VALUES(?, ?, ?)") {
  SetKey(kVersionKey, std::to_string(kRecordingVersion));
  SetKey(kClosedKey, "no");
  Sync();
}

void BagWriter::Write(Topic topic, std::int64_t stamp_ns, std::span<const std::byte> cdr) {
  insert_->Bind(0, static_cast<std::int64_t>(topic) + 1);
  insert_->Bind(1, stamp_ns);
  insert_->Bind(2, cdr);
  insert_->Run();
  last_stamp_ns_ = stamp_ns;
}

void BagWriter::Sync() {
  SetKey(kSyncedKey, std::to_string(last_stamp_ns_));
  database_->Run("COMMIT; BEGIN");
  ++syncs_;
}

void BagWriter::Close() {
  SetKey(kClosedKey, "yes");
  Sync();
  // Without its journal, the file stands by itself.
  database_->Run("COMMIT; PRAGMA journal_mode = DELETE");
  insert_.reset();
  database_.reset();
}

void BagWriter::SetKey(const char* key, const std::string& value) {
  Statement set(*database_, "INSERT OR REPLACE INTO tessaline VALUES(?, ?)");
  set.Bind(0, std::string_view(key));
  set.Bind(1, std::string_view(value));
  set.Run();
}

}  // namespace tool
