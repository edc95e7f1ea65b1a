// One pass of the strip thread, from a dequeued buffer to the next dequeue, against
// a bare walk of the same headers.

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DeviceManager.h"
#include "Growth.h"
#include "HotPaths.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/StripWalk.h"
#include "StripDevice.h"

namespace bench {

namespace {

using VeltranoSDK::StripHeader;

constexpr std::size_t kBufferBytes = 655360;
constexpr std::size_t kPointBytes = 8;
constexpr std::size_t kDriverBuffers = 18;
constexpr std::size_t kCachedBuffers = 4;

struct Load {
  std::uint32_t strips;
  std::uint32_t points;  // of each
  std::size_t buffers;
};

// Buffers full of strips, each beginning on a page. The frame ids run on from buffer to
// buffer, and begin anew with the first.
class StripBuffers {
 public:
  explicit StripBuffers(const Load& load) : load_(load), memory_(Map(load.buffers)) {
    for (std::size_t i = 0; i < load.buffers; ++i) {
      std::byte* at = Buffer(i);
      for (std::uint32_t strip = 0; strip < load.strips; ++strip) {
        const std::uint64_t before = i * load.strips + strip;
        const StripHeader header{before + 1, before, before, load.points};
        std::memcpy(at, &header, sizeof header);
        at += sizeof header + kPointBytes * load.points;
      }
    }
  }
  ~StripBuffers() { munmap(memory_, load_.buffers * kBufferBytes); }
  StripBuffers(const StripBuffers&) = delete;
  StripBuffers& operator=(const StripBuffers&) = delete;

  std::byte* Memory() const { return memory_; }
  unsigned Place(std::size_t turn) const { return static_cast<unsigned>(turn % load_.buffers); }
  std::byte* Buffer(std::size_t turn) const { return memory_ + Place(turn) * kBufferBytes; }

  // As the FPGA completes it: the library has cleared the count.
  std::byte* Filled(std::size_t turn) const {
    PutCount(Buffer(turn), load_.strips);
    return Buffer(turn);
  }

  static void PutCount(std::byte* buffer, std::uint64_t count) {
    std::memcpy(buffer + kBufferBytes - sizeof count, &count, sizeof count);
  }

 private:
  static std::byte* Map(std::size_t buffers) {
    void* memory = mmap(nullptr, buffers * kBufferBytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (memory == MAP_FAILED) {
      std::perror("no memory for the strips");
      std::exit(1);
    }
    return static_cast<std::byte*>(memory);
  }

  Load load_;
  std::byte* memory_;
};

// One copy of it, wherever it is called from.
[[gnu::noinline]] std::uint32_t BareWalk(std::byte* buffer) {
  std::uint32_t count = 0;
  std::memcpy(&count, buffer + kBufferBytes - 8, sizeof count);
  const std::byte* at = buffer;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint64_t points = 0;
    std::memcpy(&points, at + offsetof(StripHeader, point_count), sizeof points);
    at += sizeof(StripHeader) + kPointBytes * points;
  }
  StripBuffers::PutCount(buffer, 0);
  return static_cast<std::uint32_t>(at - buffer);
}

// Serves as fast as it is taken. Before or after a batch of passes the same thread walks
// as many buffers bare: one round.
class RacingDevice final : private StripBuffers, public StripDevice {
 public:
  RacingDevice(const Load& load, int rounds)
      : StripBuffers(load),
        StripDevice(Memory(), static_cast<unsigned>(load.buffers), kBufferBytes),
        rounds_(static_cast<std::size_t>(rounds)),
        passes_(20000 / load.strips + 20) {}

  const Comparison& times() const { return times_; }

 private:
  bool Next(unsigned& index) override {
    if (pass_ == passes_) EndRound();
    if (times_.ratio.Size() == rounds_) return false;
    if (pass_ == 0) BeginRound();
    ++pass_;
    Filled(++turn_);
    index = Place(turn_);
    return true;
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
  volatile std::uint32_t walked_ = 0;  // so that nobody leaves the walk out
  double start_ = 0;
  double bare_ = 0;
  Comparison times_;
};

void OnStrips(unsigned, unsigned, void*) {}

void RunStripThread(const std::shared_ptr<StripDevice>& device,
                    VeltranoSDK::CaptureStripStream::StripBufCallback callback) {
  VeltranoSDK::DeviceManagerHolder::Instance()->v4l2_buf_ = device;
  const auto thread = std::make_shared<VeltranoSDK::CaptureStripStream>();
  thread->RegisterStripBufCallback(std::move(callback));
  thread->Start();
  thread->Detach();
  while (!device->IsDone()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  if (thread->Cancel() && thread->ReleaseResource()) return;
  std::fprintf(stderr, "the strip thread did not end\n");
  std::exit(1);
}

Comparison Measure(const Load& load, int rounds) {
  const auto device = std::make_shared<RacingDevice>(load, rounds);
  RunStripThread(device, OnStrips);
  return device->times();
}

// --- Copies: which pages of a buffer a pass touches -----------------------------------------

std::byte* watched = nullptr;
std::atomic<unsigned> pages_touched{0};
struct sigaction previous_action;
constexpr std::size_t kPageBytes = 4096;

void OnFault(int number, siginfo_t* info, void* context) {
  auto* const address = static_cast<std::byte*>(info->si_addr);
  if (watched != nullptr && address >= watched && address < watched + kBufferBytes) {
    ++pages_touched;
    std::byte* const page =
        watched + static_cast<std::size_t>(address - watched) / kPageBytes * kPageBytes;
    mprotect(page, kPageBytes, PROT_READ | PROT_WRITE);
    return;
  }
  previous_action.sa_sigaction(number, info, context);
}

// Hands out buffers no page of which may be touched unnoticed.
class WatchedDevice final : private StripBuffers, public StripDevice {
 public:
  explicit WatchedDevice(const Load& load)
      : StripBuffers(load),
        StripDevice(Memory(), static_cast<unsigned>(load.buffers), kBufferBytes) {}

  unsigned Pages() const { return pages_; }

 private:
  bool Next(unsigned& index) override {
    if (turn_ == kDriverBuffers) return false;
    watched = Filled(++turn_);
    mprotect(watched, kBufferBytes, PROT_NONE);
    index = Place(turn_);
    return true;
  }
  void Queued() override { pages_ = std::max(pages_, pages_touched.exchange(0)); }

  std::size_t turn_ = 0;
  unsigned pages_ = 0;
};

// Three strips of 200 kB each: their headers and the count lie on four of the pages.
// A copy would touch the other 156 as well.
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
