#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "model/Exposure.h"
#include "model/FpgaModel.h"
#include "tessaline/products.h"

namespace board {

// The settings of the extraction at the moment of an exposure.
struct StripSettings {
  unsigned bytes_per_point;  // 8, 4 or 2
  double threshold;          // minimum peak, grey value
  unsigned width_min;        // of the line above the threshold, pixels
  unsigned width_max;
  bool narrow_count;  // the count is in the last four bytes, otherwise in the last eight

  bool operator==(const StripSettings&) const = default;
};

// Those that software has set, for a product with such points.
StripSettings SettingsOf(const FpgaModel& fpga, VeltranoSDK::products::PointLayout points);

// Puts packed strips into a buffer of the device, as the FPGA does. False if they do not fit.
bool PutStrips(std::span<const std::byte> strips, std::uint64_t count,
               const StripSettings& settings, std::span<std::uint8_t> buffer);

// Strips packed one after another for one buffer of the strip device. Each strip has a header of 32
// bytes and its points (docs/strip-format.md).
class StripBuffer {
 public:
  bool Empty() const { return count_ == 0; }
  std::uint32_t Count() const { return count_; }
  const StripSettings& Settings() const { return settings_; }
  void Start(const StripSettings& settings);

  void Append(const Exposure& exposure);
  // Whether another strip with up to `points` points still fits.
  bool Fits(unsigned points, std::size_t buffer_bytes) const;

  // Copies the strips into a buffer of the device. False if they do not fit.
  bool Deliver(std::span<std::uint8_t> buffer) const;
  // Makes the last strip claim more points than any buffer can hold.
  void CorruptLastStrip();
  std::size_t Bytes() const { return bytes_.size(); }
  std::span<const std::uint8_t> LastStrip() const { return std::span(bytes_).subspan(last_strip_); }

 private:
  StripSettings settings_{8, 0, 1, 128, false};
  std::vector<std::uint8_t> bytes_;
  std::size_t last_strip_ = 0;
  std::uint32_t count_ = 0;
};

}  // namespace board
