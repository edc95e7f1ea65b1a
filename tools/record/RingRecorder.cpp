#include "record/RingRecorder.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "Failure.h"
#include "HostClock.h"
#include "tessaline/log.h"

namespace tool {
namespace {

using ring::Kind;

constexpr std::chrono::milliseconds kMostAtOnce{100};
constexpr std::chrono::milliseconds kNoteArrivalsEvery{20};

}  // namespace

RingRecorder::RingRecorder(ring::RecordRing& ring, Settings settings)
    : ring_(ring), settings_(std::move(settings)), seen_(ring.First()) {
  if (!settings_.device.empty()) {
    const auto bytes = std::as_bytes(std::span(settings_.device.data(), settings_.device.size()));
    const std::int64_t now = HostNs();
    state_.Learn({Kind::kDevice, now, 0, 0, bytes});
    newest_ns_ = now;
  }
  if (!flight()) OpenFile();
}

// Files of an earlier run keep their names.
std::string RingRecorder::NextPath() {
  if (++number_ == 1) return settings_.path;
  const std::filesystem::path path(settings_.path);
  std::filesystem::path next = path;
  const auto name = [&] {
    return fmt::format("{}-{}{}", path.stem().string(), number_, path.extension().string());
  };
  std::error_code ignored;
  while (std::filesystem::exists(next.replace_filename(name()), ignored)) ++number_;
  return next;
}

void RingRecorder::OpenFile() {
  file_.emplace(NextPath(), settings_.standard);
  totals_.files.push_back(file_->path());
  // The state is older than what is still in memory.
  const auto oldest = ring_.At(ring_.First(), true);
  state_.WriteTo(*file_, oldest ? oldest->record.stamp_ns : newest_ns_);
  arrived_.clear();
}

void RingRecorder::CloseFile() {
  file_->Close();
  totals_.written.Add(file_->counts());
  file_.reset();
}

RingRecorder::Totals RingRecorder::totals(bool failed) const {
  Totals totals = totals_;
  totals.dropped_frames = ring_.DroppedFrames();
  totals.dropped_others = ring_.DroppedRecords();
  if (file_) totals.written.Add(failed ? file_->synced() : file_->counts());
  return totals;
}

void RingRecorder::Incident(const std::string& what) {
  if (!flight()) return;
  close_at_ = now_ + settings_.after;
  end_.reset();
  if (file_) return;  // it lasts
  if (totals_.files.size() >= settings_.most_files) {
    ++totals_.incidents_without_file;
    return;
  }
  if (totals_.files.empty()) totals_.first_incident = what;
  OpenFile();
}

// Whether a record is an incident.
void RingRecorder::Look(const ring::Record& record) {
  newest_ns_ = record.stamp_ns;
  if (record.kind == Kind::kLost) {
    // Another application, or one that has reset its count, begins anew.
    const std::uint64_t known = record.first < lost_so_far_ ? 0 : lost_so_far_;
    lost_so_far_ = record.first;
    totals_.lost_by_device += record.first - known;
    if (settings_.on_error && record.first > known) Incident("a frame was lost");
  }
  // The clock is told once the device has been started. Before, every start has an error: the
  // driver refuses a format while it streams.
  started_ |= record.kind == Kind::kClock;
  const bool error = record.kind == Kind::kLog && record.first >= TESSALINE_LOG_ERROR;
  if (settings_.on_error && error && started_) {
    Incident("an error in the log");
  }
  if (settings_.on_trigger && record.kind == Kind::kTrigger) Incident("the trigger input");
}

void RingRecorder::Take(bool written_off) {
  const Clock::time_point enough = Clock::now() + kMostAtOnce;
  while (const auto found = ring_.At(seen_, written_off)) {
    Look(found->record);
    seen_ = found->next;
    if (file_) WriteUpTo(seen_);
    if (!written_off && Clock::now() > enough) return;
  }
}

void RingRecorder::WriteUpTo(ring::RecordRing::Position end) {
  while (ring_.First() < end) {
    const auto found = ring_.At(ring_.First(), true);
    if (!found) return;
    file_->Write(found->record);
    state_.Learn(found->record);
    ring_.Release(found->next);
    file_->SetLost(totals_.lost_by_device, ring_.DroppedFrames(), ring_.DroppedRecords());
    file_->SyncIfDue();
  }
}

// The writer must find room whatever happens.
void RingRecorder::Drop(Clock::time_point before) {
  ring::RecordRing::Position old = ring_.First();
  for (; !arrived_.empty() && arrived_.front().when < before; arrived_.pop_front()) {
    old = arrived_.front().behind;
  }
  while (ring_.First() < seen_) {
    const bool tight = ring_.UsedBytes() > ring_.Bytes() / 4 * 3;
    if (ring_.First() >= old && !tight) return;
    const auto found = ring_.At(ring_.First(), true);
    if (!found) return;
    state_.Learn(found->record);
    ring_.Release(found->next);
  }
}

void RingRecorder::CloseIfOver() {
  if (!end_ && now_ >= close_at_) end_ = ring_.First() + ring_.UsedBytes();
  if (end_ && ring_.First() >= *end_) CloseFile();
}

void RingRecorder::Work(Clock::time_point now) {
  now_ = now;
  Take(false);
  if (file_) {
    WriteUpTo(seen_);
    file_->SyncIfDue();
    if (flight()) CloseIfOver();
    return;
  }
  if (arrived_.empty() || now - arrived_.back().when >= kNoteArrivalsEvery) {
    arrived_.push_back({now, seen_});
  }
  Drop(now - *settings_.before);
}

void RingRecorder::Finish(bool crashed) {
  Take(true);
  if (crashed && settings_.on_error) Incident("the application was ended by a signal");
  if (!file_) return;
  WriteUpTo(seen_);
  file_->SetLost(totals_.lost_by_device, ring_.DroppedFrames(), ring_.DroppedRecords());
  CloseFile();
}

}  // namespace tool
