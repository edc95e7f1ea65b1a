#include "record/storm/FleetRounds.h"

#include <fmt/format.h>

#include <array>
#include <random>
#include <vector>

#include "Failure.h"
#include "record/BagReader.h"
#include "record/FleetFile.h"
#include "record/storm/SimulatedDisk.h"

namespace storm {
namespace {

using tool::Failure;
using tool::FleetFile;

constexpr const char* kFile = "all.db3";
constexpr const char* kRun = "6f1c000000000001";
constexpr std::array kSensors{"line3.left", "line3.right"};

struct Plan {
  std::uint64_t packets;
  std::uint64_t per_sync;
  std::size_t bytes;
};

Plan PlanOf(std::mt19937& random) {
  // Some have more between two syncs than SQLite's cache holds.
  const bool large = random() % 8 == 0;
  return {.packets = 1 + random() % 60,
          .per_sync = large ? 40 : 1 + random() % 20,
          .bytes = large ? std::size_t{40'000} : 1 + random() % 3000};
}

std::uint64_t PositionOf(const FleetFile& file, const char* sensor) {
  const auto found = file.positions().find({sensor, kRun});
  return found == file.positions().end() ? 0 : found->second;
}

// Goes on behind the file's position, up to the last packet; each is one image per sensor, whose
// stamp is its number. `synced`: what has been synced.
void Work(const std::filesystem::path& path, const Plan& plan, std::uint64_t& synced) {
  FleetFile file(path);
  const std::vector<std::byte> pixels(plan.bytes);
  for (std::uint64_t number = PositionOf(file, kSensors[0]) + 1; number <= plan.packets; ++number) {
    for (const char* const sensor : kSensors) {
      file.Write(sensor, {ring::Kind::kImage, static_cast<std::int64_t>(number), 1, 1, pixels});
      file.SetPosition(sensor, kRun, number);
    }
    if (number % plan.per_sync != 0) continue;
    file.Sync();
    synced = number;
  }
  file.Close();
  synced = plan.packets;
}

std::uint64_t CallsOf(const std::filesystem::path& path, const Plan& plan) {
  std::uint64_t synced = 0;
  SimulatedDisk disk;
  Work(path, plan, synced);
  return disk.calls();
}

// Whether the sensor's messages are those of packets 1 to `last`, once each.
bool HasEach(const std::filesystem::path& path, const char* sensor, std::uint64_t last) {
  tool::BagReader reader(path, tool::Database::Mode::kRead, sensor);
  std::uint64_t number = 0;
  while (const auto message = reader.Next()) {
    if (message->stamp_ns != static_cast<std::int64_t>(++number)) return false;
  }
  return number == last;
}

}  // namespace

std::optional<std::string> FleetPowerCut(const std::filesystem::path& folder, unsigned seed) {
  std::mt19937 random(seed);
  const Plan plan = PlanOf(random);
  const std::uint64_t calls = CallsOf(folder / "rehearsal.db3", plan);
  const std::filesystem::path path = folder / kFile;
  std::uint64_t synced = 0;
  {
    SimulatedDisk disk;
    disk.CutAfter(random() % (calls + 1));  // the last one: after the end
    try {
      Work(path, plan, synced);
    } catch (const Failure&) {
    }
    disk.SaveAfterCut(random);
  }
  std::uint64_t position = 0;
  {
    const FleetFile file(path);
    position = PositionOf(file, kSensors[0]);
    if (PositionOf(file, kSensors[1]) != position) return "positions of one sync differ";
  }
  if (position < synced) return fmt::format("{} of {} synced packets", position, synced);
  for (const char* const sensor : kSensors) {
    if (position > 0 && !HasEach(path, sensor, position)) return "not what the position says";
  }
  Work(path, plan, synced);
  for (const char* const sensor : kSensors) {
    if (!HasEach(path, sensor, plan.packets)) return "continued, and not each packet once";
  }
  return std::nullopt;
}

}  // namespace storm
