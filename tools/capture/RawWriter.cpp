#include "capture/RawWriter.h"

#include <fmt/core.h>

#include "Failure.h"

namespace tool {
namespace {

// If the second file cannot be created, the first is useless.
std::unique_ptr<OutputFile> MakeIndex(OutputFile& data, const WriterSettings& settings) {
  if (IsStandardOutput(settings.path)) return nullptr;
  try {
    return std::make_unique<OutputFile>(RawWriter::IndexOf(settings.path), settings.force);
  } catch (const Failure&) {
    data.Remove();
    throw;
  }
}

}  // namespace

RawWriter::RawWriter(const WriterSettings& settings)
    : file_(settings.path, settings.force), index_(MakeIndex(file_, settings)) {
  if (index_ == nullptr) return;
  index_->Append("frame_id,offset,bytes,time_stamp,encoder_stamp,width,height,points\n");
  index_->Flush();
}

std::vector<std::string> RawWriter::Files() const {
  if (index_ == nullptr) return {file_.path()};
  return {file_.path(), index_->path()};
}

void RawWriter::Write(const Frame& frame) {
  if (index_ != nullptr) {
    lines_.push_back(fmt::format("{},{},{},{},{},{},{},{}\n", frame.id, offset_, frame.raw.size(),
                                 frame.time_stamp, frame.encoder_stamp, frame.width, frame.height,
                                 frame.points.size()));
  }
  offset_ += frame.raw.size();
  file_.Append(frame.raw);
  file_.EndRecord();
}

void RawWriter::Finish() {
  const auto write_index = [this] {
    if (index_ == nullptr) return;
    for (; lines_done_ < file_.records(); ++lines_done_) {
      index_->Append(lines_[lines_done_]);
      index_->EndRecord();
    }
    index_->Flush();
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
