// Compares a recording with a plain file that gets the same bytes, on the disk of the folder that
// it is started in, with a sync every second.
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

namespace {

using bench::Clock;
using std::chrono::seconds;

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
  double processor_ns = 0;  // a message
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
  for (std::size_t i = 0; i < load.messages; ++i) {
    write(static_cast<std::int64_t>(i));
    if (Clock::now() < due) continue;
    sync();
    due = Clock::now() + seconds(1);
  }
  end();
  const double bytes = static_cast<double>(load.data.size() * load.messages);
  return {bytes * 1e3 / bench::Nanoseconds(Clock::now() - start),
          (bench::ThreadNanoseconds() - processor) / static_cast<double>(load.messages)};
}

// Nothing of one file is left to be done while the next is measured.
void CleanUp(const char* path) {
  std::filesystem::remove(path);
  sync();
}

Result Record(const Load& load) {
  tool::BagWriter writer(kRecording);
  const Result result = Measure(
      load,
      [&](std::int64_t i) {
        tool::StripsMessage strips;
        strips.stamp_ns = i;
        strips.data = load.data;
        writer.Write(tool::Topic::kStrips, i, tool::Encode(strips));
      },
      [&] { writer.Sync(); }, [&] { writer.Close(); });
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

void PrintRows(const Load& load, int rounds) {
  bench::Comparison rates;
  bench::Comparison times;
  for (int round = 0; round < rounds; ++round) {
    const auto results = bench::InTurn<Result>(
        round, {[&] { return Record(load); }, [&] { return WritePlain(load); }});
    rates.AddRound(results[0].megabytes_per_second, results[1].megabytes_per_second);
    times.AddRound(results[0].processor_ns, results[1].processor_ns);
  }
  bench::CompareRates(load.what + ", recorded / plain file", rates, bench::Goal::AtLeast(0.6),
                      " MB/s")
      .Print();
  bench::CompareTimes(load.what + ", processor time of one", times).Print();
}

}  // namespace

int main(int argc, char** argv) {
  const bench::Options options = bench::ReadOptions(argc, argv);
  const std::size_t total = options.quick ? 4'000'000 : 1'000'000'000;
  const int rounds = options.quick ? 1 : 7;
  try {
    bench::PrintHeading();
    PrintRows(LoadOf("strips of 30 kB", 30'000, total), rounds);
    PrintRows(LoadOf("strips of 300 kB", 300'000, total), rounds);
    PrintRows(LoadOf("images of 1456 x 1088", 1456 * 1088, total), rounds);
    PrintRows(LoadOf("images of 4200 x 2048", 4200 * 2048, total), rounds);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
