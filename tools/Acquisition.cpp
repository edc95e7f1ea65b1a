#include "Acquisition.h"

#include "Failure.h"
#include "Gain.h"
#include "RecipeFile.h"
#include "SettingOption.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

constexpr std::size_t kRegionNumbers = 4;

}  // namespace

void Acquisition::Describe(CLI::App& app) {
  const Recipe defaults = Defaults();
  app.add_option("--recipe", path_, "File with settings (tessaline recipe); options come first")
      ->type_name("FILE");
  AddSettingOption(app, "--exposure", "Exposure time, or several that take turns (100,800)",
                   setting::kExposure, options_.exposures)
      .delimiter(',')
      ->allow_extra_args(false)
      ->default_str(std::to_string(defaults.exposures->front()));
  AddSettingOption(app, "--gain", std::string(kGainHelp) + " (default: that of the start)",
                   setting::kGain, options_.gain);
  AddSettingOption(app, "--power", "Laser power", setting::kPower, options_.power)
      .default_str(fmt::format("{}", *defaults.power));
  AddSettingOption(app, "--trigger", "timer, encoder, external, or timer-start (also the timer)",
                   setting::kTrigger, options_.trigger)
      .default_str(*defaults.trigger);
  AddSettingOption(
      app, "--spacing",
      "Trigger spacing: encoder pulses with --trigger encoder (10), microseconds "
      "otherwise (default: the fastest that suits the whole sensor; images: that a file "
      "each can follow)",
      setting::kSpacing, options_.spacing);
  AddSettingOption(app, "--delay", "Time from trigger to exposure; 0 switches it off",
                   setting::kDelay, options_.delay);
  AddSettingOption(app, "--input-filter", "Shortest pulse the external input accepts",
                   setting::kFilter, options_.filter);
  AddSettingOption(app, "--door", "on or off: the external input gates the trigger", setting::kDoor,
                   options_.door);
  const auto set_region = [this](const std::vector<unsigned>& numbers) {
    options_.region = {numbers[0], numbers[1], numbers[2], numbers[3]};
  };
  app.add_option_function<std::vector<unsigned>>(
         "--roi", set_region, "Region of interest in pixels (default: the whole sensor)")
      ->type_name(std::string(setting::kRegion.type))
      ->expected(static_cast<int>(kRegionNumbers));
  AddSettingOption(app, "--laser", "on or off while frames are taken", setting::kLaser,
                   options_.laser)
      .default_str(*defaults.laser);
  AddSettingOption(app, "--led", "Colour of the status light", setting::kLed, options_.led);
}

void Acquisition::Settle(const Session& session, const Model* model) {
  Recipe file;
  if (!path_.empty()) file = model == nullptr ? ReadRecipe(path_) : ReadRecipe(path_, *model);
  recipe_ = Over(options_, file);
  if (file.spacing && !recipe_.spacing) {
    session.Note("the spacing in {} does not count: it is in {}, that of --trigger {} in {}", path_,
                 UnitOf(setting::kSpacing, file), *recipe_.trigger,
                 UnitOf(setting::kSpacing, recipe_));
  }
  if (model == nullptr) {
    RequireItself(recipe_);
  } else {
    Require(recipe_, *model);
  }
}

bool Acquisition::AskedFor() const {
  bool any = !path_.empty();
  ForEachSetting([&](const Setting&, auto member) { any |= (options_.*member).has_value(); });
  return any;
}

Region Acquisition::RegionOf(const Session& session) const {
  if (recipe_.region) return *recipe_.region;
  return session.live() == nullptr ? UsualRegion(session.model()) : session.live()->CurrentRegion();
}

void Acquisition::SetUp(const Session& session, bool images) const {
  if (const auto* const sensor = session.live()) {
    sensor->RequireFrames(images);
    if (AskedFor()) sensor->Change(recipe_);
    if (!images && !sensor->Get("/api/v1/state").value("laser", false)) {
      session.Note("the laser is off: \"tessaline laser on\" switches it on");
    }
  } else {
    Run(Settings(session.model(), images));
  }
}

std::vector<Step> Acquisition::Settings(const Model& model, bool images) const {
  std::vector<Step> steps = StepsAfterStart(recipe_, model, images);
  for (Step& step : Collect(images)) steps.push_back(std::move(step));
  return steps;
}

std::vector<Step> Acquisition::Collect(bool images) {
  std::vector<Step> steps;
  const unsigned mode = images ? 1 : 0;
  steps.push_back(
      {fmt::format("SetCollectMode({})", mode), "", [mode] { return SetCollectMode(mode) == 0; }});
  // Some of these give -1 even when they are done.
  const auto reset = [&steps](std::string_view name, auto function) {
    steps.push_back({fmt::format("{}()", name), "", [function] {
                       function();
                       return true;
                     }});
  };
  reset("ResetFrameID", ResetFrameID);
  reset("ResetCallbackLostNum", ResetCallbackLostNum);
  reset("TriggerLostReset", TriggerLostReset);
  return steps;
}

void Acquisition::Rehearse(const Session& session, const std::string& title, bool images,
                           const std::vector<std::string>& before, const std::string& file) const {
  Device device(session);
  std::vector<std::string> calls = before;
  const auto add = [&calls](const std::vector<Step>& steps) {
    for (const Step& step : steps) calls.push_back(step.call);
  };
  if (session.live() != nullptr) {
    add(StepsOf(recipe_, session.model()));
  } else {
    for (const auto& call : Device::kStart) calls.emplace_back(call.name);
    add(Settings(session.model(), images));
    add(device.Begin(laser()));
    add(device.End(laser()));
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
