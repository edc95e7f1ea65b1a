#pragma once

namespace VeltranoSDK::sony {

// Failure texts, one per operation; the number is the register's.
inline constexpr char kInitFailed[] = "init error 0x%04X";
inline constexpr char kRegionFailed[] = "set roi error 0x%04X";
inline constexpr char kDriveModeFailed[] = "0x%04X write SetDriveMode Abnormal communication";
inline constexpr char kCropLineFailed[] = "0x%04X write SetCropLine Abnormal communication";
inline constexpr char kCropSizeFailed[] = "0x%04X write SetCropSize Abnormal communication";
inline constexpr char kCropEnableFailed[] = "0x%04X write roi init Abnormal communication";
inline constexpr char kGainFailed[] = "0x%04X write SetGain Abnormal communication";
inline constexpr char kTemperatureFailed[] = "0x%04X GetSensorTemp Abnormal communication";
inline constexpr char kReducedReadoutFailed[] = "252 init error 0x%04X";
// The write fails, but the text has always said read.
inline constexpr char kFlipFailed[] = "0x%04X read SetReverseMode Abnormal communication";
inline constexpr char kEnterStandbyFailed[] = "Fail to enter standby mode";
inline constexpr char kStopMasterFailed[] = "Fail to stop master mode";
inline constexpr char kLeaveStandbyFailed[] = "Failed to exit standby mode";

}  // namespace VeltranoSDK::sony
