#include "tessaline/profile.h"

namespace {

constexpr double kSecondsPerTick = int{TESSALINE_NANOSECONDS_PER_TICK} * 1e-9;

// The difference of two stamps, of which either may be the later one.
double Since(uint64_t start, uint64_t stamp) {
  return static_cast<double>(static_cast<int64_t>(stamp - start));
}

}  // namespace

double tessaline_y_by_encoder(uint64_t encoder_stamp, uint64_t start, double mm_per_count) {
  return Since(start, encoder_stamp) * mm_per_count;
}

double tessaline_y_by_time(uint64_t time_stamp, uint64_t start, double mm_per_second) {
  return Since(start, time_stamp) * kSecondsPerTick * mm_per_second;
}
