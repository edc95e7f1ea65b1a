#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Measuring.h"
#include "capture/Frame.h"

namespace tool {

// Writes captured frames to one file or several.
class FrameWriter {
 public:
  virtual ~FrameWriter() = default;

  // Throws a Failure if the disk is full; Finish() still makes a readable file then.
  virtual void Write(const Frame& frame) = 0;
  // Completes the file, even after a failure.
  virtual void Finish() = 0;
  // What was written, for the report.
  virtual std::vector<std::string> Files() const = 0;
  // Frames that a reader of the file will find.
  virtual std::size_t Frames() const = 0;
};

struct WriterSettings {
  std::string path;
  bool force = false;
  bool images = false;
  std::uint64_t frames = 0;  // that come at most; 0 if there is no limit
  bool rows_only = false;    // the product sends no grey value and no width of the line
  unsigned width = 0;        // of the region of interest
  unsigned height = 0;
  Measuring measuring;
};

enum class Format { kCsv, kNpy, kPly, kPng, kPgm, kRaw };

// Chosen by the path's ending; throws a Failure if it is unknown or does not fit.
Format FormatOf(const std::string& path, const std::string& asked, bool images);

// Throws a Failure if the path is a stream and the format must be completed at its beginning, or
// holds one picture only. `exact`: the number of frames is not just a limit.
void RequireStreamable(Format format, const WriterSettings& settings, bool exact);

// The files that a writer would make.
std::vector<std::string> FilesOf(Format format, const WriterSettings& settings);

std::unique_ptr<FrameWriter> MakeWriter(Format format, const WriterSettings& settings);

}  // namespace tool
