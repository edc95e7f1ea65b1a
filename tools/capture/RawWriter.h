#pragma once

#include <memory>

#include "OutputFile.h"
#include "capture/FrameWriter.h"

namespace tool {

// The bytes as the library delivered them, and next to them PATH.csv: where each frame begins, how
// long it is, and its stamps. On standard output the bytes alone.
class RawWriter : public FrameWriter {
 public:
  explicit RawWriter(const WriterSettings& settings);
  static std::string IndexOf(const std::string& path) { return path + ".csv"; }
  void Write(const Frame& frame) override;
  void Finish() override;
  std::vector<std::string> Files() const override;
  std::size_t Frames() const override { return index_ ? lines_done_ : file_.records(); }

 private:
  OutputFile file_;
  std::unique_ptr<OutputFile> index_;
  std::vector<std::string> lines_;  // of the index, written after the frames they describe
  std::size_t lines_done_ = 0;
  std::uint64_t offset_ = 0;
};

}  // namespace tool
