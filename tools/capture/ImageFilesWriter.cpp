#include "capture/ImageFilesWriter.h"

#include <fmt/core.h>

#include <filesystem>

#include "OutputFile.h"
#include "capture/Picture.h"

namespace tool {

ImageFilesWriter::ImageFilesWriter(const WriterSettings& settings, Format format)
    : settings_(settings), format_(format), place_(settings.path, settings.force) {}

std::string ImageFilesWriter::PathOf(const std::string& series, std::size_t number) {
  const std::filesystem::path path(series);
  return (path.parent_path() /
          fmt::format("{}_{:04}{}", path.stem().string(), number, path.extension().string()))
      .string();
}

void ImageFilesWriter::Write(const Frame& frame) {
  const bool one_place = settings_.frames == 1 || IsStandardOutput(settings_.path);
  const std::string path = one_place ? settings_.path : PathOf(settings_.path, files_.size() + 1);
  const auto bytes = format_ == Format::kPng
                         ? EncodePng(frame.width, frame.height, 1, frame.pixels)
                         : EncodePgm(frame.width, frame.height, frame.pixels,
                                     fmt::format("frame {} time {} encoder {}", frame.id,
                                                 frame.time_stamp, frame.encoder_stamp));
  if (one_place) {
    place_.Write(bytes);
  } else {
    WriteWholeFile(path, settings_.force, bytes);
  }
  files_.push_back(path);
}

}  // namespace tool
