#include "capture/NpyWriter.h"

#include <fmt/core.h>

#include <array>
#include <limits>

#include "Failure.h"

namespace tool {
namespace {

constexpr std::string_view kMagic{"\x93NUMPY\x01\x00", 8};
// Long enough for any number of frames; the real one is filled in at the end.
constexpr std::size_t kNpyHeadBytes = 512;

struct Millimetres {
  const char* name;
  float Point::*number;
};
constexpr std::array kMillimetres{Millimetres{"x", &Point::x}, Millimetres{"z", &Point::z},
                                  Millimetres{"sigma_x", &Point::x_sigma},
                                  Millimetres{"sigma_z", &Point::z_sigma}};

}  // namespace

NpyWriter::NpyWriter(const WriterSettings& settings)
    : file_(settings.path, settings.force),
      stream_(IsStream(settings.path)),
      images_(settings.images),
      rows_only_(settings.rows_only),
      calibrated_(settings.measuring.calibrated()),
      first_column_(settings.measuring.geometry.first_column),
      width_(settings.width),
      height_(settings.height) {
  file_.Append(Head(stream_ ? settings.frames : 0));
  file_.Flush();
}

std::string NpyWriter::Head(std::size_t frames) const {
  std::string fields;
  if (images_) {
    fields = fmt::format("('pixels', '|u1', ({}, {}))", height_, width_);
  } else {
    fields = fmt::format("('row', '<f4', ({},))", width_);
    if (!rows_only_) fields += fmt::format(", ('peak', '|u1', ({},))", width_);
    for (const auto& [name, number] : kMillimetres) {
      if (calibrated_) fields += fmt::format(", ('{}', '<f4', ({},))", name, width_);
    }
  }
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

template <typename Number>
void NpyWriter::AppendColumns(const Frame& frame, Number Point::*number, Number none) {
  std::vector<Number> columns(width_, none);
  for (const Point& point : frame.points) {
    const unsigned column = point.column - first_column_;
    if (column < width_) columns[column] = point.*number;
  }
  file_.Append(
      {reinterpret_cast<const std::uint8_t*>(columns.data()), columns.size() * sizeof(Number)});
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
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
    AppendColumns(frame, &Point::row, kNone);
    if (!rows_only_) AppendColumns(frame, &Point::peak, std::uint8_t{0});
    for (const auto& [name, number] : kMillimetres) {
      if (calibrated_) AppendColumns(frame, number, kNone);
    }
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
