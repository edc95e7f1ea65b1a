#include "record/PositionTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <limits>

#include "Failure.h"
#include "record/SensorName.h"

namespace tool {
namespace {

constexpr auto kMostSequence = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

bool IsRun(const std::string& run) {
  return !run.empty() && run.size() <= PositionTable::kMostRunName &&
         std::all_of(run.begin(), run.end(),
                     [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; });
}

}  // namespace

PositionTable::PositionTable(const Database& database) {
  Statement rows(database, fmt::format("SELECT sensor, run, sequence FROM tessaline_positions "
                                       "LIMIT {}",
                                       kMost + 1));
  while (rows.Next()) {
    Key key{rows.Text(0), rows.Text(1)};
    if (!IsSensorName(key.sensor) || !IsRun(key.run) || rows.Number(2) < 0 ||
        all_.size() >= kMost) {
      throw Failure(ExitCode::kFile,
                    fmt::format("{}: it is damaged: a position is none", database.path()));
    }
    all_[std::move(key)] = static_cast<std::uint64_t>(rows.Number(2));
  }
}

void PositionTable::Set(const std::string& sensor, const std::string& run, std::uint64_t sequence) {
  RequireSensorName(sensor);
  if (!IsRun(run) || sequence > kMostSequence) {
    throw Failure(ExitCode::kUsage, fmt::format("{}: no position of a publisher's run", sensor));
  }
  Key key{sensor, run};
  const auto known = all_.find(key);
  if (known == all_.end() && all_.size() >= kMost) {
    throw Failure(ExitCode::kFile, fmt::format("more than {} runs of publishers", kMost),
                  "begin a new file");
  }
  if (known != all_.end() && sequence <= known->second) return;
  changed_.try_emplace(key, known != all_.end());
  all_[std::move(key)] = sequence;
}

// An INSERT OR REPLACE would need room for a temporary file in another folder.
void PositionTable::Save(const Database& database) {
  Statement insert(database,
                   "INSERT INTO tessaline_positions(sequence, sensor, run) VALUES(?, ?, ?)");
  Statement update(database,
                   "UPDATE tessaline_positions SET sequence = ? WHERE sensor = ? AND run = ?");
  for (const auto& [key, has_row] : changed_) {
    Statement& statement = has_row ? update : insert;
    statement.Bind(0, static_cast<std::int64_t>(all_.at(key)));
    statement.Bind(1, std::string_view(key.sensor));
    statement.Bind(2, std::string_view(key.run));
    statement.Run();
  }
  changed_.clear();
}

}  // namespace tool
