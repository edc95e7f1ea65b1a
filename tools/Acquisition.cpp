#include "Acquisition.h"

#include <functional>

#include "Command.h"
#include "Failure.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

constexpr std::size_t kRegionNumbers = 4;

unsigned TriggerMode(const std::string& name) {
  return name == "timer" ? 0 : name == "encoder" ? 1 : 2;
}

void Require(bool done, const std::string& call) {
  if (done) return;
  const auto printed = LibraryOutput::Instance().Printed();
  throw Failure(ExitCode::kNegative,
                fmt::format("{} was refused{}", call,
                            printed.empty() ? "" : fmt::format(" (\"{}\")", printed.back())),
                "\"tessaline check\" tests the board");
}

}  // namespace

bool ReadWholeSensor() {
  const unsigned full = GetCmosMaxDrive();
  const unsigned width = full >> 16;
  const unsigned height = full & 0xFFFF;
  // One sensor leaves out an edge by itself; that is not worth a change.
  if (GetImageHeight() >= height * 3 / 4) return true;
  return SetROI1(0, 0, width, height) == 0;
}

void Acquisition::Describe(CLI::App& app) {
  app.add_option("--exposure", exposure_, "Exposure time")
      ->type_name("MICROSECONDS")
      ->check(CLI::Range(1u, 10'000'000u))
      ->capture_default_str();
  app.add_option("--gain", gain_,
                 "Analogue gain, in the sensor's own steps; 0 leaves it unchanged");
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
                 "otherwise (4000, K37.. 8000)")
      ->check(CLI::Range(1u, 85'899'345u));
  app.add_option("--roi", region_, "Region of interest in pixels (default: the whole sensor)")
      ->type_name("X Y WIDTH HEIGHT")
      ->expected(static_cast<int>(kRegionNumbers));
  app.add_option("--laser", laser_, "on or off while frames are taken")
      ->type_name("STATE")
      ->check(CLI::IsMember({"on", "off"}))
      ->capture_default_str();
}

unsigned Acquisition::Spacing(const Model& model) const {
  constexpr unsigned kPulses = 10;
  if (spacing_ != 0) return spacing_;
  return trigger_ == "encoder" ? kPulses : model.family().sensor.trigger_spacing;
}

void Acquisition::Apply(const Model& model, bool images) const {
  if (region_.size() == kRegionNumbers) {
    Require(SetROI1(region_[0], region_[1], region_[2], region_[3]) == 0, "SetROI1()");
  } else {
    Require(ReadWholeSensor(), "SetROI1()");
  }
  Require(SetExposureNum(1) == 0 && SetExposureTime(1, exposure_) == 0, "SetExposureTime()");
  if (gain_ != 0) Require(SetCmosGain(gain_) == 1, "SetCmosGain()");
  if (laser()) Require(SetLaserPower(static_cast<float>(power_)) == 0, "SetLaserPower()");
  Require(SetTriMode(TriggerMode(trigger_)) == 0, "SetTriMode()");
  Require(SetTriSpacing(Spacing(model)) == 0, "SetTriSpacing()");
  Require(SetCollectMode(images ? 1 : 0) == 0, "SetCollectMode()");
  ResetFrameID();
  ResetCallbackLostNum();
  TriggerLostReset();
}

void Acquisition::Rehearse(const Session& session, const std::string& title, bool images,
                           const std::string& file) const {
  const auto calls = Calls(session.model(), images);
  session.Print("{} would call:\n", title);
  for (const std::string& call : calls) session.Print("  {}\n", call);
  if (!file.empty()) session.Print("and write {}.\n", file);
  session.Print("Nothing was touched (--dry-run).\n");
  Json json{{"dry_run", true}, {"calls", calls}};
  if (!file.empty()) json["file"] = file;
  session.Emit(json);
}

std::vector<std::string> Acquisition::Calls(const Model& model, bool images) const {
  std::vector<std::string> calls{"RegisterHardwareInit()", "SetGlobalControl(0)"};
  if (region_.size() == kRegionNumbers) {
    calls.push_back(
        fmt::format("SetROI1({}, {}, {}, {})", region_[0], region_[1], region_[2], region_[3]));
  }
  calls.push_back(fmt::format("SetExposureTime(1, {})", exposure_));
  if (gain_ != 0) calls.push_back(fmt::format("SetCmosGain({})", gain_));
  if (laser()) calls.push_back(fmt::format("SetLaserPower({})", power_));
  calls.push_back(fmt::format("SetTriMode({})", TriggerMode(trigger_)));
  calls.push_back(fmt::format("SetTriSpacing({})", Spacing(model)));
  calls.push_back(fmt::format("SetCollectMode({})", images ? 1 : 0));
  if (laser()) calls.emplace_back("OpenLaser()");
  calls.emplace_back("SetGlobalControl(1)");
  calls.emplace_back("SetGlobalControl(0)");
  if (laser()) calls.emplace_back("CloseLaser()");
  return calls;
}

}  // namespace tool
