#include <unistd.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <optional>

#include "Counted.h"
#include "EepromStore.h"
#include "Failure.h"
#include "RecipeText.h"
#include "capture/BagMeasuring.h"
#include "capture/RecordSource.h"
#include "commands/Commands.h"
#include "record/RingRecorder.h"
#include "watch/Terminal.h"

namespace tool {
namespace {

constexpr About kRecordAbout{
    "record", "Records frames, registers, events and the log into one file", Touches::kLight,
    "With a command behind --, runs that application and records what the library hands to it; the "
    "application need not know. Without one, takes frames itself, with the laser on, until Ctrl-C "
    "or --time. Writing never holds up a frame: what the disk cannot take in time is dropped, "
    "counted, and the count is in the file. After a crash or a power cut, the file holds all but "
    "the last second.\n"
    "--ring makes it a flight recorder: it keeps the last seconds in memory, and writes a file "
    "when "
    "something happens: SIGUSR1 (\"pkill -USR1 tessaline\"), with --on-error an error in the log, "
    "a "
    "lost frame or a crash, with --on-trigger an edge of the trigger input. Each incident has a "
    "file "
    "of its own: run.db3, run-2.db3 and so on, 10 at most.\n"
    "The file is an SQLite database with the tables of a rosbag2 bag. \"tessaline bag\" shows, "
    "checks, cuts and converts it, \"tessaline replay\" plays it back into an application.",
    "  tessaline record -o run.db3 -t 10 --virtual K3610\n"
    "  tessaline record -o run.db3 -- ./my_application\n"
    "  tessaline record -o fault.db3 --ring 30s --on-error -- ./my_application"};

constexpr std::chrono::milliseconds kSlice{5};
constexpr std::chrono::milliseconds kShowEvery{500};
constexpr double kMostRingSeconds = 3600;

// "30", "30s" and "2.5s" are seconds, "2m" minutes; negative if it is none of these.
double SecondsIn(const std::string& text) {
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  const std::string unit = end;
  if (end == text.c_str() || !std::isfinite(number)) return -1;
  if (unit.empty() || unit == "s") return number;
  return unit == "m" ? 60 * number : -1;
}

std::chrono::nanoseconds Nanoseconds(double seconds) {
  return std::chrono::nanoseconds(std::llround(seconds * 1e9));
}

CLI::Validator DurationUpTo(double most) {
  return CLI::Validator(
      [most](const std::string& text) {
        const double seconds = SecondsIn(text);
        if (seconds > 0 && seconds <= most) return std::string();
        return fmt::format("{} is not a time such as 30s or 2m, up to {} s", text, most);
      },
      "TIME");
}

class RecordCommand : public Command, private RecordTaker {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kRecordAbout, common);
    app_->add_option("-o,--output", path_, "File to write; it must not exist")
        ->type_name("FILE")
        ->required();
    app_->add_flag("--registers", source_.registers, "Only registers, and what else is named here");
    app_->add_flag("--points", points_,
                   "Also as messages that viewers of bags show: point clouds and pictures");
    app_->add_option("--ring", ring_, "Flight recorder: how long before an incident")
        ->check(DurationUpTo(kMostRingSeconds));
    app_->add_option("--after", after_, "Flight recorder: how long after an incident (5s)")
        ->check(DurationUpTo(kMostRingSeconds));
    app_->add_flag("--on-error", on_error_, "Flight recorder: errors, losses, crashes");
    app_->add_flag("--on-trigger", on_trigger_, "Flight recorder: edges of the trigger input");
    source_.Describe(*app_, {"record", "recorded"}, /*megabytes=*/256);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    // A recorder in front of us takes what is wanted; or it is our own, which has started us.
    if (source_.TakesFrames(session)) return source_.TakeFrames(session);
    if (ring_.empty() && (on_error_ || on_trigger_ || !after_.empty())) {
      throw Failure(ExitCode::kUsage, "--on-error, --on-trigger and --after go with --ring",
                    "add --ring 30s");
    }
    source_.Check(session);
    if (session.options().dry_run) {
      source_.Rehearse(session, "record", path_);
      return ExitCode::kOk;
    }
    return Record(session);
  }

 private:
  using Clock = std::chrono::steady_clock;

  // What the library in front does not know.
  std::string DeviceFacts(const Session& session) const {
    Json json{{"recorder", "tessaline"}};
    session.MarkVirtual(json);
    if (!source_.has_application()) json["recipe"] = Json::parse(AsText(source_.recipe()));
    try {
      const eeprom::Content content = eeprom::Read();
      std::string hex;
      for (const std::uint8_t byte : content) hex += fmt::format("{:02x}", byte);
      json["eeprom"] = hex;
    } catch (const Failure&) {  // there is none here, and the recording does without
    }
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
  }

  // Millimetres where model and calibration are known before the application says more.
  static StandardMessages::Settings Standard(const Session& session, const std::string& facts) {
    StandardMessages::Settings settings;
    DeviceNotes notes;
    notes.Add(facts);
    if (const auto known = BagMeasuringOptions().Choose(session, notes)) {
      settings.geometry = known->measuring.geometry;
      settings.calibration = known->measuring.calibration;
      settings.counts_per_mm = known->measuring.counts_per_mm;
    }
    return settings;
  }

