#pragma once

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "Devices/sensor/SensorTest.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4k.h"

namespace VeltranoSDK {

// Updates of registers and region, and the status reads that they need.
inline const Lines kUpdates{"update registers", "0000 ?", "0000 ?", "0000 ?",
                            "update ROI",       "0000 ?", "0000 ?", "0000 ?"};

// A list that has not been supplied yet. It writes a register of its page back unchanged.
inline Lines PlaceholderOn(unsigned page) {
  const std::string select = "page " + std::to_string(page);
  return {select, "005F ?", "page 0", select, "005F = 0000", "page 0"};
}
inline const Lines kPlaceholderList = PlaceholderOn(0);

struct E2vBus {
  static std::string AccessOf(const std::string& event) {
    if (!event.starts_with("spi0.0 ")) return {};
    const std::string what = event.substr(7);
    if (what.find("failed") != what.npos) return "failed";
    unsigned bytes[6]{};
    const char* const format = what.starts_with("tx") ? "tx %x %x %x" : "write %x %x %x %x %x";
    sscanf(what.c_str(), format, &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4]);
    char text[32]{};
    const unsigned address = bytes[1] << 8 | bytes[2];
    switch (bytes[0]) {
      case 0x02:
        snprintf(text, sizeof text, "%04X ?", address);
        break;
      case 0x42:
        snprintf(text, sizeof text, "%04X = %04X", address, bytes[3] << 8 | bytes[4]);
        break;
      case 0x60:
        snprintf(text, sizeof text, "page %u", bytes[1]);
        break;
      case 0x81:
        return "update registers";
      case 0x82:
        return "update ROI";
      case 0xBB:
        snprintf(text, sizeof text, "slices %u %u %u %u", bytes[1], bytes[2], bytes[3], bytes[4]);
        break;
      default:
        return what;
    }
    return text;
  }

  static bool IsItsOwnPause(const std::string&) { return false; }
};

// A K4010 board, and its sensor's programming in its authors' terms: "0021 = 017F" for a register,
// "0023 ?" for a read, "page 3", "slices 6 3 2 1", "update registers", "update ROI", "failed" for
// an access that failed, "EXP_DELAY = 0x00000005" for a write to the FPGA, "sleep 1000".
class E2vSensorTest : public SensorTest<E2vBus> {
 protected:
  E2vSensorTest() : SensorTest("K4010", kSeries25) {}

  static constexpr char kBus[] = "spi0.0";

  static E2vFlash4k& sensor() { return dynamic_cast<E2vFlash4k&>(*devices().cmos_sensor_); }

  // Lets the sensor time the exposure, and discards the transcript of the way there.
  void EnterSensing() {
    Printed([&] { ASSERT_TRUE(sensor().SetSensingMode(E2vFlash4k::kSensingSensor)); });
    tessaline_board_transcript_clear();
  }

  // Lets `skip` writes, or reads, succeed; then `count` fail, or all of the rest.
  static void FailWrite(unsigned skip, unsigned count = 1) {
    tessaline_board_clear_faults();
    tessaline_board_fault(kBus, "write", skip, count, EIO);
  }
  static void FailRead(unsigned skip, unsigned count = 1) {
    tessaline_board_clear_faults();
    tessaline_board_fault(kBus, "SPI_IOC_MESSAGE", skip, count, EIO);
  }

  // The text that a call prints, without that of the bus wrapper and the polls.
  template <typename Call>
  std::string Told(Call call) {
    std::istringstream lines(Printed(call));
    std::string told;
    for (std::string line; std::getline(lines, line);) {
      const bool poll = line.starts_with("- warnning: ") || line.ends_with(" value pass!! ") ||
                        line.find(" e2v_spi_.Read(0x0000) = ") != line.npos;
      if (!poll && !line.starts_with("SpiDev::")) told += line + '\n';
    }
    return told;
  }
};

}  // namespace VeltranoSDK
