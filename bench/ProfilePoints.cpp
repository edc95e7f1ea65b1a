// Compares what becomes of strips - profiles, millimetres, uncertainties - with reading their bytes
// once.

#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "Growth.h"
#include "HotPaths.h"
#include "StripBuffers.h"
#include "support/Head.h"
#include "tessaline/profile.h"

namespace bench {

namespace {

constexpr std::uint32_t kWidth = 1456;
constexpr std::uint32_t kHeight = 1088;

// What is done with the strips.
enum class Work { kProfile, kMillimetres, kField, kSigma };

using tessaline_test::kHead;

// The same head, which knows where its calibration holds.
constexpr tessaline_calibration HeadWithField() {
  tessaline_calibration head = kHead;
  constexpr tessaline_pixel kCorners[] = {{20, 300},   {500, 180},  {1000, 190}, {1440, 320},
                                          {1450, 820}, {900, 1010}, {480, 1000}, {10, 800}};
  for (const tessaline_pixel& corner : kCorners) head.field[head.field_corners++] = corner;
  return head;
}
constexpr tessaline_calibration kHeadWithField = HeadWithField();

// Buffers with a line in every strip, and the arrays for one profile.
class Profiles : private StripBuffers {
 public:
  explicit Profiles(const Load& load)
      : StripBuffers(load), load_(load), floats_(6 * load.points), bytes_(3 * load.points) {
    for (std::size_t buffer = 0; buffer < load.buffers; ++buffer) {
      std::byte* at = Buffer(buffer);
      for (std::uint32_t strip = 0; strip < load.strips; ++strip) {
        at += sizeof(tessaline_strip_header);
        for (std::uint32_t i = 0; i < load.points; ++i, at += sizeof(tessaline_full_point)) {
          const tessaline_full_point point{static_cast<std::uint16_t>(i % kWidth), 200, 5,
                                           300 * TESSALINE_FULL_ROW_STEPS + (strip + i) * 16411};
          std::memcpy(at, &point, sizeof point);
        }
      }
    }
  }

  // Not inlined: the same code wherever it is called from.
  [[gnu::noinline]] double TakeApart(std::size_t turn, Work work) {
    const std::size_t n = load_.points;
    const tessaline_geometry whole = tessaline_geometry_full(kWidth, kHeight);
    tessaline_profile profile{};
    profile.capacity = n;
    profile.column = floats_.data();
    profile.row = profile.column + n;
    profile.valid = bytes_.data();
    profile.peak = profile.valid + n;
    profile.width = profile.peak + n;
    const tessaline_calibration& head = work == Work::kField ? kHeadWithField : kHead;
    tessaline_millimetres mm{profile.row + n, profile.row + 2 * n, nullptr, nullptr, nullptr};
    if (work == Work::kField) mm.valid = profile.valid;
    if (work == Work::kSigma) {
      mm.x_sigma = mm.z + n;
      mm.z_sigma = mm.x_sigma + n;
    }
    tessaline_strips strips{};
    tessaline_strips_begin(&strips, Buffer(turn), Bytes(), load_.strips, kPointBytes);
    double sum = 0;
    while (tessaline_strips_next(&strips, &whole, &profile) == 0) {
      if (work != Work::kProfile) tessaline_profile_to_mm(&head, &profile, &mm);
      sum += static_cast<double>(floats_[floats_.size() / 2]);
    }
    return sum;
  }

  // Every byte once, eight at a time.
  [[gnu::noinline]] double Read(std::size_t turn) {
    const std::byte* at = Buffer(turn);
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < Bytes() / sizeof sum; ++i, at += sizeof sum) {
      std::uint64_t word = 0;
      std::memcpy(&word, at, sizeof word);
      sum += word;
    }
    return static_cast<double>(sum);
  }

 private:
  std::size_t Bytes() const {
    return load_.strips * (sizeof(tessaline_strip_header) + kPointBytes * load_.points);
  }

  const Load load_;
  std::vector<float> floats_;
  std::vector<std::uint8_t> bytes_;
};

// Nanoseconds a strip.
Comparison Measure(const Load& load, Work work, int rounds) {
  Profiles profiles(load);
  Comparison times;
  std::size_t turn = 0;
  volatile double kept = 0;  // keeps the compiler from dropping the work
  const double strips = static_cast<double>(load.strips) * static_cast<double>(load.buffers);
  const auto per_strip = [&](auto use) -> std::function<double()> {
    return [&, use] {
      const double start = ThreadNanoseconds();
      for (std::size_t i = 0; i < load.buffers; ++i) kept = kept + use(turn++);
      return (ThreadNanoseconds() - start) / strips;
    };
  };
  const std::vector<std::function<double()>> ways{
      per_strip([&](std::size_t buffer) { return profiles.TakeApart(buffer, work); }),
      per_strip([&](std::size_t buffer) { return profiles.Read(buffer); })};
  for (int round = 0; round < rounds; ++round) {
    const auto results = InTurn(round, ways);
    times.AddRound(results[0], results[1]);
  }
  return times;
}

}  // namespace

void PrintProfileRows(const Options& options) {
  const int rounds = options.quick ? 3 : 200;
  constexpr Load kFromMemory{55, kWidth, kDriverBuffers};
  constexpr Load kFromCache{55, kWidth, 1};
  const auto print = [&](const char* what, const Load& load, Work work, Goal goal) {
    CompareTimes(what, Measure(load, work, rounds), goal).Print();
  };
  const Goal goal = Goal::AtMost(3);
  print("1456 points to places / reading their bytes", kFromMemory, Work::kProfile, goal);
  print("1456 points to millimetres / reading their bytes", kFromMemory, Work::kMillimetres, goal);
  print("the same with a field / reading their bytes", kFromMemory, Work::kField, goal);
  print("1456 points with uncertainties / reading their bytes", kFromMemory, Work::kSigma, {});
  print("1456 points to millimetres / reading cached bytes", kFromCache, Work::kMillimetres, {});
}

void PrintProfileGrowth(const Options& options) {
  const int rounds = options.quick ? 3 : 60;
  const std::uint32_t most = options.quick ? 40 : 1400;
  GrowthSeries series("profile");
  for (std::uint32_t points = 8; points <= most; points = points * 5 / 4) {
    series.Add(points, Measure({50, points, kDriverBuffers}, Work::kMillimetres, rounds));
  }
  series.PrintLinearity();
}

}  // namespace bench
