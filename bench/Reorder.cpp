// Compares image reorder with memcpy of the same frame and with the plain way. The buffers rotate,
// as the driver's do, so a frame has left the cache when its turn comes.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "Growth.h"
#include "HotPaths.h"
#include "InvertInPlace.h"
#include "Runnable/ImageReorder.h"

namespace bench {

namespace {

struct Size {
  std::size_t width, height;
  double goal;

  std::size_t Pixels() const { return width * height; }
  std::size_t FrameBytes() const { return width * (height + 1); }
  std::size_t ImageBytes() const { return Pixels() + VeltranoSDK::kImageHeaderBytes; }
};

constexpr std::size_t kDriverBuffers = 10;

std::size_t CacheBytes() {
  long bytes = sysconf(_SC_LEVEL3_CACHE_SIZE);
  if (bytes <= 0) bytes = sysconf(_SC_LEVEL2_CACHE_SIZE);
  return bytes > 0 ? static_cast<std::size_t>(bytes) : 0;
}

// At least as many buffers as the driver has, and enough to exceed twice the cache size.
std::size_t RingLength(const Size& size, const Options& options) {
  if (options.quick) return 2;
  return std::max(kDriverBuffers, 2 * CacheBytes() / size.FrameBytes() + 1);
}

// Frames that start on a page boundary, as mapped driver buffers do.
class Ring {
 public:
  Ring(std::size_t length, std::size_t frame_bytes)
      : length_(length), stride_((frame_bytes + 4095) / 4096 * 4096) {
    void* memory = mmap(nullptr, length_ * stride_, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
      std::perror("no memory for the frames");
      std::exit(1);
    }
    memory_ = static_cast<std::byte*>(memory);
    std::uint64_t value = 1;
    for (std::size_t at = 0; at < length_ * stride_; at += sizeof value) {
      value = value * 6364136223846793005u + 1442695040888963407u;
      std::memcpy(memory_ + at, &value, sizeof value);
    }
  }
  ~Ring() { munmap(memory_, length_ * stride_); }
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;

  std::byte* Frame(std::size_t turn) const { return memory_ + turn % length_ * stride_; }

