#include "record/BagCheck.h"

#include <fmt/format.h>

#include <sstream>

#include "Failure.h"

namespace tool {
namespace {

constexpr std::size_t kLongestLine = 200;

std::vector<std::string> Integrity(const std::string& path) {
  std::vector<std::string> lines;
  try {
    const Database database(path, Database::Mode::kRead);
    Statement check(database,
                    fmt::format("PRAGMA integrity_check({})", BagFindings::kMostIntegrityLines));
    while (lines.size() < BagFindings::kMostIntegrityLines && check.Next()) {
      std::istringstream complaints(check.Text(0));
      for (std::string line; std::getline(complaints, line);) {
        if (line != "ok" && !line.starts_with("***")) lines.push_back(line.substr(0, kLongestLine));
      }
    }
  } catch (const Damaged& damaged) {
    lines.emplace_back(damaged.what());
  }
  return lines;
}

// Where one stretch ends and the next begins.
class Stretches {
 public:
  explicit Stretches(BagFindings& findings) : findings_(findings) {}

  void Add(const StoredMessage& message) {
    BagFindings::Stretch& now = open_;
    if (now.messages == 0) {
      now.first_id = message.id;
      strips_before_ = findings_.contents.strips().frames();
      images_before_ = findings_.contents.images().frames();
    }
    findings_.contents.Add(message);
    now.span.Add(message.stamp_ns);
    now.last_id = message.id;
    ++now.messages;
  }
  void End() {
    if (open_.messages == 0) return;
    open_.strips = findings_.contents.strips().frames() - strips_before_;
    open_.images = findings_.contents.images().frames() - images_before_;
    if (findings_.whole.size() < BagFindings::kMostKept) findings_.whole.push_back(open_);
    ++findings_.whole_count;
    open_ = {};
  }

 private:
  BagFindings& findings_;
  BagFindings::Stretch open_;
  std::uint64_t strips_before_ = 0, images_before_ = 0;
};

}  // namespace

BagFindings ReadBag(const BagSource& source, const std::function<bool()>& stop) {
  SalvageReader reader(source);
  BagFindings findings;
  findings.sensor = reader.reader().sensor();
  findings.version = reader.reader().version();
  findings.closed = reader.reader().closed();
  findings.synced_ns = reader.reader().synced_ns();
  Stretches stretches(findings);
  std::uint64_t damaged = 0;
  while (const auto message = reader.Next()) {
    if (stop()) {
      throw Failure(ExitCode::kInterrupted, fmt::format("{}: not read to the end", source.path));
    }
    if (reader.damaged() != damaged) stretches.End();
    damaged = reader.damaged();
    try {
      stretches.Add(*message);
    } catch (const Failure& failure) {
      stretches.End();
      ++findings.bad_count;
      if (findings.bad.size() < BagFindings::kMostKept) {
        findings.bad.push_back({message->id, failure.what()});
      }
    }
  }
  stretches.End();
  findings.places = reader.places();
  findings.place_count = reader.damaged();
  return findings;
}

std::vector<BagFindings> ReadBags(const BagSource& source, const std::function<bool()>& stop) {
  std::vector<BagFindings> findings;
  if (source.sensor.empty()) {
    for (const std::string& sensor : SensorsOf(source.path)) {
      findings.push_back(ReadBag({source.path, sensor}, stop));
    }
  }
  if (findings.empty()) findings.push_back(ReadBag(source, stop));
  return findings;
}

std::vector<BagFindings> CheckBags(const BagSource& source, const std::function<bool()>& stop) {
  std::vector<BagFindings> findings = ReadBags(source, stop);
  findings.front().integrity = Integrity(source.path);
  return findings;
}

}  // namespace tool
