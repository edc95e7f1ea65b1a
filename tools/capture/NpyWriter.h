#pragma once

#include "OutputFile.h"
#include "capture/FrameWriter.h"

namespace tool {

// A NumPy array of records, one per frame: the stamps, and by column "row", "peak" and what is
// known in millimetres (NaN and 0 where there is no line), or "pixels".
class NpyWriter : public FrameWriter {
 public:
  explicit NpyWriter(const WriterSettings& settings);
  void Write(const Frame& frame) override;
  void Finish() override;
  std::vector<std::string> Files() const override { return {file_.path()}; }
  std::size_t Frames() const override { return file_.records(); }

 private:
  std::string Head(std::size_t frames) const;
  // One number of every column, of the points that there are.
  template <typename Number>
  void AppendColumns(const Frame& frame, Number Point::*number, Number none);

  OutputFile file_;
  const bool stream_;
  bool images_;
  const bool rows_only_;
  const bool calibrated_;
  const unsigned first_column_;
  unsigned width_;
  unsigned height_;
};

}  // namespace tool
