#include "fleet/SpillFile.h"

#include <fmt/core.h>
#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <map>

#include "Failure.h"

namespace tool::fleet {
namespace {

// Rows of "packets": the headers as they go over the network, a line each. A number is never used
// again, and there is room for others in front of the first.
constexpr const char* kTable =
    "CREATE TABLE packets(id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " headers TEXT NOT NULL, payload BLOB NOT NULL)";
constexpr std::int64_t kFirstNumber = std::int64_t{1} << 40;
// Of a file without rows.
constexpr std::int64_t kOwnPages = 3;

[[noreturn]] void Refuse(const std::string& path) {
  throw Failure(ExitCode::kExists, fmt::format("{}: this is no store of a publisher", path),
                "give another file with --store");
}

void RequireOurs(Database& database) {
  Statement schema(
      database, "SELECT count(*), total(sql = ? OR name = 'sqlite_sequence') FROM sqlite_schema");
  schema.Bind(0, std::string_view(kTable));
  schema.Next();
  const std::int64_t objects = schema.Number(0);
  if (objects != schema.Number(1) || objects == 1) Refuse(database.path());
  schema.Reset();
  if (objects > 0) return;
  database.Run(kTable);
  database.Run(fmt::format("INSERT INTO sqlite_sequence(name, seq) VALUES('packets', {})",
                           kFirstNumber - 1));
}

Database Opened(const std::string& path) {
  try {
    Database database(path, Database::Mode::kContinue);
    RequireOurs(database);
    // A rollback journal would sync the disk for every record.
    database.Run("COMMIT; PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
    return database;
  } catch (const NoDatabase&) {
    Refuse(path);
  }
}

std::string HeaderLines(const PacketHeader& header) {
  std::string text;
  ForEachHeader(header, [&](const char* name, const std::string& value) {
    text += fmt::format("{}: {}\n", name, value);
  });
  return text;
}

PacketHeader HeaderIn(const std::string& text, const std::string& path) {
  std::map<std::string, std::string, std::less<>> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::size_t colon = text.find(": ", at);
    if (colon < end) lines[text.substr(at, colon - at)] = text.substr(colon + 2, end - colon - 2);
    at = end + 1;
  }
  const auto header = ReadHeaders([&](const char* name) {
    const auto found = lines.find(name);
    return found == lines.end() ? std::string() : found->second;
  });
  if (!header) Refuse(path);
  return *header;
}

}  // namespace

SpillFile::SpillFile(const std::string& path)
    : database_(Opened(path)),
      insert_(database_, "INSERT INTO packets(id, headers, payload) VALUES(?, ?, ?)"),
      next_(database_, "SELECT id, headers, payload FROM packets WHERE id > ? ORDER BY id LIMIT 1"),
      remove_(database_, "DELETE FROM packets WHERE id > ? AND id <= ?"),
      pages_(database_, "PRAGMA page_count"),
      free_pages_(database_, "PRAGMA freelist_count") {
  // Not counted: of a full disk, that would read a good part.
  Statement ends(database_,
                 "SELECT min(id), (SELECT max(id) FROM packets), count(*) FROM "
                 "(SELECT id FROM packets ORDER BY id LIMIT 1)");
  ends.Next();
  if (ends.Number(2) > 0) {
    taken_ = removed_ = ends.Number(0) - 1;
    last_ = ends.Number(1);
    waiting_ = static_cast<std::uint64_t>(last_ - taken_);
  } else {
    Statement sequence(database_, "SELECT max(seq) FROM sqlite_sequence");
    sequence.Next();
    last_ = taken_ = removed_ = std::max(sequence.Number(0), kFirstNumber - 1);
    sequence.Reset();
  }
  ends.Reset();
  Measure();
  Next();  // a file that somebody has changed
}

void SpillFile::InTransaction(const std::function<void()>& work) {
  database_.Run("BEGIN");
  try {
    work();
    database_.Run("COMMIT");
  } catch (const Failure&) {
    // Some errors have taken it back already.
    if (sqlite3_get_autocommit(database_.handle()) == 0) database_.Run("ROLLBACK");
    throw;
  }
}

void SpillFile::Insert(std::int64_t number, const Packet& packet) {
  const std::string headers = HeaderLines(packet.header);
  insert_.Bind(0, number);
  insert_.Bind(1, std::string_view(headers));
  insert_.Bind(2, std::span<const std::byte>(packet.payload));
  insert_.Run();
}

void SpillFile::Remove(std::int64_t after, std::int64_t last) {
  remove_.Bind(0, after);
  remove_.Bind(1, last);
  remove_.Run();
}

void SpillFile::Measure() {
  const auto number = [](Statement& statement) {
    const std::int64_t value = statement.Next() ? statement.Number(0) : 0;
    statement.Reset();
    return value;
  };
  const std::int64_t used = number(pages_) - number(free_pages_) - kOwnPages;
  bytes_ = static_cast<std::uint64_t>(std::max<std::int64_t>(used, 0)) * Database::kPageBytes;
}

void SpillFile::Append(const std::vector<Packet>& record) {
  std::int64_t number = last_;
  InTransaction([&] {
    for (const Packet& packet : record) Insert(++number, packet);
  });
  last_ = number;
  waiting_ += record.size();
  Measure();
}

void SpillFile::PutInFront(const std::vector<Packet>& packets) {
  const std::int64_t before = taken_ - static_cast<std::int64_t>(packets.size());
  InTransaction([&] {
    Remove(std::numeric_limits<std::int64_t>::min(), taken_);
    std::int64_t number = before;
    for (const Packet& packet : packets) Insert(++number, packet);
  });
  taken_ = removed_ = before;
  waiting_ += packets.size();
  Measure();
}

std::vector<SpillFile::Row> SpillFile::Next() {
  std::vector<Row> rows;
  std::int64_t after = taken_;
  for (std::uint64_t wanted = 1; wanted > 0; --wanted) {
    next_.Bind(0, after);
    if (!next_.Next()) break;
    Row row;
    row.number = after = next_.Number(0);
    const std::string headers = next_.Text(1);
    const auto payload = next_.Blob(2);
    row.packet.payload.assign(payload.begin(), payload.end());
    next_.Reset();
    row.packet.header = HeaderIn(headers, database_.path());
    const PacketHeader& header = row.packet.header;
    if (rows.empty()) {
      wanted = header.parts - header.part + 1;
    } else if (header.run != rows.back().packet.header.run ||
               header.part != rows.back().packet.header.part + 1) {
      break;
    }
    rows.push_back(std::move(row));
  }
  if (rows.empty()) waiting_ = 0;
  return rows;
}

std::vector<SpillFile::Row> SpillFile::Take() {
  std::vector<Row> rows = Next();
  if (rows.empty()) return rows;
  taken_ = rows.back().number;
  waiting_ -= std::min<std::uint64_t>(waiting_, rows.size());
  return rows;
}

std::vector<SpillFile::Row> SpillFile::Drop() {
  std::vector<Row> rows = Next();
  if (rows.empty()) return rows;
  Remove(taken_, rows.back().number);
  taken_ = rows.back().number;
  waiting_ -= std::min<std::uint64_t>(waiting_, rows.size());
  Measure();
  return rows;
}

void SpillFile::RemoveBefore(std::int64_t number) {
  const std::int64_t last = std::min(number - 1, taken_);
  if (last <= removed_) return;
  Remove(removed_, last);
  removed_ = last;
  Measure();
}

}  // namespace tool::fleet
