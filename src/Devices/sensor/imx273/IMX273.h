#pragma once

#include "Devices/sensor/sony/SonySensor.h"

namespace VeltranoSDK {

namespace imx273 {
struct CropPair;
}

// 1456 x 1088 pixels. The crop settings are stored in the chip and read back from it.
class IMX273 : public SonySensor {
 public:
  // Results of the crop operations, apart from a value.
  static constexpr int kOk = 0;
  static constexpr int kBusFailure = -1;
  static constexpr int kInvalidParameter = -2;
  static constexpr int kWrongDriveMode = -3;

  IMX273();

  bool RegisterInitialize(ReadoutDriveMode mode) override;
  unsigned int GetCameraDelay() override;
  float GetExposureTimeUnit() override;
  unsigned int TransferMaxFrameValue() override;

  // Crop lines and sizes 0 and 1 are start and size of the region in use, first horizontal, then
  // vertical. 2 and 3 are a second region of the chip that no product uses.
  int ROIOpen(int mask);
  int ROIClose(int mask);
  // 0 when the line is enabled, 1 when not.
  int CheckROIInit(int line);
  // Enables and places the line (close 0), or disables it (close 1).
  int SetCropLine(unsigned int close, unsigned int line, unsigned int value);
  int GetCropLine(int line);
  int SetCropSize(int index, int value);
  int GetCropSize(int index);

 protected:
  bool SetROIImpl(unsigned int x, unsigned int y, unsigned int width, unsigned int height) override;
  bool SetReadoutDriveModeImpl(ReadoutDriveMode mode) override;

 private:
  static constexpr WakeUp kPauses{2000, 1500, 100, 2000};
  static constexpr PowerUp kPowerUp{
      .wake_up = kPauses, .t_ges = 20, .after_timing = 100, .after_standby = 1000};

  bool OpenRegion(FpgaLogic& fpga, unsigned int x, unsigned int y, unsigned int width,
                  unsigned int height);
  bool CloseRegion(FpgaLogic& fpga, unsigned int width);
  // `failure` is the text for the timing registers.
  bool ProgramFullFrame(const char* failure);
  bool ProgramReduced(ReadoutDriveMode mode);
  // Adapts exposure delay and image formats to the region.
  void FollowRegion(FpgaLogic& fpga, unsigned int width, unsigned int height);
  bool WritePair(const imx273::CropPair& pair, unsigned int value, const char* failure);
  int ReadPair(const imx273::CropPair& pair);
};

}  // namespace VeltranoSDK
