#pragma once

#include "OutputFile.h"
#include "capture/FrameWriter.h"

namespace tool {

// One picture file per image: PATH for a single one, else PATH with the image's number before the
// ending. Each file is whole or absent.
class ImageFilesWriter : public FrameWriter {
 public:
  ImageFilesWriter(const WriterSettings& settings, Format format);
  void Write(const Frame& frame) override;
  void Finish() override {}
  std::vector<std::string> Files() const override { return files_; }
  std::size_t Frames() const override { return files_.size(); }

  static std::string PathOf(const std::string& series, std::size_t number);

 private:
  WriterSettings settings_;
  Format format_;
  WholeFile place_;  // nobody else writes this picture, or this series, meanwhile
  std::vector<std::string> files_;
};

}  // namespace tool
