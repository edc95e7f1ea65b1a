#pragma once

// Argument types of the FPGA's controls. The values are those of the register fields. The
// underlying type is fixed, so an out-of-range number of the application arrives unchanged, and the
// method that receives it decides.

namespace VeltranoSDK {

enum STATE : unsigned int { kOff, kOn };

enum DigitalOutputChannel : unsigned int {
  kDigitalOutput1,
  kDigitalOutput2,
  kDaOutput,  // has only a delay standard
};

// The event that fires a digital output. The FPGA defines what each number means.
enum DigitalOutputEvent : unsigned int {
  kOutputEvent0,
  kOutputEvent1,
  kOutputEvent2,
  kOutputEvent3,
};

enum DigitalOutputMode : unsigned int { kOutputMode0, kOutputMode1 };

// The trigger source.
enum TriggerMode : unsigned int {
  kTimerTrigger,
  kEncoderTrigger,
  kExternalTrigger,
  kTimerTriggerAtStart,
};

// The same type selects the unit of a delay.
inline constexpr TriggerMode kDelayInMicroseconds{0};
inline constexpr TriggerMode kDelayInCounts{1};

enum ReverseMode : unsigned int {
  kReverseMode0,
  kReverseMode1,
  kReverseWithDistance,
  kReverseMode3,
};

enum LaserMode : unsigned int { kLaserMode0, kLaserMode1 };

enum CameraSensorMode : unsigned int {};

// Exposure slots; slot i is programmed into EXP_TIME_<i + 1>.
enum ExposureIndex : unsigned int { kExposure1, kExposure2, kExposure3, kExposure4, kExposure5 };
inline constexpr std::size_t kMaxExposures = 5;

// The two data paths: extracted laser lines, or the camera's images.
enum CollectMode : unsigned int { kCollectLaserLine, kCollectImage };

// Passed to the FPGA unchanged.
enum SampleStrategy : unsigned int {};
enum StripSelectMode : unsigned int {};

}  // namespace VeltranoSDK
