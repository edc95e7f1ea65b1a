#include "capture/ImageFilesWriter.h"

#include <fmt/core.h>

#include <filesystem>

#include "Failure.h"
#include "OutputFile.h"
#include "capture/Picture.h"

namespace tool {

ImageFilesWriter::ImageFilesWriter(const WriterSettings& settings, Format format)
    : settings_(settings), format_(format) {
  // Better told before the laser is on.
  std::error_code ignored;
  if (!settings_.force && std::filesystem::exists(NextPath(), ignored)) {
    throw Failure(ExitCode::kExists, fmt::format("{} exists already", NextPath()),
                  "--force overwrites it");
  }
}

std::string ImageFilesWriter::NextPath() const {
  if (settings_.single) return settings_.path;
  const std::filesystem::path path(settings_.path);
  return (path.parent_path() / fmt::format("{}_{:04}{}", path.stem().string(), files_.size() + 1,
                                           path.extension().string()))
      .string();
}

void ImageFilesWriter::Write(const Frame& frame) {
  const std::string path = NextPath();
  const auto bytes = format_ == Format::kPng
                         ? EncodePng(frame.width, frame.height, 1, frame.pixels)
                         : EncodePgm(frame.width, frame.height, frame.pixels,
                                     fmt::format("frame {} time {} encoder {}", frame.id,
                                                 frame.time_stamp, frame.encoder_stamp));
  WriteWholeFile(path, settings_.force, bytes);
  files_.push_back(path);
}

}  // namespace tool
