#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "capture/Frame.h"
#include "capture/Geometry.h"

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
  bool single = false;  // one image is asked for: its file gets exactly this path
  unsigned width = 0;   // of the region of interest
  unsigned height = 0;
  Geometry geometry;
};

enum class Format { kCsv, kNpy, kPly, kPng, kPgm, kRaw };

// Chosen by the path's ending; throws a Failure if it is unknown or does not fit.
Format FormatOf(const std::string& path, const std::string& asked, bool images);

// The files that a writer would make for this many frames; 0 frames means unknown.
std::vector<std::string> FilesOf(Format format, const WriterSettings& settings,
                                 std::uint64_t frames);

std::unique_ptr<FrameWriter> MakeWriter(Format format, const WriterSettings& settings);

}  // namespace tool
