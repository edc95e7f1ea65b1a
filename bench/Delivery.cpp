// Compares frames delivered, heap allocations and resident memory with a bare loop of dequeue and
// queue on the same virtual device. Also measures the time from the dequeue to the application.

#include <dlfcn.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Application.h"
#include "Growth.h"
#include "OwnProcess.h"
#include "Streaming.h"
#include "support/LibraryAllocations.h"

namespace {

using bench::Clock;

// The time at which this thread's last dequeue returned.
thread_local Clock::time_point dequeued;

}  // namespace

// Overrides the board's function.
#pragma GCC visibility push(default)
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  static const auto next =
      reinterpret_cast<int (*)(int, unsigned long, void*)>(dlsym(RTLD_NEXT, "ioctl"));
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const int result = next(fd, request, argument);
  if (request == VIDIOC_DQBUF) dequeued = Clock::now();
  return result;
}
#pragma GCC visibility pop

namespace bench {

namespace {

struct Measurement {
  double frames_per_second;
  double frames;
  double allocations;
  double resident_bytes;
};

// Leaves out the frame buffers, which are the driver's memory (shared memory on the virtual board).
double ResidentBytes() {
  std::ifstream status("/proc/self/status");
  double kilobytes = 0;
  for (std::string line; std::getline(status, line);) {
    double part = 0;
    if (std::sscanf(line.c_str(), "RssAnon: %lf", &part) == 1 ||
        std::sscanf(line.c_str(), "RssFile: %lf", &part) == 1) {
      kilobytes += part;
    }
  }
  return kilobytes * 1024;
}

// Waits for at least this time, and until this many frames have arrived.
void WaitForFrames(std::chrono::milliseconds time, std::uint64_t wanted) {
  const std::uint64_t first = frames;
  const auto limit = Clock::now() + std::chrono::seconds(20);
  std::this_thread::sleep_for(time);
  while (frames - first < wanted && Clock::now() < limit) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

Measurement MeasureStream(const Options& options) {
  // The first frame enlarges the memory that later frames use.
  constexpr std::uint64_t kFewestFrames = 20;
  WaitForFrames(std::chrono::milliseconds(options.quick ? 50 : 300), kFewestFrames);
  const auto start = Clock::now();
  const std::uint64_t first = frames;
  const std::uint64_t allocations = LibraryAllocations();
  WaitForFrames(std::chrono::milliseconds(options.quick ? 100 : 700), kFewestFrames);
  const auto delivered = static_cast<double>(frames - first);
  const double seconds = Nanoseconds(Clock::now() - start) / 1e9;
  return {delivered / seconds, delivered, static_cast<double>(LibraryAllocations() - allocations),
          ResidentBytes()};
}

const char* Name(Stream stream) { return stream == Stream::kImages ? "images" : "strips"; }

FrameHandler Counter(Stream stream) { return stream == Stream::kImages ? CountImage : CountStrips; }

std::function<Measurement()> ThroughLibrary(const Scene& scene, const Options& options) {
  return [=] {
    return InOwnProcess([&] {
      StreamThroughLibrary(scene, Counter(scene.stream));
      return MeasureStream(options);
    });
  };
}

std::function<Measurement()> Bare(const Scene& scene, Touch touch, const Options& options) {
  return [=] {
    return InOwnProcess([&] {
      StreamBare(scene, touch);
      return MeasureStream(options);
    });
  };
}

void CompareStreams(Stream stream, Pace pace, const Options& options) {
  // The board and the loop compete for the processors, so more rounds are needed.
  const bool contended = stream == Stream::kImages && pace == Pace::kFreeRun;
  const int rounds = options.quick ? 1 : (contended ? 24 : 8);
  std::vector<std::function<Measurement()>> ways;
  ways.push_back(ThroughLibrary({stream, pace}, options));
  ways.push_back(Bare({stream, pace}, Touch::kNothing, options));
  if (contended) ways.push_back(Bare({stream, pace}, Touch::kEveryByte, options));
  Comparison rates;
  Comparison against_touching;
  Comparison resident;
  double frames_counted = 0;
  double allocations = 0;
  for (int round = 0; round < rounds; ++round) {
    const std::vector<Measurement> results = InTurn(round, ways);
    const Measurement& library = results[0];
    const Measurement& loop = results[1];
    rates.AddRound(library.frames_per_second, loop.frames_per_second);
    resident.AddRound(library.resident_bytes, loop.resident_bytes);
    frames_counted += library.frames;
    allocations += library.allocations;
    if (contended) {
      against_touching.AddRound(library.frames_per_second, results[2].frames_per_second);
    }
  }
  const std::string name = Name(stream);
  const std::string how = pace == Pace::kTimed ? ", a trigger every 4 ms" : ", free-running";
  CompareRates(name + how + " / bare DQBUF and QBUF", rates, Goal::AtLeast(0.98)).Print();
  if (contended) {
    CompareRates(name + how + " / bare, inverting them in place", against_touching).Print();
  }
  if (pace == Pace::kTimed) return;

  Row row = Figure("allocations of the library in " + Number(frames_counted, 0) + " " + name,
                   Number(allocations, 0), "0");
  row.goal = Goal::AtMost(0).Text();
  row.verdict = frames_counted > 0 && allocations == 0 ? "met" : "missed";
  row.Print();

  const auto megabytes = [](double bytes) { return Number(bytes / 1e6, 1) + " MB"; };
  Figure("resident memory without frame buffers, streaming " + name,
         megabytes(resident.library.Median()), megabytes(resident.bare.Median()))
      .Print();
}

// --- From dequeue to handler ----------------------------------------------------------------

constexpr std::size_t kMostSamples = 200000;
double latencies[kMostSamples];
std::atomic<std::size_t> latency_count{0};

void NoteLatency(unsigned, unsigned, void*) {
  const double waited = Nanoseconds(Clock::now() - dequeued);
  const std::size_t at = latency_count.load(std::memory_order_relaxed);
  if (at == kMostSamples) return;
  latencies[at] = waited;
  latency_count.store(at + 1, std::memory_order_release);
}

struct Latency {
  double p50, p99, p999;
  std::size_t samples;
};

Latency MeasureLatency(const Scene& scene, std::chrono::milliseconds time) {
  StreamThroughLibrary(scene, NoteLatency);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  latency_count = 0;  // a handler that is running may still add one old sample
  std::this_thread::sleep_for(time);
  const std::size_t count = latency_count.load(std::memory_order_acquire);
  Samples samples;
  for (std::size_t i = 0; i < count; ++i) samples.Add(latencies[i]);
  return {samples.Median(), samples.Quantile(0.99), samples.Quantile(0.999), count};
}

void PrintLatency(Stream stream, const Options& options) {
  const std::chrono::milliseconds time(options.quick ? 300 : 10000);
  const Latency latency = InOwnProcess([=] {
    return MeasureLatency({stream, Pace::kFreeRun}, time);
  });
  const std::string what = std::string(stream == Stream::kImages ? "image 1456 x 1088" : "strips") +
                           ": dequeue to handler, ";
  const std::string of = " of " + std::to_string(latency.samples);
  Figure(what + "p50" + of, Time(latency.p50)).Print();
  Figure(what + "p99", Time(latency.p99)).Print();
  Figure(what + "p99.9", Time(latency.p999)).Print();
}

}  // namespace

void PrintDeliveryRows(const Options& options) {
  if (!FindLibraryCode()) {
    std::fprintf(stderr, "libtessaline.so is not loaded\n");
    std::exit(1);
  }
  for (const Stream stream : {Stream::kImages, Stream::kStrips}) {
    for (const Pace pace : {Pace::kTimed, Pace::kFreeRun}) CompareStreams(stream, pace, options);
  }
  for (const Stream stream : {Stream::kImages, Stream::kStrips}) PrintLatency(stream, options);
}

void PrintDeliveryGrowth(const Options& options) {
  const int rounds = options.quick ? 1 : 3;
  GrowthSeries delivered("delivered");
  GrowthSeries latency("latency");
  for (unsigned eighths = 1; eighths <= (options.quick ? kQuickPoints : 8); ++eighths) {
    const Scene scene{Stream::kImages, Pace::kFreeRun, kFullRows / 8 * eighths};
    const double megapixels = 1e-6 * kFullColumns * scene.rows;
    Comparison times;
    for (int round = 0; round < rounds; ++round) {
      const std::vector<Measurement> results = InTurn<Measurement>(
          round, {ThroughLibrary(scene, options), Bare(scene, Touch::kNothing, options)});
      times.AddRound(1e9 / results[0].frames_per_second, 1e9 / results[1].frames_per_second);
    }
    delivered.Add(megapixels, times);

    Samples p50;
    Samples p99;
    const std::chrono::milliseconds time(options.quick ? 100 : 1000);
    for (int round = 0; round < rounds; ++round) {
      const Latency of = InOwnProcess([&] { return MeasureLatency(scene, time); });
      p50.Add(of.p50);
      p99.Add(of.p99);
    }
    latency.Add(megapixels, p50, p99);
  }
  delivered.PrintLinearity();
  latency.PrintLinearity();
}

}  // namespace bench
