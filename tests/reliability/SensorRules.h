#pragma once

#include "Rule.h"
#include "RuleTexts.h"

namespace reliability {

// Sensors on SPI.

constexpr Rule SpiSetting(std::string_view operation, std::string_view text) {
  return {"", "spi", operation, "", false, Effect::kTold, {text}, kSame, ""};
}

// A transfer of the K40's sensor: "write 42" sets a register, "write 60" selects a page,
// "write 81" and "write 82" take registers and region over, "tx 02" reads a register.
constexpr Rule E2vSent(std::string_view during, std::string_view access, std::string_view own,
                       std::string_view result) {
  return {"K40",  "spi", "write", during, false, Effect::kTold, {"SpiDev::DoWrite error\n", own},
          result, "",    access};
}
constexpr Rule E2vAsked(std::string_view during, std::string_view access, std::string_view own,
                        std::string_view result) {
  return {"K40",
          "spi",
          "SPI_IOC_MESSAGE",
          during,
          false,
          Effect::kTold,
          {"SpiDev::DoMsg error\n", own},
          result,
          "",
          access};
}

inline constexpr std::string_view kDriveModeCalls = "SetDriveMode(0)|SetDriveMode(17)";
inline constexpr std::string_view kReverseCalls = "SetReverseMode(0)|SetReverseMode(1)";
inline constexpr std::string_view kSensingCalls = "SetSensingMode(0)|SetSensingMode(1)";

inline constexpr std::array kSensorRules{
    Rule{"",
         "spi",
         "SPI_IOC_MESSAGE",
         "GetSensorTemp",
         true,
         Effect::kUnchecked,
         {},
         "",
         "the driver transfers all or nothing; any positive number of bytes is taken for all"},
    Rule{"",
         "spi",
         "SPI_IOC_MESSAGE",
         "",
         true,
         Effect::kUnchecked,
         {},
         kSame,
         "the driver transfers all or nothing; any positive number of bytes is taken for all"},
    // The temperature is what was read; 0 is the failure.
    Rule{"K38|K39", "spi", "", "GetSensorTemp", false, Effect::kTold, {"SpiDev::"}, "0|-1", ""},

    // K40: the status, asked for again until it is right
    E2vAsked("", "tx 02 00 00",
             "E2vFlash4k::RegisterInitialize PllEnable Read 0x0000 failed!\n|"
             "E2vFlash4k::RegisterInitialize PllSlcConfiguration Read 0x0000 failed!\n"
             "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n|"
             "E2vFlash4k::RegisterInitialize StatusReadout Read 0x0000 failed!\n"
             "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n|"
             "E2vFlash4k::UpdateRegisters Read 0x0000 failed!\n|"
             "E2vFlash4k::UpdateROI Read 0x0000 failed!\n",
             kSame),

    // K40: settings
    E2vSent("SetROI1", "write 42", "E2vFlash4k::SetROIImpl Write 0x{register} failed!\n", "-1"),
    E2vSent("SetROI1", "write 81",
            "E2vSpiInterface::UpdateRegisters() error!\n"
            "E2vFlash4k::RegisterInitialize UpdateRegisters failed!\n",
            "-1"),
    E2vSent("SetROI1", "write 82",
            "E2vSpiInterface::UpdateROI() error!\n"
            "E2vFlash4k::RegisterInitialize UpdateROI failed!\n",
            "-1"),
    E2vSent(kDriveModeCalls, "write 42",
            "E2vFlash4k::SetReadoutDriveModeImpl Write 0x{register} failed!\n|"
            "E2vFlash4k::SetROIImpl Write 0x{register} failed!\n"
            "E2vFlash4k::SetReadoutDriveModeImpl SetROI failed!\n",
            "-1"),
    E2vSent(kDriveModeCalls, "write 81",
            "E2vSpiInterface::UpdateRegisters() error!\n"
            "E2vFlash4k::RegisterInitialize UpdateRegisters failed!\n"
            "E2vFlash4k::SetReadoutDriveModeImpl SetROI failed!\n",
            "-1"),
    E2vSent(kDriveModeCalls, "write 82",
            "E2vSpiInterface::UpdateROI() error!\n"
            "E2vFlash4k::RegisterInitialize UpdateROI failed!\n"
            "E2vFlash4k::SetReadoutDriveModeImpl SetROI failed!\n",
            "-1"),
    E2vAsked(kDriveModeCalls, "tx 02",
             "E2vFlash4k::SetReadoutDriveModeImpl Write 0x0031 failed!\n|"
             "E2vFlash4k::SetReadoutDriveModeImpl Write 0x0023 failed!\n",
             "-1"),
    E2vSent(kReverseCalls, "write 42",
            "E2vFlash4k::SetReadoutDriveDirectionImpl Write 0x0023 failed!\n", "-1"),
    // A direction that cannot be read is left as it is.
    E2vAsked(kReverseCalls, "tx 02 00 23", "", kSame),
    E2vSent("SetCmosGain", "write 42", "E2vFlash4k::BatchWriteRegister Write {number} failed!\n",
            "0"),
    E2vSent("SetCmosGain", "write 60",
            "E2vFlash4k::BatchReadRegister Wpage {page} failed!\n|"
            "E2vFlash4k::BatchWriteRegister Wpage {page} failed!\n",
            "0"),
    E2vAsked("SetCmosGain", "tx 02", "E2vFlash4k::BatchReadRegister Read {number} failed!\n", "0"),
    E2vSent("SetHDRParam", "write 42", "E2vFlash4k::BatchWriteRegister Write {number} failed!\n",
            kSame),
    E2vSent("SetHDRParam", "write 60", "E2vFlash4k::BatchWriteRegister Wpage {page} failed!\n",
            kSame),
    E2vSent("SetExposureTime(sensing)", "write 42 00 97",
            "E2vFlash4k::RegisterInitialize Write 0x0097 failed!\n", kSame),

    // K40: start-up, of which a change of the sensing mode repeats a part
    E2vAsked(kStartUp, "tx 02 00 01|tx 02 00 02",
             "E2vFlash4k::RegisterInitialize Read 0x0001 failed!\n"
             "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n|"
             "E2vFlash4k::RegisterInitialize Read 0x0002 failed!\n"
             "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n",
             kSame),
    E2vAsked(kSensingCalls, "tx 02 00 31",
             "E2vFlash4k::SetReadoutDriveModeImpl Write 0x0031 failed!\n|"
             "E2vFlash4k::BatchReadRegister Read {number} failed!\n"
             "E2vFlash4k::FinalConfiguration() failed! \n",
             kSame),
    // The direction's read is not told, the readout mode's of the same register is.
    E2vAsked(kSensingCalls, "tx 02 00 23", "", kSame),
    // What lists that nobody has supplied write back.
    E2vAsked("", "tx 02", "E2vFlash4k::BatchReadRegister Read {number} failed!\n", kSame),
    E2vSent(kStartUp, "write bb",
            "E2vFlash4k::RegisterInitialize ConfigSlice failed!\n"
            "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n",
            kSame),
    E2vSent("", "write 60",
            "E2vFlash4k::RegisterInitialize Wpage {page} failed!\n|"
            "E2vFlash4k::BatchReadRegister Wpage {page} failed!\n|"
            "E2vFlash4k::BatchWriteRegister Wpage {page} failed!\n",
            kSame),
    E2vSent("", "write 81", "E2vSpiInterface::UpdateRegisters() error!\n", kSame),
    E2vSent("", "write 82", "E2vSpiInterface::UpdateROI() error!\n", kSame),
    E2vSent(kStartUp,
            "write 42 00 0f|write 42 00 03|write 42 00 05|write 42 00 04|write 42 00 0e|"
            "write 42 00 10|write 42 00 08|write 42 00 09|write 42 00 61|write 42 01 4d|"
            "write 42 00 63|write 42 00 65|write 42 00 11|write 42 00 12|write 42 00 13|"
            "write 42 00 14",
            "E2vFlash4k::RegisterInitialize Write 0x{register} failed!\n"
            "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n",
            kSame),
    E2vSent("", "write 42 01 22|write 42 01 23|write 42 01 27|write 42 01 28",
            "E2vFlash4k::RegisterInitialize Write 0x{register} failed!\n"
            "E2vFlash4k::LvdsTraining() failed! \n|"
            "E2vFlash4k::BatchWriteRegister Write {number} failed!\n"
            "E2vFlash4k::FinalConfiguration() failed! \n",
            kSame),
    E2vSent("", "write 42 01 2f", "E2vFlash4k::FinalConfiguration() failed! \n", kSame),
    E2vSent("", "write 42",
            "E2vFlash4k::RegisterInitialize Write 0x{register} failed!\n|"
            "E2vFlash4k::BatchWriteRegister Write {number} failed!\n|"
            "E2vFlash4k::SetROIImpl Write 0x{register} failed!\n|"
            "E2vFlash4k::SetReadoutDriveModeImpl Write 0x{register} failed!\n|"
            "E2vFlash4k::SetReadoutDriveDirectionImpl Write 0x{register} failed!\n",
            kSame),

    // Every sensor
    Rule{"",
         "spi",
         "open",
         "",
         false,
         Effect::kTold,
         {"SpiDev::Open error! spidev_name:/dev/spidev0.0\n|"
          "SpiDev::Open error! spidev_name:/dev/spidev1.0\n"},
         kSame,
         ""},
    SpiSetting("SPI_IOC_WR_MODE", "SpiDev::SetOpt wr_mode\n"),
    SpiSetting("SPI_IOC_RD_MODE", "SpiDev::SetOpt rd_mode\n"),
    SpiSetting("SPI_IOC_WR_LSB_FIRST", "SpiDev::SetOpt wr_lsb_fist\n"),
    SpiSetting("SPI_IOC_RD_LSB_FIRST", "SpiDev::SetOpt rd_lsb_fist\n"),
    SpiSetting("SPI_IOC_WR_BITS_PER_WORD", "SpiDev::SetOpt wr bits_per_word\n"),
    SpiSetting("SPI_IOC_RD_BITS_PER_WORD", "SpiDev::SetOpt rd bits_per_word\n"),
    SpiSetting("SPI_IOC_WR_MAX_SPEED_HZ", "SpiDev::SetOpt wr max_speed_hz\n"),
    SpiSetting("SPI_IOC_RD_MAX_SPEED_HZ", "SpiDev::SetOpt rd max_speed_hz\n"),
    Rule{"",
         "spi",
         "SPI_IOC_MESSAGE",
         "",
         false,
         Effect::kTold,
         {"SpiDev::DoMsg error\n"},
         kSame,
         ""},
    Rule{"", "spi", "write", "", false, Effect::kTold, {"SpiDev::DoWrite error\n"}, kSame, ""},
};

}  // namespace reliability
