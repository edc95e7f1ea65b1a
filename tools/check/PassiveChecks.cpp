#include "check/PassiveChecks.h"

#include <cstring>

#include "Interrupt.h"
#include "LibraryOutput.h"
#include "Nodes.h"
#include "Registers.h"
#include "Temperature.h"
#include "tessaline/eeprom.h"

namespace tool {
namespace {

constexpr double kColdest = -20;
constexpr double kHottest = 95;
constexpr const char* kEepromBus = "/dev/i2c-0";

void CheckSeries(const Model& model, std::uint32_t version, Findings& findings) {
  const unsigned series = fpga::kField.fpga_series.Of(version);
  const std::string title = "FPGA is of the model's series";
  if (series == model.family().series) {
    findings.Pass("fpga.series", title, fmt::format("series {}", series));
  } else {
    findings.Fail("fpga.series", title,
                  fmt::format("series {}, but {} is of series {}", series, model.code(),
                              model.family().series),
                  "load the bitstream of this product, or give the right --model");
  }
}

// Reads the free-running counter twice.
void CheckClock(const Registers& registers, Findings& findings) {
  constexpr std::chrono::milliseconds kBetween{20};
  const auto count = [&] { return registers.Read(fpga::kReg.TIMER_COUNTER_L); };
  const std::uint32_t before = count();
  PauseFor(kBetween);
  const std::uint32_t ticks = count() - before;
  const std::string title = "FPGA clock runs";
  if (ticks > 0) {
    findings.Pass("fpga.clock", title, fmt::format("{} ticks in 20 ms", ticks));
  } else {
    findings.Fail("fpga.clock", title, "TIMER_COUNTER stands still",
                  "the FPGA is loaded but not clocked: check the boot loader's clock set-up");
  }
}

void CheckHalf(unsigned char address, const char* id, const char* title, Findings& findings) {
  if (findings.Failed(NodeId(kEepromBus))) {
    findings.Skip(id, title, fmt::format("{} cannot be opened", kEepromBus));
    return;
  }
  unsigned char bytes[16];
  const ErrorStreamCaptured captured;
  if (eeprom_page_read(0, bytes, sizeof bytes, address) == static_cast<int>(sizeof bytes)) {
    findings.Pass(id, title, fmt::format("answers at 0x{:02x}", address));
  } else {
    findings.Fail(
        id, title, fmt::format("no answer at 0x{:02x} of /dev/i2c-0", address),
        "look with \"i2cdetect -y 0\"; if nothing answers, check the bus's pull-ups and supply");
  }
}

}  // namespace

std::string NodeId(const std::string& path) { return "node." + path.substr(path.rfind('/') + 1); }

void CheckNodes(const Model& model, Findings& findings) {
  for (const Node& node : NodesOf(model.family())) {
    const std::string title = fmt::format(
        "{} opens",
        node.path.size() < 28 ? node.path : "..." + node.path.substr(node.path.rfind('/')));
    if (const int error = TryToOpen(node); error == 0) {
      findings.Pass(NodeId(node.path), title, node.purpose);
    } else {
      findings.Fail(NodeId(node.path), title, fmt::format("{}: {}", node.purpose, strerror(error)),
                    AdviceFor(node, error));
    }
  }
  findings.NotApplicable("node.watchdog", "/dev/watchdog opens", "opening it would arm it");
}

void CheckFpga(const Model& model, Findings& findings) {
  const Registers registers(model);
  const std::uint32_t version = registers.Read(fpga::kReg.FPGA_VERSION);
  const std::string title = "FPGA answers";
  if (version == 0 || version == 0xFFFFFFFF) {
    findings.Fail("fpga.answers", title, fmt::format("FPGA_VERSION reads 0x{:08x}", version),
                  "the FPGA is not loaded: see what the boot loader says about the bitstream");
    findings.Skip("fpga.series", "FPGA is of the model's series", "the FPGA does not answer");
    findings.Skip("fpga.clock", "FPGA clock runs", "the FPGA does not answer");
    return;
  }
  const unsigned number = fpga::kField.fpga_version.Of(version);
  findings.Pass("fpga.answers", title, fmt::format("version {}.{}", number >> 8, number & 0xFF));
  CheckSeries(model, version, findings);
  CheckClock(registers, findings);
}

void CheckEeprom(Findings& findings) {
  CheckHalf(0x50, "eeprom.low", "EEPROM, lower half", findings);
  CheckHalf(0x51, "eeprom.high", "EEPROM, upper half", findings);
}

void CheckTemperature(const Model& model, Findings& findings) {
  const std::string title = "processor temperature is plausible";
  const auto degrees = ProcessorTemperature(model.family());
  if (!degrees) {
    findings.Fail("temperature", title, "cannot be read",
                  "load the system monitor's driver (xilinx-xadc, ams)");
  } else if (*degrees < kColdest || *degrees > kHottest) {
    findings.Fail("temperature", title, fmt::format("{:.1f} degrees C", *degrees),
                  "switch off and check cooling and heat sink; a value far off means the wrong "
                  "driver or --model");
  } else {
    findings.Pass("temperature", title, fmt::format("{:.1f} degrees C", *degrees));
  }
}

}  // namespace tool
