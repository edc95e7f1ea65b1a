#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <optional>

#include "Acquisition.h"
#include "ChildProcess.h"
#include "Counted.h"
#include "Device.h"
#include "EepromStore.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Preload.h"
#include "RecipeText.h"
#include "VirtualBoard.h"
#include "capture/BagMeasuring.h"
#include "commands/Commands.h"
#include "record/RingRecorder.h"
#include "record/front/Variables.h"
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
constexpr unsigned kLeastMegabytes = 16;
constexpr unsigned kMostMegabytes = 1 << 20;

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

class RecordCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kRecordAbout, common);
    app_->add_option("-o,--output", path_, "File to write; it must not exist")
        ->type_name("FILE")
        ->required();
    app_->add_option("-t,--time", seconds_, "Seconds to record; an application is then interrupted")
        ->check(NumberIn(0.001, kMostSeconds))
        ->type_name("SECONDS");
    app_->add_flag("--strips", strips_, "Only strips, and what else is named here");
    app_->add_flag("--images", images_, "Only images, and what else is named here");
    app_->add_flag("--registers", registers_, "Only registers, and what else is named here");
    app_->add_flag("--points", points_,
                   "Also as messages that viewers of bags show: point clouds and pictures");
    app_->add_option("--ring", ring_, "Flight recorder: how long before an incident")
        ->check(DurationUpTo(kMostRingSeconds));
    app_->add_option("--after", after_, "Flight recorder: how long after an incident (5s)")
        ->check(DurationUpTo(kMostRingSeconds));
    app_->add_flag("--on-error", on_error_, "Flight recorder: errors, losses, crashes");
    app_->add_flag("--on-trigger", on_trigger_, "Flight recorder: edges of the trigger input");
    app_->add_option("--memory", megabytes_, "Megabytes that hold what waits for the disk (256)")
        ->check(CLI::Range(kLeastMegabytes, kMostMegabytes))
        ->type_name("MB");
    acquisition_.Describe(*app_);
    app_->add_option("application", application_, "The application and its arguments, behind --")
        ->type_name("-- APPLICATION ...");
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    // A recorder in front of us takes what is wanted; or it is our own, which has started us.
    const bool recorded = !Environment(kRingVariable).empty() && application_.empty();
    if (recorded && !session.options().dry_run) return TakeFrames(session);
    Check(session);
    if (session.options().dry_run) {
      if (application_.empty()) {
        acquisition_.Rehearse(session, "record", images_only(), {}, path_);
      } else {
        session.Print("would start {} and write {}\n", application_.front(), path_);
        session.Emit({{"would_start", application_}, {"would_write", path_}});
      }
      return ExitCode::kOk;
    }
    return Record(session);
  }

 private:
  using Clock = std::chrono::steady_clock;

  bool everything() const { return !strips_ && !images_ && !registers_; }
  bool images_only() const { return images_ && !strips_; }

  void Check(Session& session) {
    if (!application_.empty() && acquisition_.AskedFor()) {
      throw Failure(ExitCode::kUsage,
                    "an application makes its settings itself, so none may be given here",
                    "leave out the settings, or the application");
    }
    if (ring_.empty() && (on_error_ || on_trigger_ || !after_.empty())) {
      throw Failure(ExitCode::kUsage, "--on-error, --on-trigger and --after go with --ring",
                    "add --ring 30s");
    }
    if (!application_.empty()) return;
    const Model& model = session.model();
    acquisition_.Settle(session, &model);
  }

  // The process that takes the frames: it is started below, behind the library in front.
  ExitCode TakeFrames(Session& session) {
    const Model& model = session.model();
    acquisition_.Settle(session, &model);
    Device device(session);
    const auto ignore = [](unsigned, unsigned, void*) {};
    device.Start(ignore, ignore);
    tool::Run(acquisition_.Settings(model, images_only()));
    tool::Run(device.Begin(acquisition_.laser()));
    const auto end = Clock::now() + Nanoseconds(seconds_ == 0 ? kMostSeconds : seconds_);
    while (Clock::now() < end && !Interrupted()) PauseFor(std::chrono::milliseconds(50));
    tool::Run(device.End(acquisition_.laser()));
    return ExitCode::kOk;
  }

  // What the library in front does not know.
  std::string DeviceFacts(const Session& session) const {
    Json json{{"recorder", "tessaline"}};
    session.MarkVirtual(json);
    if (application_.empty()) json["recipe"] = Json::parse(AsText(acquisition_.recipe()));
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

  std::vector<std::string> Words() const {
    if (!application_.empty()) return application_;
    std::ifstream file("/proc/self/cmdline");
    std::vector<std::string> words;
    for (std::string word; std::getline(file, word, '\0');) words.push_back(word);
    words.front() = std::filesystem::read_symlink("/proc/self/exe");
    return words;
  }

  ExitCode Record(Session& session) {
    RingRecorder::Settings settings;
    settings.path = path_;
    settings.device = DeviceFacts(session);
    if (!ring_.empty()) settings.before = Nanoseconds(SecondsIn(ring_));
    settings.after = Nanoseconds(after_.empty() ? 5 : SecondsIn(after_));
    if (points_) settings.standard = Standard(session, settings.device);
    settings.on_error = on_error_;
    settings.on_trigger = on_trigger_;
    RequireNew();
    if (application_.empty() && session.live() != nullptr) return RecordLive(session, settings);
    const std::string front = FindLibrary(kRecorderLibrary);
    auto ring = ring::RecordRing::Create(std::size_t{megabytes_} << 20);
    if (!ring) {
      throw Failure(ExitCode::kFile, fmt::format("there is no memory for {} MB", megabytes_),
                    "give less with --memory");
    }
    RingRecorder recorder(*ring, settings);
    const ChildProcess::Variables variables{
        {kRingVariable, ring->Path()}, {kWhatVariable, What()}, {"LD_PRELOAD", InFrontOf(front)}};
    ChildProcess child = [&] {
      try {
        return ChildProcess(Words(), variables);
      } catch (const Failure&) {
        recorder.Finish(/*crashed=*/false);
        for (const std::string& file : recorder.totals().files) std::filesystem::remove(file);
        throw;
      }
    }();
    signal(SIGXFSZ, SIG_IGN);  // a file-size limit is a full disk; not so for the application
    std::optional<Failure> failure;
    const auto guarded = [&failure](auto work) {
      try {
        if (!failure) work();
      } catch (const Failure& now) {
        failure = now;
      }
    };
    start_ = Clock::now();
    bool interrupted = false;
    for (auto news = ChildProcess::News::kNone; news != ChildProcess::News::kEnded;) {
      news = child.Wait(kSlice);
      if (news == ChildProcess::News::kAsked) guarded([&] { recorder.Incident("SIGUSR1"); });
      const bool failed = failure.has_value();
      guarded([&] { recorder.Work(); });
      if (failure && !failed) {
        session.Note("{}; the application runs on, and nothing more is recorded", failure->what());
      }
      if (IsOver() && !application_.empty() && !std::exchange(interrupted, true)) {
        child.Signal(SIGINT);
      }
      ShowProgress(recorder.totals(), false);
    }
    guarded([&] { recorder.Finish(child.crashed()); });
    ShowProgress(recorder.totals(), true);
    return Report(session, recorder.totals(failure.has_value()), child.Status(), failure);
  }

  // What is to be recorded, as the library in front reads it.
  std::string What() const {
    return fmt::format("{}{}{}", strips_ || everything() ? "strips " : "",
                       images_ || everything() ? "images " : "",
                       registers_ || everything() ? "registers" : "");
  }

  // The frames of a sensor that a daemon has. Nobody but the disk and the daemon's end can stop us.
  ExitCode RecordLive(Session& session, const RingRecorder::Settings& settings) {
    const live::LiveSensor& sensor = *session.live();
    sensor.Change(acquisition_.recipe());
    CatchInterrupts([] {});
    signal(SIGXFSZ, SIG_IGN);
    live::LiveSensor::Frames frames = sensor.TakeFrames(What(), megabytes_);
    RingRecorder recorder(frames.ring, settings);
    std::optional<Failure> failure;
    start_ = Clock::now();
    bool ended = false;
    try {
      while (!ended && !Interrupted() && !IsOver()) {
        ended = frames.ring.Ended() || live::HasEnded(frames.connection);
        recorder.Work();
        ShowProgress(recorder.totals(), false);
        PauseFor(kSlice);
      }
      // The daemon puts no more into the ring, so a slow disk comes to an end with it.
      const bool crashed = ended && !frames.ring.Ended();
      close(frames.connection);
      recorder.Finish(crashed);
    } catch (const Failure& now) {
      failure = now;
    }
    ShowProgress(recorder.totals(), true);
    const RingRecorder::Totals totals = recorder.totals(failure.has_value());
    if (ended && !failure) failure = sensor.Gone();  // the file is whole nevertheless
    return Report(session, totals, /*status=*/0, failure);
  }

  // Before the device is started or the memory of a flight recorder fills.
  void RequireNew() const {
    std::error_code ignored;
    if (std::filesystem::exists(path_, ignored)) {
      throw Failure(ExitCode::kExists, fmt::format("{} already exists", path_),
                    "a recording is never overwritten; choose another name");
    }
  }

  bool IsOver() const { return seconds_ != 0 && Clock::now() - start_ >= Nanoseconds(seconds_); }

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

  ExitCode Report(const Session& session, const RingRecorder::Totals& totals, int status,
                  const std::optional<Failure>& failure) const {
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
              {"application_status", status}};
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
      if (written.strips + written.images == 0 && !failure) {
        warning = application_.empty()
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
    if (failure) AddTo(json, *failure);
    session.Emit(json);
    if (!warning.empty() && !session.json()) session.Note("{}", warning);
    if (failure) throw *failure;
    return static_cast<ExitCode>(status);
  }

  CLI::App* app_ = nullptr;
  std::string path_;
  double seconds_ = 0;
  bool strips_ = false;
  bool images_ = false;
  bool registers_ = false;
  bool points_ = false;
  std::string ring_;
  std::string after_;
  bool on_error_ = false;
  bool on_trigger_ = false;
  unsigned megabytes_ = 256;
  Acquisition acquisition_;
  std::vector<std::string> application_;
  Clock::time_point start_;
  Clock::time_point shown_;
};

}  // namespace

std::unique_ptr<Command> MakeRecordCommand() { return std::make_unique<RecordCommand>(); }

}  // namespace tool
