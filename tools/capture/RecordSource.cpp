#include "capture/RecordSource.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "ChildProcess.h"
#include "Command.h"
#include "Device.h"
#include "Interrupt.h"
#include "Preload.h"
#include "RecipeText.h"
#include "SettingsInForce.h"
#include "VirtualBoard.h"
#include "record/front/Variables.h"

namespace tool {
namespace {

constexpr unsigned kLeastMegabytes = 16;
constexpr unsigned kMostMegabytes = 1 << 20;
constexpr int kAnswerEveryMs = 50;

std::chrono::nanoseconds Nanoseconds(double seconds) {
  return std::chrono::nanoseconds(std::llround(seconds * 1e9));
}

std::vector<std::string> OwnWords() {
  std::ifstream file("/proc/self/cmdline");
  std::vector<std::string> words;
  for (std::string word; std::getline(file, word, '\0');) words.push_back(word);
  words.front() = std::filesystem::read_symlink("/proc/self/exe");
  return words;
}

}  // namespace

void RecordSource::Describe(CLI::App& app, const Verb& verb, unsigned megabytes) {
  verb_ = verb;
  megabytes_ = megabytes;
  app.add_option("-t,--time", seconds_,
                 fmt::format("Seconds to {}; an application is then interrupted", verb.infinitive))
      ->check(NumberIn(0.001, kMostSeconds))
      ->type_name("SECONDS");
  app.add_flag("--strips", strips_, "Only strips, and what else is named here");
  app.add_flag("--images", images_, "Only images, and what else is named here");
  app.add_option("--memory", megabytes_, "Megabytes that hold what waits for this command")
      ->check(CLI::Range(kLeastMegabytes, kMostMegabytes))
      ->type_name("MB")
      ->capture_default_str();
  acquisition_.Describe(app);
  app.add_option("application", application_, "The application and its arguments, behind --")
      ->type_name("-- APPLICATION ...");
}

bool RecordSource::TakesFrames(const Session& session) const {
  return !Environment(kRingVariable).empty() && application_.empty() && !session.options().dry_run;
}

ExitCode RecordSource::TakeFrames(Session& session) {
  const Model& model = session.model();
  acquisition_.Settle(session, &model);
  Device device(session);
  const auto ignore = [](unsigned, unsigned, void*) {};
  device.Start(ignore, ignore);
  SettingsInForce settings(model);
  settings.Start(acquisition_.recipe(), images_only());
  tool::Run(acquisition_.Collect(images_only()));
  tool::Run(device.Begin(acquisition_.laser()));
  const auto answer = [&](const Json& request) -> Json {
    const Recipe wanted = ParseRecipe(request.at("recipe").dump(), {}, model);
    const Recipe before = settings.All(images_only());
    settings.Change(wanted, images_only());
    if (wanted.laser == "on") device.LaserOn();
    if (wanted.laser == "off") device.LaserOff();
    return {{"before", Json::parse(AsText(before))}};
  };
  const int link = SettingsLink::Inherited();
  const auto end = Clock::now() + Nanoseconds(seconds_ == 0 ? kMostSeconds : seconds_);
  while (Clock::now() < end && !Interrupted()) {
    if (link >= 0) SettingsLink::Serve(link, kAnswerEveryMs, answer);
    if (link < 0) PauseFor(std::chrono::milliseconds(kAnswerEveryMs));
  }
  tool::Run(device.End(acquisition_.laser()));
  return ExitCode::kOk;
}

void RecordSource::Check(Session& session) {
  if (!application_.empty() && acquisition_.AskedFor()) {
    throw Failure(ExitCode::kUsage,
                  "an application makes its settings itself, so none may be given here",
                  "leave out the settings, or the application");
  }
  if (!application_.empty()) return;
  const Model& model = session.model();
  acquisition_.Settle(session, &model);
}

void RecordSource::Rehearse(Session& session, const std::string& title,
                            const std::string& file) const {
  if (application_.empty()) {
    acquisition_.Rehearse(session, title, images_only(), {}, file);
    return;
  }
  Json json{{"would_start", application_}};
  if (!file.empty()) json["would_write"] = file;
  session.Print("would start {}{}\n", application_.front(),
                file.empty() ? "" : fmt::format(" and write {}", file));
  session.Emit(json);
}

// What is to be taken, as the library in front reads it.
std::string RecordSource::What() const {
  return fmt::format("{}{}{}", strips_ || everything() ? "strips " : "",
                     images_ || everything() ? "images " : "",
                     registers || everything() ? "registers" : "");
}

bool RecordSource::IsOver() const {
  return seconds_ != 0 && Clock::now() - start_ >= Nanoseconds(seconds_);
}

RecordSource::End RecordSource::Run(Session& session, RecordTaker& taker,
                                    std::chrono::milliseconds slice) {
  if (application_.empty() && session.live() != nullptr) return RunLive(session, taker, slice);
  const std::string front = FindLibrary(kRecorderLibrary);
  if (auto ring = ring::RecordRing::Create(std::size_t{megabytes_} << 20)) {
    ring_.emplace(std::move(*ring));
  } else {
    throw Failure(ExitCode::kFile, fmt::format("there is no memory for {} MB", megabytes_),
                  "give less with --memory");
  }
  taker.Begin(*ring_);
  ChildProcess::Variables variables{
      {kRingVariable, ring_->Path()}, {kWhatVariable, What()}, {"LD_PRELOAD", InFrontOf(front)}};
  if (application_.empty()) {
    link_.emplace();
    variables.emplace_back(SettingsLink::kVariable, link_->Variable());
  }
  ChildProcess child = [&] {
    try {
      return ChildProcess(application_.empty() ? OwnWords() : application_, variables);
    } catch (const Failure&) {
      taker.Cancel();
      throw;
    }
  }();
  if (link_) link_->Started();
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
    news = child.Wait(slice);
    if (news == ChildProcess::News::kAsked) guarded([&] { taker.OnRequest(); });
    const bool failed = failure.has_value();
    guarded([&] { taker.Work(); });
    if (failure && !failed) {
      session.Note("{}; the application runs on, and nothing more is {}", failure->what(),
                   verb_.participle);
    }
    if (IsOver() && !application_.empty() && !std::exchange(interrupted, true)) {
      child.Signal(SIGINT);
    }
  }
  guarded([&] { taker.Finish(child.crashed()); });
  return {child.Status(), failure};
}

