#include "record/BagWriter.h"

#include <fmt/format.h>

#include <utility>

#include "Failure.h"
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
  database.Run("COMMIT");
  database.KeepJournal();
  database.Run("BEGIN");
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
  database_->KeepFile();
}

template <typename Call>
void BagWriter::Attempt(const Call& call) {
  if (failed_) {
    throw Failure(ExitCode::kFile,
                  fmt::format("{}: writing it has failed before", database_->path()),
                  "what was synced before is kept; begin a new recording");
  }
  failed_ = true;
  call();
  failed_ = false;
}

void BagWriter::Write(Topic topic, std::int64_t stamp_ns, std::span<const std::byte> cdr) {
  Attempt([&] {
    insert_->Bind(0, static_cast<std::int64_t>(topic) + 1);
    insert_->Bind(1, stamp_ns);
    insert_->Bind(2, cdr);
    insert_->Run();
    last_stamp_ns_ = stamp_ns;
  });
}

void BagWriter::Sync() {
  Attempt([&] { Commit(); });
}

void BagWriter::Close() {
  Attempt([&] {
    SetKey(kClosedKey, "yes");
    Commit();
    // Without its journal, the file stands by itself.
    database_->Run("COMMIT; PRAGMA journal_mode = DELETE");
    insert_.reset();
    database_.reset();
  });
}

void BagWriter::Commit() {
  SetKey(kSyncedKey, std::to_string(last_stamp_ns_));
  database_->Run("COMMIT; BEGIN");
  ++syncs_;
}

void BagWriter::SetKey(const char* key, const std::string& value) {
  // An INSERT OR REPLACE would need room for a temporary file in another folder.
  Statement set(*database_, "UPDATE tessaline SET value = ? WHERE key = ?");
  set.Bind(0, std::string_view(value));
  set.Bind(1, std::string_view(key));
  set.Run();
}

}  // namespace tool
