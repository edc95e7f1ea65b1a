#pragma once

#include "OutputFile.h"
#include "capture/CsvText.h"
#include "capture/FrameWriter.h"

namespace tool {

// One line per point, with the stamps of its profile and the sensor that it is a place on. What the
// product does not send or nobody knows is empty.
class CsvWriter : public FrameWriter {
 public:
  explicit CsvWriter(const WriterSettings& settings);
  void Write(const Frame& frame) override;
  void Finish() override;
  std::vector<std::string> Files() const override { return {file_.path()}; }
  std::size_t Frames() const override { return file_.records(); }

 private:
  OutputFile file_;
  const CsvText text_;
};

}  // namespace tool
