#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "capture/FrameReader.h"
#include "record/Messages.h"
#include "tessaline/profile.h"

namespace tool {

// Makes the messages that ordinary viewers show of ours. Not for several threads at once.
class StandardMessages {
 public:
  struct Settings {
    // Of the frames. The full sensor of 32768 x 32768 if nobody knows it.
    tessaline_geometry geometry = tessaline_geometry_full(32768, 32768);
    std::optional<tessaline_calibration> calibration{};
    double counts_per_mm = 0;  // of the encoder; 0: not known
  };
  // A longer cloud is sent in parts: the largest buffer has more points than a message may.
  static constexpr std::size_t kMostCloudBytes = 16 << 20;

  explicit StandardMessages(const Settings& settings) : settings_(settings) {}

  // Calls `use` with a sensor_msgs/PointCloud2 in CDR, or several, of a buffer's points. x lies
  // across, y along the movement, z is the height: millimetres with a calibration (y if the
  // encoder's scale is known, too), else column, counts since the first strip, and minus the row.
  // `intensity`: the peak, of points of 8 bytes. False if the strips do not fit their bytes.
  bool MakePoints(const StripsMessage& buffer, const std::function<void(const Cdr&)>& use);

  // The image as a sensor_msgs/Image (mono8) in CDR; none if it does not fit its bytes.
  static std::optional<Cdr> MakePicture(const ImageMessage& image);

 private:
  void Append(const Frame& frame, bool peaks);
  Cdr TakeCloud(std::int64_t stamp_ns, bool peaks);

  Settings settings_;
  std::map<std::uint8_t, StripReader> readers_;  // by the size of a point
  std::optional<std::uint64_t> start_;           // encoder stamp of the first strip
  std::vector<std::byte> cloud_;
};

}  // namespace tool
