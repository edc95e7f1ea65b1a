#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "record/RecordingFile.h"
#include "record/RunState.h"
#include "ring/RecordRing.h"

namespace tool {

// Moves records from a ring into recordings: all of them into one file, or, as a flight recorder,
// what was around an incident into a file of its own. For one thread.
class RingRecorder {
 public:
  struct Settings {
    std::string path;    // "run.db3"; the flight recorder's later files are "run-2.db3", ...
    std::string device;  // facts about the run: a JSON object
    // The flight recorder: this much before an incident and after it.
    std::optional<std::chrono::nanoseconds> before;
    std::chrono::nanoseconds after{0};
    bool on_error = false;    // an error in the log after the start, a lost frame, a crash
    bool on_trigger = false;  // so is an edge of the trigger input
    unsigned most_files = 10;
    std::optional<StandardMessages::Settings> standard{};  // see RecordingFile
  };

  struct Totals {
    RecordingFile::Counts written;  // in all files
    std::vector<std::string> files;
    std::uint64_t lost_by_device = 0;
    std::uint64_t dropped_frames = 0;
    std::uint64_t dropped_others = 0;
    std::string first_incident;  // why the first file was written
    unsigned incidents_without_file = 0;
  };

  // Without `before`, creates the file. Throws Failure if that fails.
  RingRecorder(ring::RecordRing& ring, Settings settings);

  using Clock = std::chrono::steady_clock;

  // Moves what has come until now; call it every few milliseconds. Throws Failure if writing fails.
  void Work(Clock::time_point now = Clock::now());
  // Something has happened; `what` is for people. Without `before` it does nothing. Throws Failure.
  void Incident(const std::string& what);
  // The application has ended: takes the rest and completes the file.
  void Finish(bool crashed);

  // So far; after a failure, what is in the files for certain.
  Totals totals(bool failed = false) const;

 private:
  bool flight() const { return settings_.before.has_value(); }
  std::string NextPath();
  void OpenFile();
  void CloseFile();
  void Look(const ring::Record& record);
  // Gives room that holds what came before a moment.
  void Drop(Clock::time_point before);
  // Completes the file when all is written that came until the end of the incident.
  void CloseIfOver();
  // Takes records as long as there are any, or until it is time for other things.
  void Take(bool written_off);
  void WriteUpTo(ring::RecordRing::Position end);

  ring::RecordRing& ring_;
  const Settings settings_;
  RunState state_;  // at the oldest record in the ring
  std::optional<RecordingFile> file_;
  bool started_ = false;
  unsigned number_ = 0;            // of the last file
  std::uint64_t lost_so_far_ = 0;  // as this process counts, one of several perhaps
  // Not by the records' stamps, because the host's clock may be set in between.
  struct Arrived {
    Clock::time_point when;
    ring::RecordRing::Position behind;
  };
  std::deque<Arrived> arrived_;  // records before `behind` came before `when`
  Clock::time_point now_ = Clock::now();
  Clock::time_point close_at_;
  std::optional<ring::RecordRing::Position> end_;  // of the file, once that time has come
  ring::RecordRing::Position seen_;
  std::int64_t newest_ns_ = 0;
  Totals totals_;
};

}  // namespace tool
