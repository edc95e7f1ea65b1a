#include "record/FleetFile.h"

#include <fmt/format.h>

#include "Failure.h"
#include "record/BagTables.h"
#include "record/BagTopics.h"
#include "record/Schema.h"
#include "record/SensorName.h"

namespace tool {
namespace {

// Those of a sensor that is in the file already.
BagWriter::Numbers NumbersOf(const std::string& path, const BagTopics::Numbers& topics) {
  BagWriter::Numbers numbers{};
  for (const auto& [number, topic] : topics) numbers[static_cast<std::size_t>(topic)] = number;
  for (const std::int64_t number : numbers) {
    if (number > 0) continue;
    throw Failure(ExitCode::kFile, fmt::format("{}: a sensor has not all topics", path),
                  "it is damaged, or of another version; begin a new file");
  }
  return numbers;
}

}  // namespace

FleetFile::FleetFile(const std::string& path)
    : path_(path), writer_(OpenFleetTables(path), kFleetVersion), positions_(writer_.database()) {
  const BagTopics topics(writer_.database());
  for (const std::string& sensor : topics.sensors()) {
    sensors_.try_emplace(sensor, writer_, NumbersOf(path_, topics.Of(sensor)));
  }
}

SensorWriter& FleetFile::Of(const std::string& sensor) {
  const auto known = sensors_.find(sensor);
  if (known != sensors_.end()) return known->second;
  RequireSensorName(sensor);
  if (sensors_.size() >= BagTopics::kMostSensors) {
    throw Failure(ExitCode::kUsage,
                  fmt::format("{}: more than {} sensors", path_, BagTopics::kMostSensors),
                  "write some of them into another file");
  }
  BagWriter::Numbers numbers{};
  writer_.Change([&](Database& database) { numbers = AddTopics(database, sensor); });
  return sensors_.try_emplace(sensor, writer_, numbers).first->second;
}

void FleetFile::Write(const std::string& sensor, const ring::Record& record) {
  Of(sensor).Write(record);
}

void FleetFile::Write(const std::string& sensor, const GapMessage& gap) { Of(sensor).Write(gap); }

void FleetFile::SetLost(const std::string& sensor, std::uint64_t by_device,
                        std::uint64_t frames_dropped, std::uint64_t others_dropped) {
  Of(sensor).SetLost(by_device, frames_dropped, others_dropped);
}

void FleetFile::SetPosition(const std::string& sensor, const std::string& run,
                            std::uint64_t sequence) {
  positions_.Set(sensor, run, sequence);
}

bool FleetFile::PrepareSync() {
  for (auto& [name, sensor] : sensors_) sensor.WriteLosses();
  const std::uint64_t messages = counts().messages;
  if (messages == synced_messages_ && !positions_.changed()) return false;
  synced_messages_ = messages;
  writer_.Change([this](Database& database) { positions_.Save(database); });
  return true;
}

void FleetFile::Sync() {
  if (PrepareSync()) writer_.Sync();
}

void FleetFile::Close() {
  PrepareSync();
  writer_.Close();
}

SensorWriter::Counts FleetFile::CountsOf(const std::string& sensor) const {
  const auto known = sensors_.find(sensor);
  return known == sensors_.end() ? SensorWriter::Counts() : known->second.counts();
}

SensorWriter::Counts FleetFile::counts() const {
  SensorWriter::Counts all;
  for (const auto& [name, sensor] : sensors_) all.Add(sensor.counts());
  return all;
}

}  // namespace tool
