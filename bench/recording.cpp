// Compares a recording with a plain file that gets the same bytes, on the disk of the folder that
// it is started in, with a sync every second; and with what the sensors make.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "Table.h"
#include "record/BagWriter.h"
#include "record/Messages.h"
#include "tessaline/frames.h"
#include "tessaline/products.h"

namespace {

using bench::Clock;
using std::chrono::seconds;
namespace products = VeltranoSDK::products;

constexpr const char* kRecording = "bench-recording.db3";
constexpr const char* kPlain = "bench-recording.raw";

// One message, over and over: what it holds makes no difference to a disk.
struct Load {
  std::string what;
  std::vector<std::byte> data;
  std::size_t messages;
};

struct Result {
  double megabytes_per_second = 0;
  double processor_ns = 0;     // a message
  double longest_sync_ns = 0;  // frames wait in memory meanwhile
  double file_bytes = 0;       // of a byte of the messages
};

Load LoadOf(std::string what, std::size_t size, std::size_t total) {
  std::mt19937 random(1);
  std::vector<std::byte> data(size);
  for (std::byte& byte : data) byte = static_cast<std::byte>(random());
  return {std::move(what), std::move(data), std::max<std::size_t>(1, total / size)};
}

// Calls `write` for each message, `sync` every second, and `end`.
template <typename Write, typename Sync, typename End>
Result Measure(const Load& load, const Write& write, const Sync& sync, const End& end) {
  const auto start = Clock::now();
  const double processor = bench::ThreadNanoseconds();
  auto due = start + seconds(1);
  Clock::duration longest{};
  for (std::size_t i = 0; i < load.messages; ++i) {
    write(static_cast<std::int64_t>(i));
    if (Clock::now() < due) continue;
    const auto begin = Clock::now();
    sync();
    longest = std::max(longest, Clock::now() - begin);
    due = Clock::now() + seconds(1);
  }
  const auto begin = Clock::now();
  end();
  longest = std::max(longest, Clock::now() - begin);
  const double bytes = static_cast<double>(load.data.size() * load.messages);
  return {bytes * 1e3 / bench::Nanoseconds(Clock::now() - start),
          (bench::ThreadNanoseconds() - processor) / static_cast<double>(load.messages),
          bench::Nanoseconds(longest)};
}

// Nothing of one file is left to be done while the next is measured.
void CleanUp(const char* path) {
  std::filesystem::remove(path);
  sync();
}

Result Record(const Load& load) {
  tool::BagWriter writer(kRecording);
  tool::Cdr cdr;
  Result result = Measure(
      load,
      [&](std::int64_t i) {
        tool::StripsMessage strips;
        strips.stamp_ns = i;
        strips.data = load.data;
        tool::EncodeInto(strips, cdr);
        writer.Write(tool::Topic::kStrips, i, cdr);
      },
      [&] { writer.Sync(); }, [&] { writer.Close(); });
  result.file_bytes = static_cast<double>(std::filesystem::file_size(kRecording)) /
                      static_cast<double>(load.data.size() * load.messages);
  CleanUp(kRecording);
  return result;
}

void Require(bool holds) {
  if (holds) return;
  std::perror(kPlain);
  std::exit(1);
}

Result WritePlain(const Load& load) {
  const int file = open(kPlain, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  Require(file >= 0);
  const auto flush = [file] { Require(fdatasync(file) == 0); };
  const Result result = Measure(
      load,
      [&](std::int64_t) {
        const auto size = static_cast<ssize_t>(load.data.size());
        Require(write(file, load.data.data(), load.data.size()) == size);
      },
      flush, flush);
  close(file);
  CleanUp(kPlain);
  return result;
}

// `sensor`: megabytes a second that a sensor makes, or 0.
void PrintRows(const Load& load, int rounds, double sensor = 0) {
  bench::Comparison rates;
  bench::Comparison times;
  bench::Comparison syncs;
  bench::Comparison margins;
  double file_bytes = 0;
  for (int round = 0; round < rounds; ++round) {
    const auto results = bench::InTurn<Result>(
        round, {[&] { return Record(load); }, [&] { return WritePlain(load); }});
    rates.AddRound(results[0].megabytes_per_second, results[1].megabytes_per_second);
    times.AddRound(results[0].processor_ns, results[1].processor_ns);
    syncs.AddRound(results[0].longest_sync_ns, results[1].longest_sync_ns);
    margins.AddRound(results[0].megabytes_per_second, sensor);
    file_bytes = results[0].file_bytes;
  }
  bench::CompareRates(load.what + ", recorded / plain file", rates, bench::Goal::AtLeast(0.6),
                      " MB/s")
      .Print();
  if (sensor != 0) {
    bench::CompareRates(load.what + ", recorded / the sensor", margins, {}, " MB/s").Print();
  }
  bench::CompareTimes(load.what + ", processor time of one", times).Print();
  bench::CompareTimes(load.what + ", longest sync", syncs).Print();
  bench::Figure(load.what + ", file / messages", bench::Number(file_bytes, 3)).Print();
}

// Of all rows, as fast as the sensor reads them.
void PrintFamily(const products::Family& family, std::size_t total, int rounds) {
  const products::ImageSensor& sensor = family.sensor;
  const std::size_t size =
      std::size_t{sensor.width} * sensor.height + sizeof(tessaline_image_header);
  PrintRows(LoadOf("images of a " + std::string(family.prefix) + "..", size, total), rounds,
            static_cast<double>(size) / sensor.trigger_spacing);
}

}  // namespace

int main(int argc, char** argv) {
  const bench::Options options = bench::ReadOptions(argc, argv);
  const std::size_t total = options.quick ? 4'000'000 : 2'000'000'000;
  const int rounds = options.quick ? 1 : 3;
  try {
    bench::PrintHeading();
    // A strip of 4096 points every 4 ms, which is what most bytes come of.
    constexpr double kMostStrips = (sizeof(tessaline_strip_header) + 4096 * 8) / 4000.0;
    PrintRows(LoadOf("strips of 30 kB", 30'000, total), rounds, kMostStrips);
    PrintRows(LoadOf("strips of 300 kB", 300'000, total), rounds, kMostStrips);
    for (const auto& family : products::kFamilies) PrintFamily(family, total, rounds);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
