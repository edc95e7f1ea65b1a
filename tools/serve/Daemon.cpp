#include "serve/Daemon.h"

#include <signal.h>

#include <boost/asio/post.hpp>
#include <thread>

#include "Interrupt.h"
#include "Laser.h"
#include "serve/LogLines.h"
#include "serve/ServiceManager.h"

namespace tool::serve {
namespace {

constexpr std::chrono::milliseconds kLookEvery{500};
constexpr std::chrono::milliseconds kTick{20};
// A call of the library that lasts longer will never return; the laser does not stay on meanwhile.
constexpr std::chrono::seconds kStuck{10};

}  // namespace

Daemon::Daemon(Session& session, const MeasuringOptions& measuring, const Settings& settings)
    : settings_(settings),
      guard_(session.model()),
      pictures_([this](Stream stream, const PictureMaker::Message& message) {
        boost::asio::post(network_, [this, stream, message] { hub_.Publish(stream, message); });
      }),
      sensor_(
          session, measuring, [this](bool on) { guard_.Tell(on); },
          [this](const View& view) { pictures_.SetView(view); }),
      hub_([this](double rate) { pictures_.SetRate(rate); }),
      recordings_(settings.recordings, settings.socket),
      gatekeeper_(settings.token, settings.hosts),
      sensor_calls_([this] { sensor_.Look(); }, kLookEvery),
      recording_calls_([] {}, kLookEvery),
      api_({sensor_, pictures_, hub_, recordings_, gatekeeper_, sensor_calls_, recording_calls_}),
      listener_(settings.place, settings.socket, {network_, api_, hub_, sensor_, sensor_calls_}),
      tick_(network_) {}

void Daemon::Start() {
  LogLines::Instance().Listen();
  sensor_.Start(settings_.recipe);
  // For a command it means that nobody reads its output any more. Here it is one client of many.
  signal(SIGPIPE, SIG_IGN);
  pictures_.Start();
  sensor_calls_.Start();
  recording_calls_.Start();
  listener_.Start();
  service_manager::Ready(listener_.Url());
}

void Daemon::Run() {
  Tick();
  network_.run();
}

// What happens without anybody asking: states for the streams, the watchdog, the end.
void Daemon::Tick() {
  if (Interrupted()) return network_.stop();
  if (hub_.WantsNow(Stream::kState)) {
    Json state{{"type", "state"}};
    state.update(api_.State());
    hub_.Publish(Stream::kState, std::make_shared<const std::string>(
                                     state.dump(-1, ' ', false, Json::error_handler_t::replace)));
  }
  Watch();
  tick_.expires_after(kTick);
  tick_.async_wait([this](boost::system::error_code error) {
    if (!error) Tick();
  });
}

bool Daemon::SensorAnswers() const {
  const auto busy = sensor_calls_.BusyFor();
  return !busy || *busy < kStuck;
}

// Switching the laser off needs no registers, so it works beside a call that hangs.
void Daemon::Watch() {
  if (sensor_.LaserTimeIsOver()) {
    laser::Off();
    SwitchLaserOff();
  }
  if (!SensorAnswers()) {
    if (!laser_forced_off_) {
      sensor_calls_.Clear();  // nothing that waits may switch it on later
      laser_forced_off_ = laser::Off();
      LogLines::Instance().Note(
          laser_forced_off_ ? "the sensor does not answer; the laser is switched off"
                            : "the sensor does not answer; the laser cannot be switched off");
    }
    return;
  }
  if (std::exchange(laser_forced_off_, false)) SwitchLaserOff();
  guard_.Beat();
  if (!guard_.Lives() && !std::exchange(unguarded_, true)) {
    laser::Off();
    LogLines::Instance().Note("the process that guards the laser has gone; the laser stays off");
    SwitchLaserOff();
  }
  const auto period = service_manager::WatchdogPeriod();
  if (!period || Clock::now() < feed_at_) return;
  service_manager::Alive();
  feed_at_ = Clock::now() + *period / 3;
}

// For the books; the lines are low already.
void Daemon::SwitchLaserOff() {
  sensor_calls_.Post(
      [this]() -> Json {
        sensor_.SwitchLaserOff();
        return nullptr;
      },
      [](const Json&, const std::exception_ptr&) {}, /*urgent=*/true);
}

void Daemon::Stop() {
  service_manager::Stopping();
  listener_.Stop();
  laser::Off();
  const bool idle = sensor_calls_.Stop();  // a call may have switched it on just now
  if (laser::Off()) guard_.Tell(false);
  // A recorder may be asking for something, so its answers still go out meanwhile.
  network_.restart();
  std::thread ending = [this] {
    const SignalsBlocked inherited;
    return std::thread([this] {
      recordings_.End();
      network_.stop();
    });
  }();
  network_.run();
  ending.join();
  // Other recorders see the end in their rings, and complete their files.
  Feed::Instance().ForEachTap([](RecordTap& tap) { tap.ring().End(); });
  if (idle) sensor_.Stop();
}

}  // namespace tool::serve
