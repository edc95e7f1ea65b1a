#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <set>
#include <string>

#include "serve/Api.h"
#include "serve/LaserGuard.h"
#include "serve/Listener.h"

namespace tool::serve {

// The whole of it: one sensor, its threads, and the network. Lives to the end of the process.
class Daemon {
 public:
  struct Settings {
    Place place;
    std::string token;
    std::set<std::string> hosts;
    std::string socket;
    std::string recordings;
    Recipe recipe;
  };
  Daemon(Session& session, const MeasuringOptions& measuring, const Settings& settings);

  // Starts the sensor and listens. Throws a Failure.
  void Start();
  std::string Url() const { return listener_.Url(); }
  // Serves until an interrupt.
  void Run();
  // Laser off, recordings completed.
  void Stop();

 private:
  using Clock = std::chrono::steady_clock;
  void Tick();
  void Watch();
  void SwitchLaserOff();
  bool SensorAnswers() const;

  const Settings settings_;
  boost::asio::io_context network_{1};
  LaserGuard guard_;
  PictureMaker pictures_;
  ServedSensor sensor_;
  StreamHub hub_;
  Recordings recordings_;
  Gatekeeper gatekeeper_;
  CallThread sensor_calls_;
  CallThread recording_calls_;
  Api api_;
  Listener listener_;
  boost::asio::steady_timer tick_;
  Clock::time_point feed_at_;
  bool laser_forced_off_ = false;
  bool unguarded_ = false;
};

}  // namespace tool::serve
