#include "check/ActiveChecks.h"

#include <array>

#include "Failure.h"
#include "Gpio.h"
#include "capture/FrameQueue.h"
#include "check/PassiveChecks.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

struct CheckStep {
  const char* id;
  const char* title;
};

constexpr CheckStep kStart{"start", "device starts"};
constexpr CheckStep kSensor{"sensor", "image sensor identifies itself"};
constexpr CheckStep kLaserLines{"gpio.laser", "laser lines can be driven"};
constexpr CheckStep kLight{"gpio.light", "status light can be driven"};
constexpr CheckStep kPower{"laser.power", "laser power chip answers"};
constexpr CheckStep kDa{"da", "DA converter answers"};
constexpr std::array kAfterStart{kSensor, kLaserLines, kLight, kPower, kDa};

constexpr std::array kFrameSteps{CheckStep{"images.arrive", "images arrive"},
                                 CheckStep{"images.whole", "images are whole"},
                                 CheckStep{"images.ids", "image ids continuous"},
                                 CheckStep{"strips.arrive", "strips arrive"},
                                 CheckStep{"strips.whole", "strips are whole"},
                                 CheckStep{"strips.ids", "strip ids continuous"},
                                 CheckStep{"strips.loss", "no loss at rate"},
                                 CheckStep{"laser.line", "laser line is seen"}};

// What the driver printed if it could not reach its chip.
bool SensorComplained(std::string& text) {
  for (const std::string& line : LibraryOutput::Instance().Printed()) {
    for (const char* sign : {"init error", "Abnormal communication", "Fail", "fail"}) {
      if (line.find(sign) == std::string::npos) continue;
      text = line;
      return true;
    }
  }
  return false;
}

bool LightFollows(const GpioLines& lines, unsigned colour) {
  if (LedControl(colour) != 0) return false;
  const auto is = [](unsigned line, bool level) { return GpioLevel(line) == level; };
  return is(lines.red, (colour & 1) != 0) && is(lines.green, (colour & 2) != 0) &&
         is(lines.blue, (colour & 4) != 0);
}

}  // namespace

bool CheckStart(Device& device, Findings& findings) {
  try {
    device.Launch(FrameQueue::OnImage, FrameQueue::OnStrips);
  } catch (const Failure& failure) {
    std::string last;
    const auto printed = LibraryOutput::Instance().Printed();
    if (!printed.empty()) last = fmt::format("; the library says: \"{}\"", printed.back());
    findings.Fail(kStart.id, kStart.title, failure.what() + last,
                  "the image sensor does not become ready: check its supply, clock, reset and bus");
    SkipActiveChecks("the device did not start", findings);
    return false;
  }
  findings.Pass(kStart.id, kStart.title, "FPGA and image sensor are set up");
  return true;
}

void CheckSensor(const Model& model, Findings& findings) {
  const Family& family = model.family();
  const std::string advice = fmt::format(
      "check the sensor's supply, its reset and its bus {}; is it the {} of this model?",
      family.board.sensor_bus.path, family.sensor.name);
  std::string complaint;
  const bool thermometer = !family.sensor.has_thermometer || GetSensorTemp() == 0;
  if (SensorComplained(complaint)) {
    findings.Fail(kSensor.id, kSensor.title, fmt::format("\"{}\"", complaint), advice);
  } else if (!thermometer) {
    findings.Fail(kSensor.id, kSensor.title, "its thermometer reads 0: nothing is on the bus",
                  advice);
  } else {
    findings.Pass(kSensor.id, kSensor.title, std::string(family.sensor.name));
  }
}

void CheckLines(const Model& model, Findings& findings) {
  const GpioLines& lines = model.family().board.gpio;
  const std::string advice =
      "who may write to /sys/class/gpio? Does another program hold the lines (cat "
      "/sys/kernel/debug/gpio)?";
  if (CloseLaser() == 0 && GpioLevel(lines.laser1) == false && GpioLevel(lines.laser2) == false) {
    findings.Pass(kLaserLines.id, kLaserLines.title,
                  fmt::format("lines {} and {}, both off", lines.laser1, lines.laser2));
  } else {
    findings.Fail(kLaserLines.id, kLaserLines.title,
                  fmt::format("lines {} and {} cannot be exported or do not follow", lines.laser1,
                              lines.laser2),
                  advice);
  }
  constexpr unsigned kWhite = 7;
  const bool follows = LightFollows(lines, kWhite) && LightFollows(lines, 0);
  if (follows) {
    findings.Pass(kLight.id, kLight.title,
                  fmt::format("lines {}, {} and {}", lines.red, lines.green, lines.blue));
  } else {
    findings.Fail(kLight.id, kLight.title,
                  fmt::format("lines {}, {} and {} cannot be exported or do not follow", lines.red,
                              lines.green, lines.blue),
                  advice);
  }
}

void CheckLaserBus(const Model& model, Findings& findings) {
  const Family& family = model.family();
  const std::string bus(family.board.laser_bus.path);
  const bool opens = !findings.Failed(NodeId(bus));
  const auto tell = [&](const CheckStep& step, bool answers, std::string_view chip) {
    if (!opens) {
      findings.Skip(step.id, step.title, fmt::format("{} cannot be opened", bus));
    } else if (answers) {
      findings.Pass(step.id, step.title,
                    fmt::format("{} on {}", chip, family.board.laser_bus.path));
    } else {
      findings.Fail(step.id, step.title,
                    fmt::format("{} does not answer on {}", chip, family.board.laser_bus.path),
                    fmt::format("look with \"i2cdetect -y {}\"; is the laser board connected?",
                                family.board.laser_bus.path.back()));
    }
  };
  tell(kPower, opens && SetLaserPower(0) == 0, family.laser_power_chip);
  tell(kDa, opens && DAWrite(0) == 0, "DA converter");
}

void SkipActiveChecks(const std::string& why, Findings& findings) {
  for (const CheckStep& step : kAfterStart) findings.Skip(step.id, step.title, why);
  for (const CheckStep& step : kFrameSteps) findings.Skip(step.id, step.title, why);
}

}  // namespace tool