  ExitCode Record(Session& session) {
    settings_.path = path_;
    settings_.device = DeviceFacts(session);
    if (!ring_.empty()) settings_.before = Nanoseconds(SecondsIn(ring_));
    settings_.after = Nanoseconds(after_.empty() ? 5 : SecondsIn(after_));
    if (points_) settings_.standard = Standard(session, settings_.device);
    settings_.on_error = on_error_;
    settings_.on_trigger = on_trigger_;
    RequireNew();
    start_ = Clock::now();
    const RecordSource::End end = source_.Run(session, *this, kSlice);
    const RingRecorder::Totals totals = recorder_->totals(end.failure.has_value());
    ShowProgress(totals, true);
    return Report(session, totals, end);
  }

  void Begin(ring::RecordRing& ring) override { recorder_.emplace(ring, settings_); }
  void Cancel() override {
    recorder_->Finish(/*crashed=*/false);
    for (const std::string& file : recorder_->totals().files) std::filesystem::remove(file);
  }
  void Work() override {
    recorder_->Work();
    ShowProgress(recorder_->totals(), false);
  }
  void OnRequest() override { recorder_->Incident("SIGUSR1"); }
  void Finish(bool crashed) override { recorder_->Finish(crashed); }

  // Before the device is started or the memory of a flight recorder fills.
  void RequireNew() const {
    std::error_code ignored;
    if (std::filesystem::exists(path_, ignored)) {
      throw Failure(ExitCode::kExists, fmt::format("{} already exists", path_),
                    "a recording is never overwritten; choose another name");
    }
  }

  void ShowProgress(const RingRecorder::Totals& totals, bool last) {
    if (!IsScreen(STDERR_FILENO)) return;
    const auto now = Clock::now();
    if (!last && now - shown_ < kShowEvery) return;
    shown_ = now;
    fprintf(stderr, "\r%llu profiles, %llu images, %.1f MB, lost %llu, dropped %llu\033[K%s",
            static_cast<unsigned long long>(totals.written.strips),
            static_cast<unsigned long long>(totals.written.images),
            static_cast<double>(totals.written.bytes) / 1e6,
            static_cast<unsigned long long>(totals.lost_by_device),
            static_cast<unsigned long long>(totals.dropped_frames), last ? "\n" : "");
    fflush(stderr);
  }

  ExitCode Report(const Session& session, const RingRecorder::Totals& totals,
                  const RecordSource::End& end) const {
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    const RecordingFile::Counts& written = totals.written;
    Json json{{"files", totals.files},
              {"strips", written.strips},
              {"images", written.images},
              {"messages", written.messages},
              {"bytes", written.bytes},
              {"seconds", seconds},
              {"lost_by_device", totals.lost_by_device},
              {"dropped_frames", totals.dropped_frames},
              {"dropped_messages", totals.dropped_others},
              {"application_status", end.status}};
    std::string warning;
    if (totals.files.empty()) {
      session.Print("nothing happened that the flight recorder was to write\n");
    } else {
      session.Print("{}, {}, {:.1f} MB in {:.1f} s: {}{}\n", Counted(written.strips, "profile"),
                    Counted(written.images, "image"), static_cast<double>(written.bytes) / 1e6,
                    seconds, totals.files.front(),
                    totals.files.size() == 1 ? "" : fmt::format(" to {}", totals.files.back()));
      if (!totals.first_incident.empty()) session.Print("because: {}\n", totals.first_incident);
      session.Print("lost by the device {}, dropped by this tool {}\n", totals.lost_by_device,
                    totals.dropped_frames);
      if (written.strips + written.images == 0 && !end.failure) {
        warning = !source_.has_application()
                      ? "no frames came"
                      : "the application was handed no frames, or uses the library "
                        "in a way that cannot be recorded (linked statically, or "
                        "looked up with dlsym, or in Python with a virtual board "
                        "of its own: give --virtual CODE here)";
      }
    }
    if (totals.incidents_without_file > 0) {
      warning = fmt::format("{} more incidents were not written: there are {} files",
                            totals.incidents_without_file, totals.files.size());
    }
    if (!warning.empty()) json["warning"] = warning;
    if (end.failure) AddTo(json, *end.failure);
    session.Emit(json);
    if (!warning.empty() && !session.json()) session.Note("{}", warning);
    if (end.failure) throw *end.failure;
    return static_cast<ExitCode>(end.status);
  }

  CLI::App* app_ = nullptr;
  std::string path_;
  bool points_ = false;
  std::string ring_;
  std::string after_;
  bool on_error_ = false;
  bool on_trigger_ = false;
  RecordSource source_;
  RingRecorder::Settings settings_;
  std::optional<RingRecorder> recorder_;
  Clock::time_point start_;
  Clock::time_point shown_;
};

}  // namespace

std::unique_ptr<Command> MakeRecordCommand() { return std::make_unique<RecordCommand>(); }

}  // namespace tool
