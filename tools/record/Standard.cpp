#include "record/Standard.h"

#include <array>
#include <cstring>
#include <string>

#include "record/StripWalk.h"

namespace tool {
namespace {

constexpr const char* kFrame = "tessaline";
constexpr std::uint8_t kFloat32 = 7;  // of sensor_msgs/PointField
constexpr std::array kFields{"x", "y", "z", "intensity"};
constexpr std::uint8_t kFullPointBytes = sizeof(tessaline_full_point);

constexpr std::size_t FieldsOf(bool peaks) { return peaks ? kFields.size() : kFields.size() - 1; }

}  // namespace

bool StandardMessages::MakePoints(const StripsMessage& buffer,
                                  const std::function<void(const Cdr&)>& use) {
  if (!WalkStrips(buffer, [](const auto&, const auto&) {})) return false;
  auto reader = readers_.find(buffer.point_bytes);
  if (reader == readers_.end()) {
    reader = readers_
                 .try_emplace(buffer.point_bytes, buffer.point_bytes, settings_.geometry,
                              settings_.calibration)
                 .first;
  }
  const bool peaks = buffer.point_bytes == kFullPointBytes;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(buffer.data.data());
  cloud_.clear();
  const bool whole =
      reader->second.Read(buffer.strips, {bytes, buffer.data.size()}, [&](const Frame& frame) {
        Append(frame, peaks);
        if (cloud_.size() >= kMostCloudBytes) use(TakeCloud(buffer.stamp_ns, peaks));
      });
  if (whole && !cloud_.empty()) use(TakeCloud(buffer.stamp_ns, peaks));
  return whole;
}

void StandardMessages::Append(const Frame& frame, bool peaks) {
  if (!start_) start_ = frame.encoder_stamp;
  const bool millimetres = settings_.calibration.has_value();
  const bool travels = millimetres && settings_.counts_per_mm != 0;
  const auto counts = static_cast<double>(static_cast<std::int64_t>(frame.encoder_stamp - *start_));
  const auto y = static_cast<float>(travels ? counts / settings_.counts_per_mm : counts);
  const std::size_t point_bytes = FieldsOf(peaks) * sizeof(float);
  std::size_t at = cloud_.size();
  cloud_.resize(at + frame.points.size() * point_bytes);
  for (const Point& point : frame.points) {
    const std::array<float, kFields.size()> values{
        millimetres ? point.x : static_cast<float>(point.column), y,
        millimetres ? point.z : -point.row, static_cast<float>(point.peak)};
    std::memcpy(cloud_.data() + at, values.data(), point_bytes);
    at += point_bytes;
  }
}

Cdr StandardMessages::TakeCloud(std::int64_t stamp_ns, bool peaks) {
  PointsMessage message;
  message.stamp_ns = stamp_ns;
  message.frame_id = kFrame;
  for (std::size_t i = 0; i < FieldsOf(peaks); ++i) {
    message.fields.push_back(
        {kFields[i], static_cast<std::uint32_t>(i * sizeof(float)), kFloat32, 1});
  }
  message.point_step = static_cast<std::uint32_t>(FieldsOf(peaks) * sizeof(float));
  message.row_step = static_cast<std::uint32_t>(cloud_.size());
  message.width = message.row_step / message.point_step;
  message.data = cloud_;
  Cdr cdr = Encode(message);
  cloud_.clear();
  return cdr;
}

std::optional<Cdr> StandardMessages::MakePicture(const ImageMessage& image) {
  tessaline_image_header header;
  if (!ReadHeader(image, header)) return std::nullopt;
  PictureMessage message;
  message.stamp_ns = image.stamp_ns;
  message.frame_id = kFrame;
  message.height = image.height;
  message.width = image.width;
  message.encoding = "mono8";
  message.step = image.width;
  message.data = image.data.first(image.data.size() - sizeof header);
  return Encode(message);
}

}  // namespace tool
