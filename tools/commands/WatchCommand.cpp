#include "Acquisition.h"
#include "Device.h"
#include "Failure.h"
#include "Interrupt.h"
#include "capture/FrameQueue.h"
#include "capture/FrameReader.h"
#include "commands/Commands.h"
#include "tessaline/capture_statistics.h"
#include "watch/Status.h"
#include "watch/Terminal.h"

namespace tool {
namespace {

constexpr About kWatchAbout{
    "watch", "Shows profile, rates, counters and temperatures live", Touches::kLight,
    "On a terminal, draws a picture that follows the terminal's size; otherwise prints one line "
    "per interval, with --json one object per line. Heights are in millimetres if the head is "
    "calibrated (tessaline calibrate), otherwise in columns and rows of the full sensor. The laser "
    "is on meanwhile. Ends at q, at Ctrl-C or after --time.",
    "  tessaline watch --virtual K3610\n"
    "  tessaline watch --time 5 --interval 1 --exposure 200 --model K3610"};

class WatchCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kWatchAbout, common);
    app_->add_option("-t,--time", seconds_, "End after this many seconds")
        ->check(NumberIn(0.001, kMostSeconds))
        ->type_name("SECONDS");
    app_->add_option("--interval", interval_,
                     "Seconds between updates (0.1, or 1 without a terminal)")
        ->check(NumberIn(0.01, 3600))
        ->type_name("SECONDS");
    acquisition_.Describe(*app_);
    measuring_.Describe(*app_);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    const Model& model = session.model();
    acquisition_.Settle(session, &model);
    status_.measuring =
        measuring_.Choose(session, acquisition_.RegionOf(session), /*travels=*/false);
    if (session.options().dry_run) {
      acquisition_.Rehearse(session, "watch", /*images=*/false, status_.measuring.calls);
      return ExitCode::kOk;
    }
    FILE* const user = LibraryOutput::Instance().user();
    Terminal terminal(user == nullptr ? -1 : fileno(user));
    const bool pictures = terminal.present() && !session.json();
    if (interval_ == 0) interval_ = pictures ? 0.1 : 1;

    Device device(session);
    device.Start(FrameQueue::OnImage, FrameQueue::OnStrips);
    acquisition_.SetUp(session, /*images=*/false);
    TessalineResetCaptureStatistics(TESSALINE_STREAM_STRIPS);
    FrameQueue::Instance().Open();
    tool::Run(device.Begin(acquisition_.laser()));
    if (pictures) {
      terminal.Enter();
    } else {
      session.Print("{}\n", status_.measuring.Description());
    }
    strips_.emplace(model.product().PointBytes(), status_.measuring.geometry,
                    status_.measuring.calibration);
    Watch(session, terminal, pictures);
    FrameQueue::Instance().Close();
    tool::Run(device.End(acquisition_.laser()));
    if (status_.profiles == 0 && !Interrupted()) {
      throw Failure(ExitCode::kUnreachable, "no profiles came",
                    "are there triggers (tessaline trigger)? \"tessaline check\" tests the board");
    }
    return ExitCode::kOk;  // Ctrl-C is the normal end
  }

 private:
  using Clock = std::chrono::steady_clock;

  void Watch(Session& session, Terminal& terminal, bool pictures) {
    const auto start = Clock::now();
    auto shown = start;
    std::uint64_t before = 0;
    while (!Interrupted() && !terminal.WantsToQuit()) {
      if (const auto delivery = FrameQueue::Instance().Take(std::chrono::milliseconds(20))) {
        Use(*delivery);
      }
      const auto now = Clock::now();
      const double since = std::chrono::duration<double>(now - shown).count();
      status_.seconds = std::chrono::duration<double>(now - start).count();
      const bool end = seconds_ != 0 && status_.seconds >= seconds_;
      if (since >= interval_ || end) {
        status_.rate = static_cast<double>(status_.profiles - before) / since;
        before = status_.profiles;
        shown = now;
        Show(session, terminal, pictures);
      }
      if (end) return;
    }
  }

  // Somebody else may change it while a daemon has the sensor.
  void FollowRegion(const Session& session) {
    if (session.live() == nullptr) return;
    const Region region = session.live()->CurrentRegion();
    if (region == std::exchange(region_, region)) return;
    status_.measuring.geometry = GeometryOf(session.model(), region);
    strips_.emplace(session.model().product().PointBytes(), status_.measuring.geometry,
                    status_.measuring.calibration);
  }

  void Use(const Delivery& delivery) {
    if (delivery.is_image) return;
    strips_->Read(delivery.first, delivery.bytes, [this](const Frame& frame) {
      ++status_.profiles;
      status_.last_id = frame.id;
      status_.encoder = frame.encoder_stamp;
      status_.points = frame.points;
    });
  }

  void Show(Session& session, Terminal& terminal, bool pictures) {
    const Model& model = session.model();
    status_.LookUp(session);
    FollowRegion(session);
    if (pictures) {
      terminal.Show(status_.AsPicture(
          fmt::format("tessaline {}{}", model.code(), session.IsVirtual() ? ", virtual board" : ""),
          terminal.columns(), terminal.rows()));
    } else if (session.json()) {
      session.EmitLine(status_.AsJson());
    } else {
      session.Print("{}\n", status_.AsLine());
    }
  }

  CLI::App* app_ = nullptr;
  double seconds_ = 0;
  double interval_ = 0;
  Acquisition acquisition_;
  MeasuringOptions measuring_;
  std::optional<StripReader> strips_;
  Region region_;  // of a daemon's sensor
  Status status_;
};

}  // namespace

std::unique_ptr<Command> MakeWatchCommand() { return std::make_unique<WatchCommand>(); }

}  // namespace tool
