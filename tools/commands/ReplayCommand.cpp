#include <algorithm>
#include <chrono>
#include <optional>

#include "ChildProcess.h"
#include "Counted.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Preload.h"
#include "VirtualBoard.h"
#include "commands/Commands.h"
#include "commands/RecordingOption.h"
#include "record/BagTime.h"
#include "record/ReplayFeed.h"

namespace tool {
namespace {

constexpr About kReplayAbout{
    "replay", "Plays a recording into an application that need not know", Touches::kNothing,
    "Starts the application with the virtual board of the recording's product, which hands it the "
    "recorded frames, byte for byte, with their stamps, and the recorded triggers. No frame is "
    "lost: one for which the application has no buffer free waits. Frames come while the "
    "application takes them (SetGlobalControl(1)), images while it takes images and strips while "
    "it takes strips, whatever triggers it sets up. Its settings must suit the recording: images "
    "of "
    "another size and strips with other points are left out, which is said.\n"
    "When all has been played, the application runs on as on a sensor that sees nothing; --stop "
    "interrupts it (SIGINT), also when it has taken all images, or all strips, and for 5 s none of "
    "the other kind.",
    "  tessaline replay run.db3 -- ./my_application\n"
    "  tessaline replay run.db3 --fast --stop -- ./my_application\n"
    "  tessaline record -o again.db3 -- tessaline replay run.db3 --stop -- ./my_application"};

constexpr std::chrono::milliseconds kWatchEvery{20};
constexpr std::chrono::milliseconds kLastFrames{500};
constexpr std::chrono::milliseconds kOtherFrames{5000};
constexpr double kMostSpeed = 1e6;
constexpr unsigned kMostRounds = 1'000'000;

class ReplayCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kReplayAbout, common);
    recording_.Describe(*app_);
    app_->add_option("--from", from_, "Where to begin: seconds from the start, or a date and time")
        ->type_name("TIME");
    app_->add_option("--to", to_, "Where to end")->type_name("TIME");
    auto* const speed = app_->add_option("--speed", speed_, "How much faster than recorded (1)")
                            ->check(NumberIn(0.001, kMostSpeed))
                            ->type_name("FACTOR");
    app_->add_flag("--fast", fast_, "As fast as the application takes them")->excludes(speed);
    app_->add_option("--loop", times_, "Play it this often, 0: for ever (1)")
        ->check(CLI::Range(0u, kMostRounds))
        ->type_name("COUNT");
    app_->add_flag("--stop", stop_, "Interrupt the application when all has been played");
    app_->add_option("application", application_, "The application and its arguments, behind --")
        ->type_name("-- APPLICATION ...")
        ->required();
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    const std::string given = session.options().model + session.options().virtual_model;
    if (!given.empty()) {
      throw Failure(ExitCode::kUsage, "the recording says which product it is of",
                    "leave out --model and --virtual");
    }
    std::optional<ReplayFeed> opened;
    {
      const SignalsBlocked inherited;  // they are for the thread that waits for the application
      opened.emplace(ReplayFeed::Settings{recording_.source(), Range(), times_});
    }
    ReplayFeed& feed = *opened;
    if (!Model(feed.model()).known()) {
      throw Failure(ExitCode::kFile,
                    fmt::format("{} does not say which product it is of", recording_.path()),
                    "it was recorded before the application had told the library");
    }
    Session::LeaveOutBoard();
    ChildProcess::Variables variables =
        feed.rings().VariablesFor(feed.model(), fast_ ? 0.0 : speed_);
    variables.emplace_back("LD_PRELOAD", Behind(FindLibrary(kBoardLibrary)));
    ChildProcess child(application_, variables);
    std::optional<Clock::time_point> begun;
    std::optional<Clock::time_point> over;
    Clock::time_point idle = Clock::time_point::max();  // since when
    bool stopped = false;
    while (child.Wait(kWatchEvery) != ChildProcess::News::kEnded) {
      if (!begun && feed.Begun()) begun = Clock::now();
      if (!over && feed.Over()) over = Clock::now();
      idle = feed.Idle() ? std::min(idle, Clock::now()) : Clock::time_point::max();
      // The last frames are in the application's hands for a moment. Of another kind it may take
      // some later.
      const bool done =
          (over && Clock::now() - *over > kLastFrames) || Clock::now() - idle > kOtherFrames;
      if (stop_ && done && !std::exchange(stopped, true)) child.Signal(SIGINT);
    }
    feed.Check();
    const ReplayFeed::Counts played = feed.Played();
    session.Print("{} and {} of {} played{}\n", Counted(played.strips, "profile"),
                  Counted(played.images, "image"), recording_.source().Name(),
                  feed.Over() ? "" : "; the application did not take the rest");
    session.Emit({{"strips", played.strips},
                  {"images", played.images},
                  {"complete", feed.Over()},
                  {"seconds", SecondsBetween(begun, over)},
                  {"application_status", child.Status()}});
    return static_cast<ExitCode>(child.Status());
  }

 private:
  using Clock = std::chrono::steady_clock;

  // From the first frame that the application takes to the last; null unless it takes them all.
  static Json SecondsBetween(const std::optional<Clock::time_point>& begun,
                             const std::optional<Clock::time_point>& over) {
    if (!begun || !over) return {};
    return std::chrono::duration<double>(*over - *begun).count();
  }

  StampRange Range() const {
    StampRange range;
    if (from_.empty() && to_.empty()) return range;
    const BagSource source = recording_.source();
    const BagReader reader(source.path, Database::Mode::kRead, source.sensor);
    const auto stamps = StampsOf(reader);
    if (!stamps) return range;
    if (!from_.empty()) range.first = MomentOf(from_, stamps->first);
    if (!to_.empty()) range.last = MomentOf(to_, stamps->first);
    return range;
  }

  CLI::App* app_ = nullptr;
  RecordingOption recording_;
  std::string from_;
  std::string to_;
  double speed_ = 1;
  bool fast_ = false;
  unsigned times_ = 1;
  bool stop_ = false;
  std::vector<std::string> application_;
};

}  // namespace

std::unique_ptr<Command> MakeReplayCommand() { return std::make_unique<ReplayCommand>(); }

}  // namespace tool
