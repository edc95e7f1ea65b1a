#include "record/BagWriter.h"

#include <fmt/format.h>

#include <utility>

#include "Failure.h"
#include "record/BagTables.h"
#include "record/Schema.h"

namespace tool {
namespace {

Database NewRecording(const std::string& path) {
  Database database(path, Database::Mode::kCreate);
  database.Run("BEGIN");
  MakeTables(database);
  AddTopics(database, "");
  database.Run("COMMIT");
  database.KeepJournal();
  database.Run("BEGIN");
  return database;
}

}  // namespace

BagWriter::BagWriter(const std::string& path) : BagWriter(NewRecording(path), kRecordingVersion) {}

BagWriter::BagWriter(Database database, int version)
    : database_(std::move(database)),
      insert_(std::in_place, *database_,
              "INSERT INTO messages(topic_id, timestamp, data) VALUES(?, ?, ?)"),
      last_stamp_ns_(WholeNumberIn(ReadKey(*database_, kSyncedKey))) {
  SetKey(*database_, kVersionKey, std::to_string(version));
  SetKey(*database_, kClosedKey, "no");
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

void BagWriter::Write(std::int64_t number, std::int64_t stamp_ns, std::span<const std::byte> cdr) {
  Attempt([&] {
    insert_->Bind(0, number);
    insert_->Bind(1, stamp_ns);
    insert_->Bind(2, cdr);
    insert_->Run();
    last_stamp_ns_ = stamp_ns;
  });
}

void BagWriter::Change(const std::function<void(Database&)>& change) {
  Attempt([&] { change(*database_); });
}

void BagWriter::Sync() {
  Attempt([&] { Commit(); });
}

void BagWriter::Close() {
  Attempt([&] {
    SetKey(*database_, kClosedKey, "yes");
    Commit();
    // Without its journal, the file stands by itself.
    database_->Run("COMMIT; PRAGMA journal_mode = DELETE");
    insert_.reset();
    database_.reset();
  });
}

void BagWriter::Commit() {
  SetKey(*database_, kSyncedKey, std::to_string(last_stamp_ns_));
  database_->Run("COMMIT; BEGIN");
  ++syncs_;
}

}  // namespace tool
