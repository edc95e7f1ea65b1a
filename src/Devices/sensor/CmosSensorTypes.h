#pragma once

namespace VeltranoSDK {

// The image sensors of the product series; the value names the driver.
enum CmosSensorModel : unsigned int {
  kIMX273 = 0,
  kIMX252 = 1,
  kGMAX2509 = 2,
  kE2vFlash4k = 3,
  kGSPRINT6502BSI = 4,
};

// Codes of the interface; the IMX273's readout-mode register takes them unchanged.
enum ReadoutDriveMode : unsigned int {
  kDriveMode00 = 0x00,  // every pixel
  kDriveMode11 = 0x11,  // half the width and half the height
  kDriveMode22 = 0x22,  // Sony only: reduced readout with a shorter line period
};

// Two bits: bit 0 reverses the rows, bit 1 the columns.
enum ReadoutDriveDirection : unsigned int {
  kNormal = 0,
  kVerticalFlip = 1,
  kHorizontalFlip = 2,
  kBothFlip = 3,
};

}  // namespace VeltranoSDK
