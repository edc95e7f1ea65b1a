#include "record/RecordingFile.h"

namespace tool {
namespace {

constexpr std::chrono::seconds kSyncPeriod{1};

}  // namespace

RecordingFile::RecordingFile(const std::string& path,
                             const std::optional<StandardMessages::Settings>& standard)
    : path_(path),
      writer_(path),
      sensor_(writer_, BagWriter::kPlainNumbers, standard),
      next_sync_(Clock::now() + kSyncPeriod) {}

void RecordingFile::SyncIfDue() {
  if (Clock::now() < next_sync_) return;
  sensor_.WriteLosses();
  if (counts().messages != synced_.messages) writer_.Sync();
  synced_ = counts();
  next_sync_ = Clock::now() + kSyncPeriod;
}

void RecordingFile::Close() {
  sensor_.WriteLosses();
  writer_.Close();
  synced_ = counts();
}

}  // namespace tool
