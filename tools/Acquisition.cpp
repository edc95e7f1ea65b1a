#include "Acquisition.h"

#include "Command.h"
#include "Gain.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

constexpr std::size_t kRegionNumbers = 4;

unsigned TriggerMode(const std::string& name) {
  return name == "timer" ? 0 : name == "encoder" ? 1 : 2;
}

}  // namespace

void Acquisition::Describe(CLI::App& app) {
  app.add_option("--exposure", exposure_, "Exposure time")
      ->type_name("MICROSECONDS")
      ->check(CLI::Range(1u, 10'000'000u))
      ->capture_default_str();
  app.add_option("--gain", gain_, std::string(kGainHelp) + " (default: that of the start)");
  app.add_option("--power", power_, "Laser power")
      ->type_name("PERCENT")
      ->check(NumberIn(0, 100))
      ->capture_default_str();
  app.add_option("--trigger", trigger_, "timer, encoder or external")
      ->type_name("MODE")
      ->check(CLI::IsMember({"timer", "encoder", "external"}))
      ->capture_default_str();
  app.add_option("--spacing", spacing_,
                 "Trigger spacing: encoder pulses with --trigger encoder (10), microseconds "
                 "otherwise (default: the fastest that suits the whole sensor; images: that a file "
                 "each can follow)")
      ->check(CLI::Range(1u, 85'899'345u));
  app.add_option("--roi", region_, "Region of interest in pixels (default: the whole sensor)")
      ->type_name("X Y WIDTH HEIGHT")
      ->expected(static_cast<int>(kRegionNumbers));
  app.add_option("--laser", laser_, "on or off while frames are taken")
      ->type_name("STATE")
      ->check(CLI::IsMember({"on", "off"}))
      ->capture_default_str();
}

unsigned Acquisition::Spacing(const Model& model, bool images) const {
  constexpr unsigned kPulses = 10;
  constexpr unsigned kPixelsPerMicrosecond = 16;  // that become PNG files, with time to spare
  if (spacing_ != 0) return spacing_;
  if (trigger_ == "encoder") return kPulses;
  const products::ImageSensor& sensor = model.family().sensor;
  return images ? sensor.width * model.product().Height() / kPixelsPerMicrosecond
                : sensor.trigger_spacing;
}

void Acquisition::Require(const Model& model) const {
  tool::Require(RegionOf(model), model);
  if (gain_) RequireGain(*gain_, model);
}

Region Acquisition::RegionOf(const Model& model) const {
  if (region_.size() != kRegionNumbers) return UsualRegion(model);
  return {region_[0], region_[1], region_[2], region_[3]};
}

std::vector<Step> Acquisition::Settings(const Model& model, bool images) const {
  std::vector<Step> steps;
  const auto add = [&steps](std::string call, std::function<bool()> run) {
    steps.push_back({std::move(call), "", std::move(run)});
  };
  if (const Region region = RegionOf(model); region != StartRegion(model)) {
    add(region.AsCall(), [region] { return region.Set(); });
  }
  add("SetExposureNum(1)", [] { return SetExposureNum(1) == 0; });
  add(fmt::format("SetExposureTime(1, {})", exposure_),
      [this] { return SetExposureTime(1, exposure_) == 0; });
  if (gain_) {
    add(fmt::format("SetCmosGain({})", *gain_), [this] { return SetCmosGain(*gain_) == 1; });
  }
  if (laser()) {
    add(fmt::format("SetLaserPower({})", power_),
        [this] { return SetLaserPower(static_cast<float>(power_)) == 0; });
  }
  const auto set = [&add](std::string_view name, auto function, unsigned value) {
    add(fmt::format("{}({})", name, value), [=] { return function(value) == 0; });
  };
  set("SetTriMode", SetTriMode, TriggerMode(trigger_));
  set("SetTriSpacing", SetTriSpacing, Spacing(model, images));
  set("SetCollectMode", SetCollectMode, images ? 1 : 0);
  // Some of these give -1 even when they are done.
  const auto reset = [&add](std::string_view name, auto function) {
    add(fmt::format("{}()", name), [function] {
      function();
      return true;
    });
  };
  reset("ResetFrameID", ResetFrameID);
  reset("ResetCallbackLostNum", ResetCallbackLostNum);
  reset("TriggerLostReset", TriggerLostReset);
  return steps;
}

void Acquisition::Rehearse(const Session& session, const std::string& title, bool images,
                           const std::string& file) const {
  Device device(session);
  std::vector<std::string> calls;
  for (const auto& call : Device::kStart) calls.emplace_back(call.name);
  for (const auto& steps :
       {Settings(session.model(), images), device.Begin(laser()), device.End(laser())}) {
    for (const Step& step : steps) calls.push_back(step.call);
  }
  session.Print("{} would call:\n", title);
  for (const std::string& call : calls) session.Print("  {}\n", call);
  if (!file.empty()) session.Print("and write {}.\n", file);
  session.Print("Nothing was touched (--dry-run).\n");
  Json json{{"dry_run", true}, {"calls", calls}};
  if (!file.empty()) json["file"] = file;
  session.Emit(json);
}

}  // namespace tool
