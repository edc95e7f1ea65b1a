// Compares one pass of the strip thread, from one dequeue to the next, with a bare walk over the
// same headers.

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "CaptureRun.h"
#include "Growth.h"
#include "HotPaths.h"
#include "Runnable/StripWalk.h"
#include "StripBuffers.h"

namespace bench {

namespace {

using VeltranoSDK::StripHeader;

// Not inlined, so that all callers run the same code.
[[gnu::noinline]] std::uint32_t BareWalk(std::byte* buffer) {
  std::uint32_t count = 0;
  std::memcpy(&count, buffer + kStripBufferBytes - 8, sizeof count);
  const std::byte* at = buffer;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint64_t points = 0;
    std::memcpy(&points, at + offsetof(StripHeader, point_count), sizeof points);
    at += sizeof(StripHeader) + kPointBytes * points;
  }
  StripBuffers::PutCount(buffer, 0);
  return static_cast<std::uint32_t>(at - buffer);
}

constexpr std::size_t kCachedBuffers = 4;

// Hands out buffers as fast as they are taken. A round is a batch of passes and, on the same thread
// before or after it, a bare walk over as many buffers.
class RacingDevice final : private StripBuffers, public StripDevice {
 public:
  RacingDevice(const Load& load, int rounds)
      : StripBuffers(load),
        StripDevice(Memory(), static_cast<unsigned>(load.buffers), kStripBufferBytes),
        rounds_(static_cast<std::size_t>(rounds)),
        passes_(20000 / load.strips + 20) {}

  const Comparison& times() const { return times_; }

 private:
  bool HasNext() override { return times_.ratio.Size() < rounds_; }
  unsigned Next() override {
    if (pass_ == passes_) EndRound();
    if (pass_ == 0) BeginRound();
    ++pass_;
    Filled(++turn_);
    return Place(turn_);
  }

  bool BareGoesFirst() const { return times_.ratio.Size() % 2 == 1; }

  void BeginRound() {
    if (BareGoesFirst()) bare_ = WalkBare();
    start_ = ThreadNanoseconds();
  }

  void EndRound() {
    const double library = ThreadNanoseconds() - start_;
    if (!BareGoesFirst()) bare_ = WalkBare();
    times_.AddRound(library / passes_, bare_ / passes_);
    pass_ = 0;
  }

  double WalkBare() {
    const double start = ThreadNanoseconds();
    for (std::uint32_t i = 0; i < passes_; ++i) walked_ = walked_ + BareWalk(Filled(++turn_));
    return ThreadNanoseconds() - start;
  }

  const std::size_t rounds_;
  const std::uint32_t passes_;
  std::uint32_t pass_ = 0;
  std::size_t turn_ = 0;
  volatile std::uint32_t walked_ = 0;  // keeps the compiler from dropping the walk
  double start_ = 0;
  double bare_ = 0;
  Comparison times_;
};

void OnStrips(unsigned, unsigned, void*) {}

Comparison Measure(const Load& load, int rounds) {
  const auto device = std::make_shared<RacingDevice>(load, rounds);
  RunStripThread(device, OnStrips);
  return device->times();
}

// --- Which pages of a buffer a pass touches -------------------------------------------------

std::byte* watched = nullptr;
std::atomic<unsigned> pages_touched{0};
struct sigaction previous_action;
constexpr std::size_t kPageBytes = 4096;

void OnFault(int number, siginfo_t* info, void* context) {
  auto* const address = static_cast<std::byte*>(info->si_addr);
  if (watched != nullptr && address >= watched && address < watched + kStripBufferBytes) {
    ++pages_touched;
    std::byte* const page =
        watched + static_cast<std::size_t>(address - watched) / kPageBytes * kPageBytes;
    mprotect(page, kPageBytes, PROT_READ | PROT_WRITE);
    return;
  }
  previous_action.sa_sigaction(number, info, context);
}

// Hands out buffers and records every page that is touched.
class WatchedDevice final : private StripBuffers, public StripDevice {
 public:
  explicit WatchedDevice(const Load& load)
      : StripBuffers(load),
        StripDevice(Memory(), static_cast<unsigned>(load.buffers), kStripBufferBytes) {}

  unsigned Pages() const { return pages_; }

 private:
  bool HasNext() override { return turn_ < kDriverBuffers; }
  unsigned Next() override {
    watched = Filled(++turn_);
    mprotect(watched, kStripBufferBytes, PROT_NONE);
    return Place(turn_);
  }
  void Queued() override { pages_ = std::max(pages_, pages_touched.exchange(0)); }

  std::size_t turn_ = 0;
  unsigned pages_ = 0;
};

// Three strips of 200 kB each. The headers and the count are on four pages. A copy would also touch
// the other 156 pages.
void PrintPagesTouched() {
  constexpr Load kLoad{3, 25000, kDriverBuffers};
  constexpr unsigned kHeadersAndCount = 4;
  struct sigaction action {};
  action.sa_sigaction = OnFault;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  sigaction(SIGSEGV, &action, &previous_action);
  const auto device = std::make_shared<WatchedDevice>(kLoad);
  RunStripThread(device, OnStrips);
  sigaction(SIGSEGV, &previous_action, nullptr);
  watched = nullptr;

  Row row = Figure("pages of 160 touched in a buffer of 3 strips", std::to_string(device->Pages()),
                   std::to_string(kHeadersAndCount));
  row.goal = Goal::AtMost(kHeadersAndCount).Text();
  row.verdict = device->Pages() == kHeadersAndCount ? "met" : "missed";
  row.Print();
}

constexpr std::uint32_t kManyStrips = 1000;

}  // namespace

void PrintStripPassRows(const Options& options) {
  const int rounds = options.quick ? 3 : 300;
  const Goal goal = Goal::AtMost(1.3);
  CompareTimes("strip pass, 1000 strips / bare walk, 4 cached buffers",
               Measure({kManyStrips, 64, kCachedBuffers}, rounds), goal)
      .Print();
  CompareTimes("strip pass, 1000 strips / bare walk, 18 buffers",
               Measure({kManyStrips, 64, kDriverBuffers}, rounds), goal)
      .Print();
  CompareTimes("strip pass, 10 strips / bare walk, 18 buffers",
               Measure({10, 1024, kDriverBuffers}, rounds))
      .Print();
  PrintPagesTouched();
}

void PrintStripPassGrowth(const Options& options) {
  const int rounds = options.quick ? 3 : 100;
  const auto grow = [&](const char* name, std::uint32_t most, auto load) {
    GrowthSeries series(name);
    if (options.quick) most = kQuickPoints;
    for (std::uint32_t size = 1; size <= most; size = size * 5 / 4 + 1) {
      series.Add(size, Measure(load(size), rounds));
    }
    series.PrintLinearity();
  };
  grow("strips", 1200, [](std::uint32_t strips) { return Load{strips, 64, kDriverBuffers}; });
  grow("points", 1600, [](std::uint32_t points) { return Load{50, points, kDriverBuffers}; });
}

}  // namespace bench