// The frames of a sensor that a daemon has. Nobody but the taker and the daemon's end can stop us.
RecordSource::End RecordSource::RunLive(Session& session, RecordTaker& taker,
                                        std::chrono::milliseconds slice) {
  const live::LiveSensor& sensor = *session.live();
  sensor.Change(acquisition_.recipe());
  CatchInterrupts([] {});
  signal(SIGXFSZ, SIG_IGN);
  live::LiveSensor::Frames frames = sensor.TakeFrames(What(), megabytes_);
  ring_.emplace(std::move(frames.ring));
  taker.Begin(*ring_);
  start_ = Clock::now();
  bool ended = false;
  End end;
  try {
    while (!ended && !Interrupted() && !IsOver()) {
      ended = ring_->Ended() || live::HasEnded(frames.connection);
      taker.Work();
      PauseFor(slice);
    }
    // The daemon puts no more into the ring, so a slow taker comes to an end with it.
    const bool crashed = ended && !ring_->Ended();
    close(frames.connection);
    taker.Finish(crashed);
  } catch (const Failure& now) {
    end.failure = now;
  }
  if (ended && !end.failure) end.failure = sensor.Gone();  // what was taken is whole nevertheless
  return end;
}

void RecordSource::RequireSettings() const {
  if (application_.empty()) return;
  throw Failure(ExitCode::kNegative,
                fmt::format("{} makes its settings itself", application_.front()));
}

Recipe RecordSource::Change(const Session& session, const Recipe& recipe) const {
  const Json wanted = Json::parse(AsText(recipe));
  const auto read = [](const Json& json) { return ParseRecipe(json.dump(), {}); };
  if (link_) return read(link_->Ask({{"recipe", wanted}}).at("before"));
  RequireSettings();
  const Recipe before = read(session.live()->Get("/api/v1/settings"));
  session.live()->Change(recipe);
  return before;
}

}  // namespace tool
