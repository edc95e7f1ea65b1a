#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Acquisition.h"
#include "Failure.h"
#include "Session.h"
#include "capture/SettingsLink.h"
#include "ring/RecordRing.h"

namespace tool {

// Takes records out of a ring. Its calls come on the main thread; each may throw a Failure: then
// the application runs on, and nothing more is taken.
class RecordTaker {
 public:
  virtual ~RecordTaker() = default;

  // The first call; nothing is in the ring yet. The ring lives as long as the source.
  virtual void Begin(ring::RecordRing& ring) = 0;
  // The application did not start after all, so nothing will come.
  virtual void Cancel() {}
  // Every few milliseconds: takes what has come.
  virtual void Work() = 0;
  // The user sent SIGUSR1.
  virtual void OnRequest() {}
  // Nothing more comes: takes the rest.
  virtual void Finish(bool crashed) = 0;
};

// Where the records of a command come from: an application behind --, this machine's sensor, or the
// daemon that has it.
class RecordSource {
 public:
  // What becomes of records: "record", "recorded".
  struct Verb {
    const char* infinitive;
    const char* participle;
  };
  // The options. `megabytes`: the usual memory.
  void Describe(CLI::App& app, const Verb& verb, unsigned megabytes);

  // Whether this process is the one that takes the frames, behind the library that passes them on.
  bool TakesFrames(const Session& session) const;
  ExitCode TakeFrames(Session& session);

  // Throws a Failure if the options do not go together.
  void Check(Session& session);
  // For --dry-run; `file` may be empty.
  void Rehearse(Session& session, const std::string& title, const std::string& file) const;

  struct End {
    int status = 0;  // the application's
    std::optional<Failure> failure{};
  };
  // Takes records until the application ends, the time is over or somebody interrupts. `slice`: how
  // often the taker works at least.
  End Run(Session& session, RecordTaker& taker, std::chrono::milliseconds slice);

  // While records are taken: makes these settings and returns all that were in force before. Throws
  // a Failure, and then nothing has changed.
  Recipe Change(const Session& session, const Recipe& recipe) const;

  // Throws a Failure if nobody can make settings from here.
  void RequireSettings() const;

  unsigned megabytes() const { return megabytes_; }
  bool registers = false;  // wanted, too; and frames only where they are asked for
  bool has_application() const { return !application_.empty(); }
  const std::string& application() const { return application_.front(); }
  const Recipe& recipe() const { return acquisition_.recipe(); }

 private:
  using Clock = std::chrono::steady_clock;
  bool everything() const { return !strips_ && !images_ && !registers; }
  bool images_only() const { return images_ && !strips_; }
  bool IsOver() const;
  std::string What() const;
  End RunLive(Session& session, RecordTaker& taker, std::chrono::milliseconds slice);

  Verb verb_{};
  double seconds_ = 0;
  bool strips_ = false;
  bool images_ = false;
  unsigned megabytes_ = 0;
  Acquisition acquisition_;
  std::vector<std::string> application_;
  std::optional<ring::RecordRing> ring_;
  std::optional<SettingsLink> link_;  // to the process that takes the frames
  Clock::time_point start_;
};

}  // namespace tool
