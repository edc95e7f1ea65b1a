#include "record/BagReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "Failure.h"
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

// Ours are there once. More only come from a file that wants our memory.
constexpr std::size_t kMostTopics = 64;

std::int64_t NumberIn(const std::string& text) {
  std::int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

BagReader::BagReader(const std::string& path, Database::Mode mode) : database_(path, mode) {
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
  read([this] { ReadTopics(); },
       [this] {  // as BagWriter numbers them
         for (const TopicEntry& entry : kTopics) {
           topics_[static_cast<std::int64_t>(entry.topic) + 1] = entry.topic;
         }
       });
  messages_.emplace(database_,
                    "SELECT id, topic_id, timestamp, data FROM messages WHERE id > ? ORDER BY id");
  SkipTo(position_);
}

void BagReader::ReadKeys() {
  const std::int64_t version = NumberIn(Key(kVersionKey));
  if (version != kRecordingVersion) {
    throw Failure(ExitCode::kFile,
                  fmt::format("{}: a recording of version {}, this program reads {}",
                              database_.path(), version, kRecordingVersion),
                  "use the program that wrote it, or a newer one");
  }
  closed_ = Key(kClosedKey) == "yes";
  synced_ns_ = NumberIn(Key(kSyncedKey));
}

void BagReader::ReadTopics() {
  // A file that was made to be read for ever has more of them than anyone needs.
  Statement topics(database_, "SELECT id, name FROM topics LIMIT 1000");
  while (topics.Next()) {
    const std::string name = topics.Text(1);
    const auto* entry = std::find_if(kTopics.begin(), kTopics.end(),
                                     [&](const TopicEntry& topic) { return topic.name == name; });
    if (entry != kTopics.end()) topics_[topics.Number(0)] = entry->topic;
    if (topics_.size() > kMostTopics) {
      throw Failure(ExitCode::kFile,
                    fmt::format("{}: it is damaged: topics repeat", database_.path()));
    }
  }
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

std::string BagReader::Key(const char* key) {
  Statement value(database_, "SELECT value FROM tessaline WHERE key = ?");
  value.Bind(0, std::string_view(key));
  return value.Next() ? value.Text(0) : std::string();
}

}  // namespace tool
