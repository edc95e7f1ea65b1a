#pragma once

#include <optional>

#include "OutputFile.h"
#include "capture/FrameWriter.h"

namespace tool {

// A point cloud: x across, y along the movement, z up, the grey value of the line, and in
// millimetres the uncertainty of x and z.
// Binary, little-endian.
class PlyWriter : public FrameWriter {
 public:
  explicit PlyWriter(const WriterSettings& settings);
  void Write(const Frame& frame) override;
  void Finish() override;
  std::vector<std::string> Files() const override { return {file_.path()}; }
  std::size_t Frames() const override { return file_.records(); }

 private:
  std::string Head(std::size_t points) const;

  OutputFile file_;
  const Measuring measuring_;
  const bool rows_only_;
  std::optional<std::uint64_t> start_;      // encoder stamp of the first profile
  std::vector<std::size_t> points_before_;  // each frame, and the total after the last
};

}  // namespace tool
