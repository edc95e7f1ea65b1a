#include "capture/RawWriter.h"

#include <fmt/core.h>

#include "Failure.h"

namespace tool {
namespace {

// If the second file cannot be created, the first is useless.
OutputFile MakeIndex(OutputFile& data, const WriterSettings& settings) {
  try {
    return OutputFile(RawWriter::IndexOf(settings.path), settings.force);
  } catch (const Failure&) {
    data.Remove();
    throw;
  }
}

}  // namespace

RawWriter::RawWriter(const WriterSettings& settings)
    : file_(settings.path, settings.force), index_(MakeIndex(file_, settings)) {
  index_.Append("frame_id,offset,bytes,time_stamp,encoder_stamp,width,height,points\n");
  index_.Flush();
}

void RawWriter::Write(const Frame& frame) {
  lines_.push_back(fmt::format("{},{},{},{},{},{},{},{}\n", frame.id, offset_, frame.raw.size(),
                               frame.time_stamp, frame.encoder_stamp, frame.width, frame.height,
                               frame.points.size()));
  offset_ += frame.raw.size();
  file_.Append(frame.raw);
  file_.EndRecord();
}

void RawWriter::Finish() {
  const auto write_index = [this] {
    for (; lines_done_ < file_.records(); ++lines_done_) {
      index_.Append(lines_[lines_done_]);
      index_.EndRecord();
    }
    index_.Flush();
  };
  try {
    file_.Flush();
  } catch (const Failure&) {
    write_index();
    throw;
  }
  write_index();
}

}  // namespace tool
