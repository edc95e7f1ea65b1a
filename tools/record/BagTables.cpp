#include "record/BagTables.h"

#include <fmt/format.h>

#include <charconv>
#include <filesystem>
#include <system_error>

#include "Failure.h"
#include "record/Schema.h"
#include "record/SensorName.h"

namespace tool {
namespace {

[[noreturn]] void RefuseExisting(const std::string& path) {
  throw Failure(ExitCode::kExists,
                fmt::format("{} already exists, and is no recording of several sensors", path),
                "only such a recording is continued; choose another name");
}

// Nothing but our own tables: others could run something when a row is written.
bool IsFleetFile(const Database& database) {
  Statement schema(database,
                   "SELECT count(*), sum(instr(?, sql || ';') > 0) FROM sqlite_schema "
                   "WHERE sql IS NOT NULL");
  const std::string ours = std::string(kSchemaSql) + kPositionsSql;
  schema.Bind(0, std::string_view(ours));
  schema.Next();
  const std::int64_t objects = schema.Number(0);
  const std::int64_t known = schema.Number(1);
  return objects == kFleetObjects && known == kFleetObjects &&
         WholeNumberIn(ReadKey(database, kVersionKey)) == kFleetVersion;
}

// A new file, or one whose writer was interrupted before its first sync.
bool IsEmpty(const std::string& path) {
  std::error_code error;
  return std::filesystem::file_size(path, error) == 0 && !error;
}

Database OpenToContinue(const std::string& path) {
  try {
    return Database(path, Database::Mode::kContinue);
  } catch (const NoDatabase&) {
    RefuseExisting(path);
  }
}

}  // namespace

Database OpenFleetTables(const std::string& path) {
  Database database = OpenToContinue(path);
  if (IsEmpty(path)) {
    MakeTables(database);
    database.Run(kPositionsSql);
    // With the tables, or a kill before the first sync would leave a file that nobody continues.
    SetKey(database, kVersionKey, std::to_string(kFleetVersion));
  } else if (!IsFleetFile(database)) {
    RefuseExisting(path);
  }
  database.Run("COMMIT");
  database.KeepJournal();
  database.Run("BEGIN");
  return database;
}

void MakeTables(Database& database) {
  database.Run(kSchemaSql);
  Statement definition(database, "INSERT INTO message_definitions VALUES(?, ?, 'ros2msg', ?, '')");
  for (const TopicEntry& entry : kTopics) {
    definition.Bind(0, static_cast<std::int64_t>(entry.topic) + 1);
    definition.Bind(1, entry.type);
    const std::string whole = WholeDefinition(entry);
    definition.Bind(2, std::string_view(whole));
    definition.Run();
  }
}

BagWriter::Numbers AddTopics(Database& database, std::string_view sensor) {
  BagWriter::Numbers numbers{};
  Statement topic(database,
                  "INSERT INTO topics(name, type, serialization_format, offered_qos_profiles, "
                  "type_description_hash) VALUES(?, ?, 'cdr', '', '')");
  for (const TopicEntry& entry : kTopics) {
    const std::string name = TopicNameOf(sensor, entry.topic);
    topic.Bind(0, std::string_view(name));
    topic.Bind(1, entry.type);
    topic.Run();
    numbers[static_cast<std::size_t>(entry.topic)] = database.LastRow();
  }
  return numbers;
}

std::string ReadKey(const Database& database, const char* key) {
  Statement value(database, "SELECT value FROM tessaline WHERE key = ?");
  value.Bind(0, std::string_view(key));
  return value.Next() ? value.Text(0) : std::string();
}

void SetKey(const Database& database, const char* key, const std::string& value) {
  // An INSERT OR REPLACE would need room for a temporary file in another folder.
  Statement set(database, "UPDATE tessaline SET value = ? WHERE key = ?");
  set.Bind(0, std::string_view(value));
  set.Bind(1, std::string_view(key));
  set.Run();
}

std::int64_t WholeNumberIn(const std::string& text) {
  std::int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace tool
