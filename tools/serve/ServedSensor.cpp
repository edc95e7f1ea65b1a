#include "serve/ServedSensor.h"

#include <algorithm>

#include "Failure.h"
#include "Laser.h"
#include "RecipeText.h"
#include "Registers.h"
#include "Temperature.h"
#include "calibrate/CalibrationFile.h"
#include "tessaline/capture_statistics.h"
#include "tessaline/tessaline.h"

namespace tool::serve {
namespace {

constexpr std::chrono::seconds kSilence{3};  // by the timer, frames come more often
constexpr double kWeight = 0.5;              // of the newest rate

void RunStep(const char* call, bool done) {
  if (!done) {
    throw Failure(ExitCode::kNegative, fmt::format("the device refused {}", call),
                  "the log has the reason");
  }
}

double Rate(std::uint64_t now, std::uint64_t before, double seconds, double old) {
  const double rate = static_cast<double>(now - before) / seconds;
  return old == 0 ? rate : old + kWeight * (rate - old);
}

}  // namespace

Json SettingsJson(const Recipe& recipe) {
  Json json;
  ForEachSetting([&](const Setting& setting, auto member) {
    json[std::string(setting.key)] = ValueOf(recipe.*member);
  });
  return json;
}

ServedSensor::ServedSensor(Session& session, const MeasuringOptions& measuring,
                           std::function<void(bool)> on_laser,
                           std::function<void(const View&)> on_view)
    : session_(session),
      measuring_options_(measuring),
      on_laser_(std::move(on_laser)),
      on_view_(std::move(on_view)),
      device_(session),
      settings_(session.model()) {}

void ServedSensor::Start(const Recipe& recipe) {
  Require(recipe, model());
  device_.Start(Feed::OnImage, Feed::OnStrips);
  settings_.Start(recipe, /*images=*/false);
  RunStep("SetCollectMode(0)", SetCollectMode(0) == 0);
  {
    const std::lock_guard lock(mutex_);
    state_.settings = settings_.All(/*images=*/false);
  }
  UseView();
  ResetCallbackLostNum();
  TriggerLostReset();
  counted_at_ = last_delivery_ = Clock::now();
  SwitchAcquisition(true);
  if (recipe.laser == "on") SwitchLaserOn(off_orders());
  if (recipe.laser != "on") SwitchLaserOff();
  Look();
}

void ServedSensor::Stop() {
  CountLaserTime();
  device_.LaserOff();
  device_.StopAcquisition();
}

void ServedSensor::Change(const Recipe& recipe, unsigned off_orders) {
  settings_.Change(recipe, state().images);
  {
    const std::lock_guard lock(mutex_);
    state_.settings = settings_.All(state_.images);
  }
  UseView();
  if (recipe.laser == "on") SwitchLaserOn(off_orders);
  if (recipe.laser == "off") SwitchLaserOff();
}

void ServedSensor::RequireNoOrderSince(unsigned off_orders) const {
  if (off_orders == off_orders_) return;
  throw Failure(ExitCode::kNegative, "the laser has been switched off in the meantime",
                "switch it on again if nobody objects");
}

void ServedSensor::SwitchLaserOn(unsigned off_orders, std::optional<double> seconds) {
  RequireNoOrderSince(off_orders);
  CountLaserTime();
  on_laser_(true);
  try {
    device_.LaserOn();
    RequireNoOrderSince(off_orders);  // the order's lines may have gone low just before
  } catch (const Failure&) {
    SwitchLaserOff();  // one of its two lines may be on
    throw;
  }
  const auto now = Clock::now();
  laser_since_ = now;
  laser_until_ = kNoEnd;
  if (seconds) {
    const auto time = std::chrono::duration<double>(*seconds);
    laser_until_ =
        (now + std::chrono::duration_cast<Clock::duration>(time)).time_since_epoch().count();
  }
  SetLaser(true);
}

void ServedSensor::SwitchLaserOff() {
  CountLaserTime();
  device_.LaserOff();
  // Also when somebody else has switched it on.
  if (!laser::Off()) {
    throw Failure(ExitCode::kNegative, "the laser cannot be switched off",
                  "\"tessaline check\" tests its lines");
  }
  on_laser_(false);
  laser_since_.reset();
  laser_until_ = kNoEnd;
  SetLaser(false);
}

void ServedSensor::SetLaser(bool on) {
  const std::lock_guard lock(mutex_);
  state_.laser = on;
}

bool ServedSensor::LaserTimeIsOver() {
  Clock::rep until = laser_until_;
  return until != kNoEnd && Clock::now().time_since_epoch().count() >= until &&
         laser_until_.compare_exchange_strong(until, kNoEnd);
}

void ServedSensor::SwitchAcquisition(bool on) {
  if (on) {
    device_.StartAcquisition();
  } else {
    device_.StopAcquisition();
  }
  last_delivery_ = Clock::now();
  const std::lock_guard lock(mutex_);
  state_.acquiring = on;
  state_.failure.reset();
}

void ServedSensor::SwitchMode(bool images) {
  const SensorState now = state();
  if (now.images == images) return;
  SwitchAcquisition(false);
  const unsigned mode = images ? 1 : 0;
  RunStep("SetCollectMode()", SetCollectMode(mode) == 0);
  settings_.SwitchMode(images);
  {
    const std::lock_guard lock(mutex_);
    state_.images = images;
    state_.settings = settings_.All(images);
  }
  UseView();
  if (now.acquiring) SwitchAcquisition(true);
}

void ServedSensor::Trigger() { RunStep("TricontrolSWTrigger()", TricontrolSWTrigger() == 0); }

void ServedSensor::UseView() {
  const SensorState now = state();
  const Region region = now.settings.region.value_or(UsualRegion(model()));
  if (generation_ == 0) {
    view_.measuring = measuring_options_.Choose(session_, region, /*travels=*/false);
  } else {
    view_.measuring.geometry = GeometryOf(model(), region);
  }
  view_.region = region;
  view_.point_bytes = model().product().PointBytes();
  view_.sends_peaks = model().product().points == products::PointLayout::kFull;
  view_.generation = ++generation_;
  on_view_(view_);
  TellRegisters();
  const std::lock_guard lock(mutex_);
  state_.region = region;
  state_.unit = view_.measuring.Unit();
  state_.calibration = view_.measuring.source;
}

Json ServedSensor::Calibration() const {
  if (!view_.measuring.calibration) return nullptr;
  return calibrate::ToJson({*view_.measuring.calibration, std::string(model().code())});
}

void ServedSensor::Introduce(RecordTap& tap) const {
  Json facts{{"model", model().code()}, {"program", "tessaline serve"}, {"pid", getpid()}};
  session_.MarkVirtual(facts);
  tap.Device(facts.dump());
  tap.FpgaVersion(model().product());
  tap.Clock();
  if (!tap.wants_registers()) return;
  const Registers registers(model());
  for (const fpga::Register& reg : registers.All()) {
    tap.Register(registers.AddressOf(reg), registers.Read(reg));
  }
}

void ServedSensor::TellRegisters() const {
  if (Feed::Instance().TapCount() == 0) return;
  const Registers registers(model());
  for (const fpga::Register& reg : registers.All()) {
    const std::uint32_t address = registers.AddressOf(reg);
    const std::uint32_t value = registers.Read(reg);
    Feed::Instance().ForEachTap([=](RecordTap& tap) {
      if (tap.wants_registers()) tap.Register(address, value);
    });
  }
}

void ServedSensor::CountLaserTime() {
  if (!laser_since_) return;
  const auto now = Clock::now();
  const std::lock_guard lock(mutex_);
  state_.laser_seconds += std::chrono::duration<double>(now - *laser_since_).count();
  laser_since_ = now;
}

void ServedSensor::LookAtRates() {
  const auto now = Clock::now();
  const Feed::Counts counts = Feed::Instance().counts();
  const double seconds = std::chrono::duration<double>(now - counted_at_).count();
  const bool any = counts.deliveries != counts_before_.deliveries;
  if (any) last_delivery_ = now;
  const std::lock_guard lock(mutex_);
  const auto update = [&](double& rate, std::uint64_t Feed::Counts::*number) {
    rate = Rate(counts.*number, counts_before_.*number, seconds, rate);
  };
  if (seconds > 0) {
    update(state_.profiles_per_second, &Feed::Counts::strips);
    update(state_.images_per_second, &Feed::Counts::images);
    double bytes = state_.megabytes_per_second * 1e6;
    update(bytes, &Feed::Counts::bytes);
    state_.megabytes_per_second = bytes / 1e6;
  }
  counts_before_ = counts;
  counted_at_ = now;
  const bool timer = state_.settings.trigger == "timer" || state_.settings.trigger == "timer-start";
  if (state_.acquiring && timer && state_.settings.door != "on" &&
      now - last_delivery_ > kSilence) {
    state_.failure = "no frames come, although the timer triggers them";
  } else if (any) {
    state_.failure.reset();
  }
}

void ServedSensor::Look() {
  CountLaserTime();
  LookAtRates();
  tessaline_capture_statistics images{};
  tessaline_capture_statistics strips{};
  TessalineGetCaptureStatistics(TESSALINE_STREAM_IMAGES, &images);
  TessalineGetCaptureStatistics(TESSALINE_STREAM_STRIPS, &strips);
  const std::uint64_t fpga_lost = GetCallbackLostNum();
  const std::uint64_t triggers_lost = GetXtrigLostSta();
  const auto processor = ProcessorTemperature(model().family());
  const std::lock_guard lock(mutex_);
  state_.missing_ids = images.ids_missing + strips.ids_missing;
  state_.malformed = images.malformed + strips.malformed;
  state_.fpga_lost = fpga_lost;
  state_.triggers_lost = triggers_lost;
  state_.processor_temperature = processor;
}

SensorState ServedSensor::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

}  // namespace tool::serve
