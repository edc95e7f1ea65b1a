#include "record/BagReader.h"

#include <fmt/format.h>

#include "Failure.h"
#include "record/BagTables.h"
#include "record/Schema.h"

namespace tool {
namespace {

// Tables exactly as a writer makes them. Others could compute something in every row, or run
// something when they are read.
void RequireTables(const Database& database) {
  Statement found(database,
                  "SELECT count(*) FROM sqlite_schema WHERE type = 'table' AND "
                  "name IN ('topics', 'messages', 'tessaline') AND instr(?, sql || ';') > 0");
  found.Bind(0, std::string_view(kSchemaSql));
  found.Next();
  if (found.Number(0) == 3) return;
  throw Failure(ExitCode::kFile, fmt::format("{}: this is no recording", database.path()),
                "a recording is made with \"tessaline record\"");
}

// Whether it was made as a file of several sensors.
bool HasPositions(const Database& database) {
  Statement found(database,
                  "SELECT count(*) FROM sqlite_schema WHERE name = 'tessaline_positions'");
  found.Next();
  return found.Number(0) > 0;
}

}  // namespace

BagReader::BagReader(const std::string& path, Database::Mode mode, const std::string& sensor)
    : database_(path, mode) {
  RequireTables(database_);
  const auto read = [&](auto part, auto instead) {
    try {
      part();
    } catch (const Damaged&) {
      // The messages may be whole.
      if (mode != Database::Mode::kSalvage) throw;
      instead();
    }
  };
  read([this] { ReadKeys(); }, [] {});
  read([&] { ReadTopics(sensor); },
       [&] {
         // Which number is whose nobody knows then.
         if (!sensor.empty() || HasPositions(database_)) throw;
         for (const TopicEntry& entry : kTopics) {
           topics_[BagWriter::kPlainNumbers[static_cast<std::size_t>(entry.topic)]] = entry.topic;
         }
       });
  messages_.emplace(database_,
                    "SELECT id, topic_id, timestamp, data FROM messages WHERE id > ? ORDER BY id");
  SkipTo(position_);
}

void BagReader::ReadKeys() {
  const std::int64_t version = WholeNumberIn(ReadKey(database_, kVersionKey));
  if (version != kRecordingVersion && version != kFleetVersion) {
    throw Failure(ExitCode::kFile,
                  fmt::format("{}: a recording of version {}, this program reads {} and {}",
                              database_.path(), version, kRecordingVersion, kFleetVersion),
                  "use the program that wrote it, or a newer one");
  }
  version_ = static_cast<int>(version);
  closed_ = ReadKey(database_, kClosedKey) == "yes";
  synced_ns_ = WholeNumberIn(ReadKey(database_, kSyncedKey));
}

void BagReader::ReadTopics(const std::string& sensor) {
  const BagTopics topics(database_);
  sensor_ = topics.Choose(sensor);
  topics_ = topics.Of(sensor_);
}

void BagReader::SkipTo(std::int64_t id) {
  messages_->Reset();
  messages_->Bind(0, id);
  position_ = id;
}

std::optional<StoredMessage> BagReader::Next() {
  while (messages_->Next()) {
    const std::int64_t id = messages_->Number(0);
    // Else a page that is part of itself would be read for ever.
    if (id <= position_) {
      throw Damaged(Failure(ExitCode::kFile, fmt::format("{}: it is damaged", database_.path())));
    }
    position_ = id;
    const auto topic = topics_.find(messages_->Number(1));
    if (topic == topics_.end()) continue;
    return StoredMessage{.id = id,
                         .topic = topic->second,
                         .stamp_ns = messages_->Number(2),
                         .cdr = messages_->Blob(3)};
  }
  return std::nullopt;
}

std::vector<std::string> SensorsOf(const std::string& path) {
  const Database database(path, Database::Mode::kSalvage);
  RequireTables(database);
  try {
    return BagTopics(database).sensors();
  } catch (const Damaged&) {
    if (HasPositions(database)) throw;
    return {};
  }
}

}  // namespace tool
