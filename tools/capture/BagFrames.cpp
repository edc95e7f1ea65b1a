#include "capture/BagFrames.h"

#include <map>

#include "capture/FrameReader.h"
#include "record/Contents.h"
#include "record/SalvageReader.h"

namespace tool {
namespace {

std::span<const std::uint8_t> AsNumbers(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

class Exporter {
 public:
  Exporter(const Measuring& measuring, unsigned columns, FrameWriter& writer,
           BagFramesResult& result)
      : measuring_(measuring), columns_(columns), writer_(writer), result_(result) {}

  void Write(const ImageMessage& image) {
    Write(ReadImage(image.width, image.height, AsNumbers(image.data)));
  }
  void Write(const StripsMessage& buffer) {
    const auto reader = readers_
                            .try_emplace(buffer.point_bytes, buffer.point_bytes,
                                         measuring_.geometry, measuring_.calibration)
                            .first;
    const bool whole =
        reader->second.Read(buffer.strips, AsNumbers(buffer.data), [this](const Frame& frame) {
          for (const Point& point : frame.points) {
            result_.outside_region += point.column - measuring_.geometry.first_column >= columns_;
          }
          Write(frame);
        });
    if (!whole) ++result_.damaged;
  }

 private:
  void Write(const Frame& frame) {
    writer_.Write(frame);
    ++result_.frames;
    result_.outside_field += frame.outside_field;
  }

  const Measuring& measuring_;
  const unsigned columns_;
  FrameWriter& writer_;
  BagFramesResult& result_;
  std::map<std::uint8_t, StripReader> readers_;  // by the size of a point
};

}  // namespace

BagFramesResult WriteBagFrames(const BagSource& recording, bool images, const Measuring& measuring,
                               unsigned columns, FrameWriter& writer,
                               const std::function<bool()>& stop) {
  BagFramesResult result;
  Exporter exporter(measuring, columns, writer, result);
  SalvageReader reader(recording);
  const auto guarded = [&result](auto call) {
    try {
      call();
    } catch (const Failure& failure) {
      if (!result.failure) result.failure = failure;
    }
  };
  guarded([&] {
    while (const auto message = reader.Next()) {
      if (stop()) throw Failure(ExitCode::kInterrupted, "stopped early");
      if (message->topic != (images ? Topic::kImages : Topic::kStrips)) continue;
      if (!IsWhole(*message)) {
        ++result.damaged;
      } else if (images) {
        exporter.Write(message->As<ImageMessage>());
      } else {
        exporter.Write(message->As<StripsMessage>());
      }
    }
  });
  guarded([&] { writer.Finish(); });
  result.frames = writer.Frames();
  result.damaged += reader.damaged();
  return result;
}

}  // namespace tool
