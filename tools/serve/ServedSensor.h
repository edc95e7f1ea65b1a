#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "Device.h"
#include "Measuring.h"
#include "Recipe.h"
#include "SettingsInForce.h"
#include "serve/Feed.h"
#include "serve/SensorState.h"
#include "serve/View.h"

namespace tool::serve {

// The sensor that the daemon owns. All but state() and its friends is called on one thread (see
// CallThread); these may be called on any.
class ServedSensor {
 public:
  // `on_laser` is told before the laser goes on, and after it went off; it may throw a Failure.
  // `on_view` learns how frames are to be read, at each change; on the calling thread.
  ServedSensor(Session& session, const MeasuringOptions& measuring,
               std::function<void(bool)> on_laser, std::function<void(const View&)> on_view);

  // Sets the sensor up and starts the acquisition. Throws Failure if it does not start.
  void Start(const Recipe& recipe);
  // Laser off, acquisition stopped.
  void Stop();

  // Makes these settings; the others stay. Throws a Failure with the limits before anything is
  // touched, or, when the device refuses one, after the settings from before have been made again.
  // `off_orders`: as for SwitchLaserOn().
  void Change(const Recipe& recipe, unsigned off_orders);
  // With `seconds` LaserTimeIsOver() tells the end of its time. `off_orders` were counted when
  // somebody asked for it: throws a Failure if the laser has been ordered off since then.
  void SwitchLaserOn(unsigned off_orders, std::optional<double> seconds = std::nullopt);
  void SwitchLaserOff();
  void SwitchAcquisition(bool on);
  void SwitchMode(bool images);
  void Trigger();
  // Reads counters and temperatures.
  void Look();

  // On any thread: how often the laser was ordered off, one more order, and, once, that the time is
  // over for which it was switched on.
  unsigned off_orders() const { return off_orders_; }
  void CountOffOrder() { ++off_orders_; }
  bool LaserTimeIsOver();

  SensorState state() const;
  const Model& model() const { return session_.model(); }
  const Session& session() const { return session_; }
  // The calibration in use, as a file of "tessaline calibrate"; null without one.
  Json Calibration() const;

  // Says what the device is, and what is in its registers, to a process that takes all frames.
  void Introduce(RecordTap& tap) const;

 private:
  using Clock = std::chrono::steady_clock;
  void UseView();
  void TellRegisters() const;
  void RequireNoOrderSince(unsigned off_orders) const;
  void SetLaser(bool on);
  void CountLaserTime();
  void LookAtRates();

  Session& session_;
  const MeasuringOptions& measuring_options_;
  std::function<void(bool)> on_laser_;
  std::function<void(const View&)> on_view_;
  Device device_;
  SettingsInForce settings_;
  View view_;
  std::uint32_t generation_ = 0;
  std::optional<Clock::time_point> laser_since_;
  static constexpr Clock::rep kNoEnd = 0;
  std::atomic<Clock::rep> laser_until_{kNoEnd};
  std::atomic<unsigned> off_orders_{0};
  Feed::Counts counts_before_;
  Clock::time_point counted_at_;
  Clock::time_point last_delivery_;

  mutable std::mutex mutex_;
  SensorState state_;
};

}  // namespace tool::serve
