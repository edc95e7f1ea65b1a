#pragma once

namespace VeltranoSDK::e2v {

// The texts of the e2v sensor's driver and bus. Several mention an initialisation though other
// operations print them, too: they have been known in the field since the first unit.

// Formats for a register's number.
inline constexpr char kInitWriteFailed[] = "E2vFlash4k::RegisterInitialize Write 0x%04x failed!";
inline constexpr char kInitReadFailed[] = "E2vFlash4k::RegisterInitialize Read 0x%04x failed!";
inline constexpr char kDirectionWriteFailed[] =
    "E2vFlash4k::SetReadoutDriveDirectionImpl Write 0x%04x failed!";
inline constexpr char kDriveModeWriteFailed[] =
    "E2vFlash4k::SetReadoutDriveModeImpl Write 0x%04x failed!";
inline constexpr char kRoiWriteFailed[] = "E2vFlash4k::SetROIImpl Write 0x%04x failed!";
inline constexpr char kTestImageWriteFailed[] = "E2vFlash4k::TestImage Write 0x%04x failed!";

// Formats for printf.
inline constexpr char kInitWpageFailed[] = "E2vFlash4k::RegisterInitialize Wpage %d failed!\n";
inline constexpr char kBatchWpageFailed[] = "E2vFlash4k::BatchWriteRegister Wpage %d failed!\n";
inline constexpr char kBatchWriteFailed[] = "E2vFlash4k::BatchWriteRegister Write %d failed!\n";
inline constexpr char kBatchReadWpageFailed[] = "E2vFlash4k::BatchReadRegister Wpage %d failed!\n";
inline constexpr char kBatchReadFailed[] = "E2vFlash4k::BatchReadRegister Read %d failed!\n";
inline constexpr char kStatus[] = "-- E2vFlash4k e2v_spi_.Read(0x0000)  =  %d!! \n";
inline constexpr char kRoiAsked[] = "----- left:%d, top:%d, width:%d, height:%d ----- \n";
inline constexpr char kRoiRefused[] =
    "E2vFlash4k::SetROIImpl param error: left:%d, top:%d, width:%d, height:%d\n";

// Whole lines.
inline constexpr char kControlMemoryAccessFailed[] =
    "E2vFlash4k::RegisterInitialize Write 0x0070 failed!";
inline constexpr char kBatchSizesDiffer[] =
    "E2vFlash4k::BatchWriteRegister address.size() != page_value.second.size()";
inline constexpr char kPllReadFailed[] =
    "E2vFlash4k::RegisterInitialize PllEnable Read 0x0000 failed!";
inline constexpr char kSlicesFailed[] = "E2vFlash4k::RegisterInitialize ConfigSlice failed!";
inline constexpr char kInitUpdateRegistersFailed[] =
    "E2vFlash4k::RegisterInitialize UpdateRegisters failed!";
inline constexpr char kInitUpdateRoiFailed[] = "E2vFlash4k::RegisterInitialize UpdateROI failed!";
inline constexpr char kClocksFailed[] = "E2vFlash4k::InitClocksAndSlicesConfig() failed! ";
inline constexpr char kFinalConfigurationFailed[] = "E2vFlash4k::FinalConfiguration() failed! ";
inline constexpr char kLvdsTrainingFailed[] = "E2vFlash4k::LvdsTraining() failed! ";
inline constexpr char kTestImage[] = "E2vFlash4k::TestImage() ";
inline constexpr char kTestImageFailed[] = "E2vFlash4k::TestImage() failed! ";
inline constexpr char kTestImageUpdateRegistersFailed[] =
    "E2vFlash4k::TestImage UpdateRegisters failed!";
inline constexpr char kTestImageUpdateRoiFailed[] = "E2vFlash4k::TestImage UpdateROI failed!";
inline constexpr char kNoHorizontalFlip[] =
    "E2vFlash4k::SetReadoutDriveDirectionImpl Flipping horizontally is not supported!";
inline constexpr char kUnknownDirection[] =
    "E2vFlash4k::SetReadoutDriveDirectionImpl invalid parameter";
inline constexpr char kUnknownDriveMode[] = "E2vFlash4k::SetReadoutDriveModeImpl invalid param";
inline constexpr char kDriveModeRoiFailed[] = "E2vFlash4k::SetReadoutDriveModeImpl SetROI failed!";
inline constexpr char kRoiTaken[] = "info E2vFlash4k::SetROIImpl logic! ";
inline constexpr char kDumpPageFailed[] = "E2vSpiInterface::ReadAll() Wpage failed!";
inline constexpr char kDumpReturnFailed[] = "E2vSpiInterface::ReadAll() Wpage 0x00 failed!";

// For the log.
inline constexpr char kExposureSteps[] = "E2vFlash4k::SetExposureTime  P:%d \n";
inline constexpr char kExposureTooLong[] =
    "E2vFlash4k::SetExposureTime Out of Range! exposure_time:%d \n";
inline constexpr char kExposureTooShort[] =
    "E2vFlash4k::SetExposureTime P == 0! exposure_time:%d \n";
inline constexpr char kExposureWriteFailed[] =
    "E2vFlash4k::RegisterInitialize Write 0x0097 failed!\n";

}  // namespace VeltranoSDK::e2v
