#include "record/storm/Numbered.h"

#include <fmt/format.h>

#include <algorithm>
#include <random>
#include <vector>

#include "Failure.h"
#include "record/BagReader.h"
#include "record/Messages.h"

namespace storm {
namespace {

using tool::BagReader;
using tool::StripsMessage;

constexpr std::int64_t kFirstStamp = 1'700'000'000'000'000'000;

std::int64_t StampOf(std::uint32_t number) {
  return kFirstStamp + number * std::int64_t{1'000'000};
}

// Mostly of a strip buffer's length, some shorter than a page of the file and some much longer.
std::vector<std::byte> DataOf(unsigned seed, std::uint32_t number) {
  std::minstd_rand random(seed * 7919u + number);
  const std::size_t most = random() % 8 == 0 ? 1'000'000 : 100'000;
  std::vector<std::byte> data(random() % most);
  std::uint32_t state = random();
  for (std::byte& byte : data) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<std::byte>(state >> 24);
  }
  return data;
}

std::optional<std::string> ProblemInside(BagReader& reader, unsigned seed,
                                         const Progress& progress) {
  std::uint32_t found = 0;
  for (; const auto message = reader.Next(); ++found) {
    const auto strips = message->As<StripsMessage>();
    if (strips.strips != found || message->stamp_ns != StampOf(found) ||
        !std::ranges::equal(strips.data, DataOf(seed, found))) {
      return fmt::format("message {} is not what was written", found);
    }
  }
  if (found < progress.synced || found > progress.written) {
    return fmt::format("{} messages; {} were synced, {} written", found, progress.synced,
                       progress.written);
  }
  if (reader.closed() && (!progress.closing || found != progress.written)) {
    return fmt::format("closed with {} of {} messages", found, progress.written);
  }
  const std::int64_t synced_ns = found == 0 ? 0 : StampOf(found - 1);
  if (reader.synced_ns() != synced_ns) {
    return fmt::format("synced up to {}, and the last message is at {}", reader.synced_ns(),
                       synced_ns);
  }
  tool::Statement check(reader.database(), "PRAGMA integrity_check");
  if (!check.Next() || check.Text(0) != "ok") return "integrity_check: " + check.Text(0);
  return std::nullopt;
}

}  // namespace

void WriteNumbered(tool::BagWriter& writer, unsigned seed, std::uint32_t number) {
  const auto data = DataOf(seed, number);
  StripsMessage strips;
  strips.stamp_ns = StampOf(number);
  strips.strips = number;
  strips.point_bytes = 8;
  strips.data = data;
  writer.Write(tool::Topic::kStrips, strips.stamp_ns, tool::Encode(strips));
}

std::optional<std::string> Problem(const std::filesystem::path& path, unsigned seed,
                                   const Progress& progress) {
  try {
    BagReader reader(path);
    return ProblemInside(reader, seed, progress);
  } catch (const tool::Failure& failure) {
    // What was interrupted before it began is refused.
    if (!progress.created) return std::nullopt;
    return fmt::format("refused: {}", failure.what());
  }
}

}  // namespace storm
