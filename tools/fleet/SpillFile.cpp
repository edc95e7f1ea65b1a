#include "fleet/SpillFile.h"

#include <fmt/core.h>
#include <sqlite3.h>

#include <algorithm>
#include <map>

#include "Failure.h"

namespace tool::fleet {
namespace {

// Rows of "packets": the headers as they go over the network, a line each.
constexpr const char* kTables =
    "CREATE TABLE IF NOT EXISTS packets(id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " headers TEXT NOT NULL, payload BLOB NOT NULL)";

Database Opened(const std::string& path) {
  Database database(path, Database::Mode::kContinue);
  // A rollback journal would sync the disk for every record.
  database.Run(
      fmt::format("{}; COMMIT; PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL", kTables));
  return database;
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
  if (!header) {
    throw Failure(ExitCode::kFile, fmt::format("{}: this is no store of a publisher", path),
                  "give another file with --store");
  }
  return *header;
}

}  // namespace

SpillFile::SpillFile(const std::string& path)
    : database_(Opened(path)),
      insert_(database_, "INSERT INTO packets(headers, payload) VALUES(?, ?)"),
      next_(database_, "SELECT id, headers, payload FROM packets WHERE id > ? ORDER BY id LIMIT 1"),
      remove_(database_, "DELETE FROM packets WHERE id > ? AND id <= ?") {
  Statement count(database_, "SELECT count(*), total(length(payload)), min(id) FROM packets");
  if (count.Next()) {
    waiting_ = static_cast<std::uint64_t>(count.Number(0));
    bytes_ = static_cast<std::uint64_t>(count.Number(1));
    if (waiting_ > 0) taken_ = removed_ = count.Number(2) - 1;
  }
  count.Reset();
}

void SpillFile::Append(const std::vector<Packet>& record) {
  std::uint64_t bytes = 0;
  database_.Run("BEGIN");
  try {
    for (const Packet& packet : record) {
      const std::string headers = HeaderLines(packet.header);
      insert_.Bind(0, std::string_view(headers));
      insert_.Bind(1, std::span<const std::byte>(packet.payload));
      insert_.Run();
      bytes += packet.payload.size();
    }
    database_.Run("COMMIT");
  } catch (const Failure&) {
    // Some errors have taken it back already.
    if (sqlite3_get_autocommit(database_.handle()) == 0) database_.Run("ROLLBACK");
    throw;
  }
  waiting_ += record.size();
  bytes_ += bytes;
}

std::vector<SpillFile::Row> SpillFile::Next() {
  std::vector<Row> rows;
  std::int64_t after = taken_;
  for (std::uint64_t wanted = 1; wanted > 0; --wanted) {
    next_.Bind(0, after);
    if (!next_.Next()) break;
    Row row;
    row.number = after = next_.Number(0);
    row.packet.header = HeaderIn(next_.Text(1), database_.path());
    const auto payload = next_.Blob(2);
    row.packet.payload.assign(payload.begin(), payload.end());
    next_.Reset();
    if (rows.empty()) wanted = row.packet.header.parts - row.packet.header.part + 1;
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
  for (const Row& row : rows) {
    remove_.Bind(0, row.number - 1);
    remove_.Bind(1, row.number);
    remove_.Run();
    bytes_ -= std::min<std::uint64_t>(bytes_, row.packet.payload.size());
  }
  if (!rows.empty()) {
    taken_ = rows.back().number;
    waiting_ -= std::min<std::uint64_t>(waiting_, rows.size());
  }
  return rows;
}

void SpillFile::RemoveBefore(std::int64_t number) {
  const std::int64_t last = std::min(number - 1, taken_);
  if (last <= removed_) return;
  Statement sum(database_, "SELECT total(length(payload)) FROM packets WHERE id > ? AND id <= ?");
  sum.Bind(0, removed_);
  sum.Bind(1, last);
  const auto gone = static_cast<std::uint64_t>(sum.Next() ? sum.Number(0) : 0);
  sum.Reset();
  remove_.Bind(0, removed_);
  remove_.Bind(1, last);
  remove_.Run();
  removed_ = last;
  bytes_ -= std::min(bytes_, gone);
}

}  // namespace tool::fleet
