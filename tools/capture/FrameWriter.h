#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "capture/Frame.h"
#include "capture/Geometry.h"

namespace tool {

// Puts captured frames into a file, or several.
class FrameWriter {
 public:
  virtual ~FrameWriter() = default;

  // A Failure when the disk is full: Finish() then still makes a readable file.
  virtual void Write(const Frame& frame) = 0;
  // Completes the file. Also after a failure.
  virtual void Finish() = 0;
  // What was written, for the report.
  virtual std::vector<std::string> Files() const = 0;
  // Frames that a reader will find.
  virtual std::size_t Frames() const = 0;
};

struct WriterSettings {
  std::string path;
  bool force = false;
  bool images = false;
  bool single = false;  // one image is asked for: it gets the path as it is
  unsigned width = 0;   // of the region of interest
  unsigned height = 0;
  Geometry geometry;
};

enum class Format { kCsv, kNpy, kPly, kPng, kPgm, kRaw };

// By the ending of the path; a Failure for one that means nothing, or does not fit.
Format FormatOf(const std::string& path, const std::string& asked, bool images);

// The files that a writer would make for so many frames, 0 for who can tell.
std::vector<std::string> FilesOf(Format format, const WriterSettings& settings,
                                 std::uint64_t frames);

std::unique_ptr<FrameWriter> MakeWriter(Format format, const WriterSettings& settings);

}  // namespace tool
