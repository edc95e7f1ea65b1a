#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "model/Exposure.h"

namespace board {

// How the extraction is set at the moment of an exposure.
struct StripSettings {
  unsigned bytes_per_point;  // 8, 4 or 2
  double threshold;          // least peak, grey value
  unsigned width_min;        // of the line above the threshold, pixels
  unsigned width_max;
  bool narrow_count;  // the count stands in the last four bytes, else in the last eight

  bool operator==(const StripSettings&) const = default;
};

// Strips packed one behind the other, as they go into one buffer of the strip
// device: per strip 32 bytes of header and its points (docs/strip-format.md).
class StripBuffer {
 public:
  bool Empty() const { return count_ == 0; }
  std::uint32_t Count() const { return count_; }
  const StripSettings& Settings() const { return settings_; }
  void Start(const StripSettings& settings);

  void Append(const Exposure& exposure);
  // Whether another strip of up to `points` points would still fit.
  bool Fits(unsigned points, std::size_t buffer_bytes) const;

  // Into a buffer of the device. False when it does not fit.
  bool Deliver(std::span<std::uint8_t> buffer) const;
  // Makes the last strip claim more points than any buffer holds.
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
