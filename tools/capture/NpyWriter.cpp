#include "capture/NpyWriter.h"

#include <fmt/core.h>

#include <limits>

#include "Failure.h"

namespace tool {
namespace {

constexpr std::string_view kMagic{"\x93NUMPY\x01\x00", 8};
// Long enough for any number of frames; the real one is filled in at the end.
constexpr std::size_t kNpyHeadBytes = 256;

}  // namespace

NpyWriter::NpyWriter(const WriterSettings& settings)
    : file_(settings.path, settings.force),
      stream_(IsStream(settings.path)),
      images_(settings.images),
      rows_only_(settings.rows_only),
      first_column_(settings.measuring.geometry.first_column),
      width_(settings.width),
      height_(settings.height) {
  file_.Append(Head(stream_ ? settings.frames : 0));
  file_.Flush();
}

std::string NpyWriter::Head(std::size_t frames) const {
  const std::string fields =
      images_ ? fmt::format("('pixels', '|u1', ({}, {}))", height_, width_)
              : fmt::format("('row', '<f4', ({},)){}", width_,
                            rows_only_ ? "" : fmt::format(", ('peak', '|u1', ({},))", width_));
  std::string text = fmt::format(
      "{{'descr': [('frame_id', '<u8'), ('time_stamp', '<u8'), ('encoder_stamp', '<u8'), {}], "
      "'fortran_order': False, 'shape': ({},), }}",
      fields, frames);
  const std::size_t length = kNpyHeadBytes - kMagic.size() - 2;
  text.resize(length - 1, ' ');
  text += '\n';
  std::string head(kMagic);
  head += static_cast<char>(length & 0xFF);
  head += static_cast<char>(length >> 8);
  return head + text;
}

void NpyWriter::Write(const Frame& frame) {
  if (images_ && (frame.width != width_ || frame.height != height_)) {
    throw Failure(ExitCode::kNegative, "an image differs in size from those before it",
                  "an array holds images of one size only: write .pgm or .raw");
  }
  file_.AppendNumber(frame.id);
  file_.AppendNumber(frame.time_stamp);
  file_.AppendNumber(frame.encoder_stamp);
  if (images_) {
    file_.Append(frame.pixels);
  } else {
    std::vector<float> rows(width_, std::numeric_limits<float>::quiet_NaN());
    std::vector<std::uint8_t> peaks(width_);
    for (const Point& point : frame.points) {
      const unsigned column = point.column - first_column_;
      if (column >= width_) continue;
      rows[column] = point.row;
      peaks[column] = point.peak;
    }
    file_.Append({reinterpret_cast<const std::uint8_t*>(rows.data()), rows.size() * sizeof(float)});
    if (!rows_only_) file_.Append(peaks);
  }
  file_.EndRecord();
}

void NpyWriter::Finish() {
  file_.Flush();
  if (stream_) return;
  const std::string head = Head(file_.records());
  file_.Rewrite(0, {reinterpret_cast<const std::uint8_t*>(head.data()), head.size()});
}

}  // namespace tool
