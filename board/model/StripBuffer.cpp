#include "model/StripBuffer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace board {
namespace {

namespace fpga = VeltranoSDK::fpga;
using VeltranoSDK::products::PointLayout;

constexpr std::size_t kHeaderBytes = 32;
constexpr std::size_t kMarkerBytes = 8;
constexpr std::size_t kPointCountAt = 24;
constexpr std::uint16_t kNoLine = 0xFFFF;

struct FullPoint {
  std::uint16_t column;
  std::uint8_t peak;
  std::uint8_t width;
  std::uint32_t row;  // 1/65536 pixels
};

struct ShortPoint {
  std::uint16_t column;
  std::uint16_t row;  // 1/32 pixels
};

// The number of pixels of the line's cross-section that reach the threshold.
double WidthAbove(double threshold, double peak) {
  if (threshold <= 0) threshold = 1;
  if (peak <= threshold) return peak == threshold ? 1 : 0;
  return 2 * kLineSigma * std::sqrt(2 * std::log(peak / threshold));
}

template <typename Value>
void Push(std::vector<std::uint8_t>& bytes, const Value& value) {
  const auto* begin = reinterpret_cast<const std::uint8_t*>(&value);
  bytes.insert(bytes.end(), begin, begin + sizeof value);
}

std::uint16_t ShortRow(double row) {
  return static_cast<std::uint16_t>(std::clamp(std::lround(row * 32), 0l, 0xFFFEl));
}

}  // namespace

void StripBuffer::Start(const StripSettings& settings) {
  settings_ = settings;
  bytes_.clear();
  count_ = 0;
}

bool StripBuffer::Fits(unsigned points, std::size_t buffer_bytes) const {
  return bytes_.size() + kHeaderBytes + std::size_t{settings_.bytes_per_point} * points +
             kMarkerBytes <=
         buffer_bytes;
}

void StripBuffer::Append(const Exposure& exposure) {
  last_strip_ = bytes_.size();
  Push(bytes_, std::array<std::uint64_t, 4>{exposure.frame_id, exposure.time_stamp,
                                            exposure.encoder_stamp, 0});
  std::uint64_t points = 0;
  const ExposedLine exposed(exposure);
  for (unsigned column = 0; column < exposure.width; ++column) {
    const LinePoint line = exposed.At(column);
    const double width = WidthAbove(settings_.threshold, line.light);
    const bool found = line.peak > 0 && line.peak >= settings_.threshold &&
                       std::ceil(width) >= settings_.width_min && width <= settings_.width_max &&
                       line.row >= 0 && line.row <= exposure.height - 1.0;
    // Points of two bytes have no room for a column, so every column has its own place.
    if (!found && settings_.bytes_per_point != 2) continue;
    ++points;
    if (settings_.bytes_per_point == 2) {
      Push(bytes_, found ? ShortRow(line.row) : kNoLine);
    } else if (settings_.bytes_per_point == 4) {
      Push(bytes_, ShortPoint{static_cast<std::uint16_t>(column), ShortRow(line.row)});
    } else {
      Push(bytes_,
           FullPoint{static_cast<std::uint16_t>(column), static_cast<std::uint8_t>(line.peak),
                     static_cast<std::uint8_t>(std::min(255.0, std::ceil(width))),
                     static_cast<std::uint32_t>(std::lround(line.row * 65536))});
    }
  }
  std::memcpy(&bytes_[last_strip_ + kPointCountAt], &points, sizeof points);
  ++count_;
}

bool StripBuffer::Deliver(std::span<std::uint8_t> buffer) const {
  return PutStrips(std::as_bytes(std::span(bytes_)), count_, settings_, buffer);
}

bool PutStrips(std::span<const std::byte> strips, std::uint64_t count,
               const StripSettings& settings, std::span<std::uint8_t> buffer) {
  if (strips.size() + kMarkerBytes > buffer.size()) return false;
  std::memcpy(buffer.data(), strips.data(), strips.size());
  const std::size_t count_bytes = settings.narrow_count ? 4 : 8;
  std::memcpy(&buffer[buffer.size() - count_bytes], &count, count_bytes);
  return true;
}

StripSettings SettingsOf(const FpgaModel& fpga, PointLayout points) {
  StripSettings settings{8, static_cast<double>(fpga.Get(fpga::kReg.RIS_THRESHOLD)),
                         fpga.Get(fpga::kReg.STRIP_WIDTH_MIN), fpga.Get(fpga::kReg.STRIP_WIDTH_MAX),
                         false};
  if (points == PointLayout::kShort) {
    settings.bytes_per_point = 2;
  } else if (points == PointLayout::kByMode) {
    constexpr unsigned kBytes[] = {2, 4, 8};  // normal, brightness, continuous
    settings.bytes_per_point = kBytes[std::min(fpga.Get(fpga::kReg.BR_CONT_MODE_A), 2u)];
  }
  if (fpga.Get(fpga::kReg.STRIP_WRIMEM_STRATEGY) == 1) {
    settings.bytes_per_point = 4;
    settings.narrow_count = true;
  }
  return settings;
}

void StripBuffer::CorruptLastStrip() {
  constexpr std::uint64_t kTooMany = 0x0000'1000'0000'0000;
  if (count_ > 0) std::memcpy(&bytes_[last_strip_ + kPointCountAt], &kTooMany, sizeof kTooMany);
}

}  // namespace board
