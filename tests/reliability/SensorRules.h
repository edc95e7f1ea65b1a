#pragma once

#include "Rule.h"
#include "RuleTexts.h"

namespace reliability {

// Sensors on SPI.

constexpr Rule SpiSetting(std::string_view operation, std::string_view text) {
  return On("spi", operation).Tells(text).Returns(kSame);
}

// A transfer of the K40's sensor: "write 42" sets a register, "write 60" selects a page, "write 81"
// and "write 82" apply registers and region, "tx 02" reads a register.
constexpr Rule E2vSent(std::string_view access, std::string_view text) {
  return On("spi", "write").Of("K40").For(access).Tells("SpiDev::DoWrite error\n", text);
}
constexpr Rule E2vAsked(std::string_view access, std::string_view text = {}) {
  return On("spi", "SPI_IOC_MESSAGE").Of("K40").For(access).Tells("SpiDev::DoMsg error\n", text);
}

inline constexpr std::string_view kDriveModeCalls = "SetDriveMode(0)|SetDriveMode(17)";
inline constexpr std::string_view kReverseCalls = "SetReverseMode(0)|SetReverseMode(1)";
inline constexpr std::string_view kSensingCalls = "SetSensingMode(0)|SetSensingMode(1)";

inline constexpr std::array kSensorRules{
    On("spi", "SPI_IOC_MESSAGE")
        .During("GetSensorTemp")
        .CutShort()
        .IsNotLookedAt()
        .Because(
            "the driver transfers all or nothing; any positive number of bytes is taken for all"),
    On("spi", "SPI_IOC_MESSAGE")
        .CutShort()
        .IsNotLookedAt()
        .Returns(kSame)
        .Because(
            "the driver transfers all or nothing; any positive number of bytes is taken for all"),
    // The result is the temperature that was read; 0 is the failure.
    On("spi").Of("K38|K39").During("GetSensorTemp").Tells("SpiDev::").Returns("0|-1"),

    // K40: the status, polled until it is right
    E2vAsked("tx 02 00 00",
             "E2vFlash4k::RegisterInitialize PllEnable Read 0x0000 failed!\n|"
             "E2vFlash4k::RegisterInitialize PllSlcConfiguration Read 0x0000 failed!\n"
             "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n|"
             "E2vFlash4k::RegisterInitialize StatusReadout Read 0x0000 failed!\n"
             "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n|"
             "E2vFlash4k::UpdateRegisters Read 0x0000 failed!\n|"
             "E2vFlash4k::UpdateROI Read 0x0000 failed!\n")
        .Returns(kSame),

    // K40: settings
    E2vSent("write 42", "E2vFlash4k::SetROIImpl Write 0x{register} failed!\n")
        .During("SetROI1")
        .Returns("-1"),
    E2vSent("write 81",
            "E2vSpiInterface::UpdateRegisters() error!\n"
            "E2vFlash4k::RegisterInitialize UpdateRegisters failed!\n")
        .During("SetROI1")
        .Returns("-1"),
    E2vSent("write 82",
            "E2vSpiInterface::UpdateROI() error!\n"
            "E2vFlash4k::RegisterInitialize UpdateROI failed!\n")
        .During("SetROI1")
        .Returns("-1"),
    E2vSent("write 42",
            "E2vFlash4k::SetReadoutDriveModeImpl Write 0x{register} failed!\n|"
            "E2vFlash4k::SetROIImpl Write 0x{register} failed!\n"
            "E2vFlash4k::SetReadoutDriveModeImpl SetROI failed!\n")
        .During(kDriveModeCalls)
        .Returns("-1"),
    E2vSent("write 81",
            "E2vSpiInterface::UpdateRegisters() error!\n"
            "E2vFlash4k::RegisterInitialize UpdateRegisters failed!\n"
            "E2vFlash4k::SetReadoutDriveModeImpl SetROI failed!\n")
        .During(kDriveModeCalls)
        .Returns("-1"),
    E2vSent("write 82",
            "E2vSpiInterface::UpdateROI() error!\n"
            "E2vFlash4k::RegisterInitialize UpdateROI failed!\n"
            "E2vFlash4k::SetReadoutDriveModeImpl SetROI failed!\n")
        .During(kDriveModeCalls)
        .Returns("-1"),
    E2vAsked("tx 02",
             "E2vFlash4k::SetReadoutDriveModeImpl Write 0x0031 failed!\n|"
             "E2vFlash4k::SetReadoutDriveModeImpl Write 0x0023 failed!\n")
        .During(kDriveModeCalls)
        .Returns("-1"),
    E2vSent("write 42", "E2vFlash4k::SetReadoutDriveDirectionImpl Write 0x0023 failed!\n")
        .During(kReverseCalls)
        .Returns("-1"),
    // When the direction cannot be read, it is left unchanged.
    E2vAsked("tx 02 00 23").During(kReverseCalls).Returns(kSame),
    E2vSent("write 42", "E2vFlash4k::BatchWriteRegister Write {number} failed!\n")
        .During("SetCmosGain")
        .Returns("0"),
    E2vSent("write 60",
            "E2vFlash4k::BatchReadRegister Wpage {page} failed!\n|"
            "E2vFlash4k::BatchWriteRegister Wpage {page} failed!\n")
        .During("SetCmosGain")
        .Returns("0"),
    E2vAsked("tx 02", "E2vFlash4k::BatchReadRegister Read {number} failed!\n")
        .During("SetCmosGain")
        .Returns("0"),
    E2vSent("write 42", "E2vFlash4k::BatchWriteRegister Write {number} failed!\n")
        .During("SetHDRParam")
        .Returns(kSame),
    E2vSent("write 60", "E2vFlash4k::BatchWriteRegister Wpage {page} failed!\n")
        .During("SetHDRParam")
        .Returns(kSame),
    E2vSent("write 42 00 97", "E2vFlash4k::RegisterInitialize Write 0x0097 failed!\n")
        .During("SetExposureTime(sensing)")
        .Returns(kSame),

    // K40: start-up; a change of the sensing mode repeats part of it
    E2vAsked("tx 02 00 01|tx 02 00 02",
             "E2vFlash4k::RegisterInitialize Read 0x0001 failed!\n"
             "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n|"
             "E2vFlash4k::RegisterInitialize Read 0x0002 failed!\n"
             "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n")
        .During(kStartUp)
        .Returns(kSame),
    E2vAsked("tx 02 00 31",
             "E2vFlash4k::SetReadoutDriveModeImpl Write 0x0031 failed!\n|"
             "E2vFlash4k::BatchReadRegister Read {number} failed!\n"
             "E2vFlash4k::FinalConfiguration() failed! \n")
        .During(kSensingCalls)
        .Returns(kSame),
    // A failed read for the direction is not reported; one for the readout mode, of the same
    // register, is.
    E2vAsked("tx 02 00 23").During(kSensingCalls).Returns(kSame),
    // Values that lists without supplied entries write back.
    E2vAsked("tx 02", "E2vFlash4k::BatchReadRegister Read {number} failed!\n").Returns(kSame),
    E2vSent("write bb",
            "E2vFlash4k::RegisterInitialize ConfigSlice failed!\n"
            "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n")
        .During(kStartUp)
        .Returns(kSame),
    E2vSent("write 60",
            "E2vFlash4k::RegisterInitialize Wpage {page} failed!\n|"
            "E2vFlash4k::BatchReadRegister Wpage {page} failed!\n|"
            "E2vFlash4k::BatchWriteRegister Wpage {page} failed!\n")
        .Returns(kSame),
    E2vSent("write 81", "E2vSpiInterface::UpdateRegisters() error!\n").Returns(kSame),
    E2vSent("write 82", "E2vSpiInterface::UpdateROI() error!\n").Returns(kSame),
    E2vSent("write 42 00 0f|write 42 00 03|write 42 00 05|write 42 00 04|write 42 00 0e|"
            "write 42 00 10|write 42 00 08|write 42 00 09|write 42 00 61|write 42 01 4d|"
            "write 42 00 63|write 42 00 65|write 42 00 11|write 42 00 12|write 42 00 13|"
            "write 42 00 14",
            "E2vFlash4k::RegisterInitialize Write 0x{register} failed!\n"
            "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n")
        .During(kStartUp)
        .Returns(kSame),
    E2vSent("write 42 01 22|write 42 01 23|write 42 01 27|write 42 01 28",
            "E2vFlash4k::RegisterInitialize Write 0x{register} failed!\n"
            "E2vFlash4k::LvdsTraining() failed! \n|"
            "E2vFlash4k::BatchWriteRegister Write {number} failed!\n"
            "E2vFlash4k::FinalConfiguration() failed! \n")
        .Returns(kSame),
    E2vSent("write 42 01 2f", "E2vFlash4k::FinalConfiguration() failed! \n").Returns(kSame),
    E2vSent("write 42",
            "E2vFlash4k::RegisterInitialize Write 0x{register} failed!\n|"
            "E2vFlash4k::BatchWriteRegister Write {number} failed!\n|"
            "E2vFlash4k::SetROIImpl Write 0x{register} failed!\n|"
            "E2vFlash4k::SetReadoutDriveModeImpl Write 0x{register} failed!\n|"
            "E2vFlash4k::SetReadoutDriveDirectionImpl Write 0x{register} failed!\n")
        .Returns(kSame),

    // Every sensor
    On("spi", "open")
        .Tells("SpiDev::Open error! spidev_name:/dev/spidev0.0\n|"
               "SpiDev::Open error! spidev_name:/dev/spidev1.0\n")
        .Returns(kSame),
    SpiSetting("SPI_IOC_WR_MODE", "SpiDev::SetOpt wr_mode\n"),
    SpiSetting("SPI_IOC_RD_MODE", "SpiDev::SetOpt rd_mode\n"),
    SpiSetting("SPI_IOC_WR_LSB_FIRST", "SpiDev::SetOpt wr_lsb_fist\n"),
    SpiSetting("SPI_IOC_RD_LSB_FIRST", "SpiDev::SetOpt rd_lsb_fist\n"),
    SpiSetting("SPI_IOC_WR_BITS_PER_WORD", "SpiDev::SetOpt wr bits_per_word\n"),
    SpiSetting("SPI_IOC_RD_BITS_PER_WORD", "SpiDev::SetOpt rd bits_per_word\n"),
    SpiSetting("SPI_IOC_WR_MAX_SPEED_HZ", "SpiDev::SetOpt wr max_speed_hz\n"),
    SpiSetting("SPI_IOC_RD_MAX_SPEED_HZ", "SpiDev::SetOpt rd max_speed_hz\n"),
    On("spi", "SPI_IOC_MESSAGE").Tells("SpiDev::DoMsg error\n").Returns(kSame),
    On("spi", "write").Tells("SpiDev::DoWrite error\n").Returns(kSame),
};

}  // namespace reliability