 private:
  std::size_t length_;
  std::size_t stride_;
  std::byte* memory_;
};

// Copies every image to a zeroed work area and back.
void ReorderThePlainWay(std::byte* frame, const Size& size) {
  const std::size_t quarter = size.Pixels() / 4;
  const std::unique_ptr<std::byte[]> work(new std::byte[size.FrameBytes()]());
  for (std::size_t group = 0; group < size.Pixels() / 64; ++group) {
    for (std::size_t plane = 0; plane < 4; ++plane) {
      std::memcpy(&work[64 * group + 16 * plane], frame + plane * quarter + 16 * group, 16);
    }
  }
  std::memcpy(&work[size.Pixels()], frame + 4 * quarter, VeltranoSDK::kImageHeaderBytes);
  std::memcpy(frame, work.get(), size.ImageBytes());
}

void Reorder(std::byte* frame, const Size& size, VeltranoSDK::ReorderScratch& scratch) {
  VeltranoSDK::ReorderImage(frame, size.FrameBytes(), {size.Pixels(), size.Pixels()}, scratch);
}

void CheckBytes(const Size& size) {
  const Ring two(2, size.FrameBytes());
  std::memcpy(two.Frame(0), two.Frame(1), size.FrameBytes());
  VeltranoSDK::ReorderScratch scratch;
  Reorder(two.Frame(0), size, scratch);
  ReorderThePlainWay(two.Frame(1), size);
  if (std::memcmp(two.Frame(0), two.Frame(1), size.FrameBytes()) != 0) {
    std::fprintf(stderr, "reorder of %zu x %zu differs from the plain way\n", size.width,
                 size.height);
    std::exit(1);
  }
}

struct Times {
  Comparison against_one_copy;       // every frame is copied to the same memory
  Comparison against_rotating_copy;  // the target has left the cache, as the frame has
  Comparison against_in_place_pass;
  Comparison plain_against_one_copy;  // here the plain way takes the library's place
  Comparison plain_against_rotating_copy;
  Comparison plain_against_in_place_pass;
};

Times Measure(const Size& size, std::size_t length, int rounds) {
  constexpr int kUntimed = 2;
  constexpr int kTimed = 5;
  const Ring frames(length, size.FrameBytes());
  const Ring copies(length, size.FrameBytes());
  const Ring copy(1, size.FrameBytes());
  VeltranoSDK::ReorderScratch scratch;
  std::size_t turn = 0;

  enum { kReorder, kOneCopy, kRotatingCopy, kInPlacePass, kPlain, kWays };
  const std::function<void(std::byte*)> ways[kWays] = {
      [&](std::byte* frame) { Reorder(frame, size, scratch); },
      [&](std::byte* frame) { std::memcpy(copy.Frame(0), frame, size.ImageBytes()); },
      [&](std::byte* frame) { std::memcpy(copies.Frame(turn), frame, size.ImageBytes()); },
      [&](std::byte* frame) { InvertInPlace(frame, size.ImageBytes()); },
      [&](std::byte* frame) { ReorderThePlainWay(frame, size); },
  };

  Times times;
  for (int round = 0; round < rounds; ++round) {
    double took[kWays];
    for (int i = 0; i < kWays; ++i) {
      const int way = (round + i) % kWays;  // so that no way always follows the same one
      for (int frame = 0; frame < kUntimed; ++frame) ways[way](frames.Frame(++turn));
      const double start = ThreadNanoseconds();
      for (int frame = 0; frame < kTimed; ++frame) ways[way](frames.Frame(++turn));
      took[way] = (ThreadNanoseconds() - start) / kTimed;
    }
    times.against_one_copy.AddRound(took[kReorder], took[kOneCopy]);
    times.against_rotating_copy.AddRound(took[kReorder], took[kRotatingCopy]);
    times.against_in_place_pass.AddRound(took[kReorder], took[kInPlacePass]);
    times.plain_against_one_copy.AddRound(took[kPlain], took[kOneCopy]);
    times.plain_against_rotating_copy.AddRound(took[kPlain], took[kRotatingCopy]);
    times.plain_against_in_place_pass.AddRound(took[kPlain], took[kInPlacePass]);
  }
  return times;
}

void PrintRow(const Size& size, const char* against, const Comparison& times,
              const Comparison& plain, Goal goal) {
  Row row = CompareTimes("image reorder " + std::to_string(size.width) + " x " +
                             std::to_string(size.height) + " / " + against,
                         times, goal);
  row.plain = Number(plain.ratio.Median(), 2);
  if (!row.goal.empty() && times.ratio.Median() > plain.ratio.Median()) row.verdict = "missed";
  row.Print();
}

}  // namespace

void PrintReorderRows(const Options& options) {
  const int rounds = options.quick ? 2 : 150;
  for (const Size& size : {Size{4096, 1080, 1.2}, Size{4200, 2048, 1.2}, Size{1456, 1088, 1.4}}) {
    CheckBytes(size);
    const Times times = Measure(size, RingLength(size, options), rounds);
    const Goal goal = Goal::AtMost(size.goal);
    PrintRow(size, "memcpy to one buffer", times.against_one_copy, times.plain_against_one_copy,
             goal);
    PrintRow(size, "memcpy to rotating buffers", times.against_rotating_copy,
             times.plain_against_rotating_copy, goal);
    PrintRow(size, "inverting it in place", times.against_in_place_pass,
             times.plain_against_in_place_pass, {});
  }
}

void PrintReorderGrowth(const Options& options) {
  const int rounds = options.quick ? 2 : 40;
  GrowthSeries series("reorder");
  const std::size_t highest = options.quick ? kQuickPoints * 64 : 4096;
  for (std::size_t height = 64; height <= highest; height += height < 512 ? 64 : height / 8) {
    const Size size{2048, height, 0};
    CheckBytes(size);
    const Times times = Measure(size, RingLength(size, options), rounds);
    series.Add(static_cast<double>(size.Pixels()) / 1e6, times.against_one_copy,
               &times.plain_against_one_copy.library);
  }
  series.PrintLinearity();
}

}  // namespace bench
