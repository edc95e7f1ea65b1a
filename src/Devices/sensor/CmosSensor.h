#pragma once

#include <utility>

#include "Devices/sensor/CmosSensorTypes.h"
#include "tessaline/products.h"
#include "thread/Relaxed.h"

namespace VeltranoSDK {

class FpgaLogic;

// An image sensor of any type. The non-virtual setters of region of interest, readout mode and
// direction record the setting before they call the driver; the record stays even when the chip
// refuses.
//
// Only one caller at a time may change settings. Any thread may read the recorded values.
class CmosSensor {
 public:
  CmosSensor(CmosSensorModel model, std::pair<unsigned int, unsigned int> resolution,
             products::StripSize strips = products::kUsualStrips);
  virtual ~CmosSensor() = default;
  CmosSensor(const CmosSensor&) = delete;
  CmosSensor& operator=(const CmosSensor&) = delete;

  // Full power-up programming. At its end the sensor is streaming, and the FPGA's image size,
  // exposure delay and drive mode match it.
  virtual bool RegisterInitialize(ReadoutDriveMode mode) = 0;

  // Analogue gain in the chip's own steps, clamped to its range.
  virtual bool SetGain(unsigned int gain) = 0;

  // Raw temperature code, not degrees. All ones when a Sony chip's bus fails, 0
  // from a chip without a temperature sensor.
  virtual unsigned int GetSensorTemp() = 0;

  // Chip identification of the given kind; a value near all ones when the chip does not know the
  // kind.
  virtual unsigned int GetSensorVer(unsigned int kind) = 0;

  // Readout latency in FPGA units, from the recorded region of interest.
  virtual unsigned int GetCameraDelay() = 0;

  // Microseconds per exposure step.
  virtual float GetExposureTimeUnit() = 0;

  // Packed timing constant for the FPGA.
  virtual unsigned int TransferMaxFrameValue();

  virtual unsigned int GetStripBufferSize();
  virtual unsigned int GetStripWidth();
  virtual unsigned int GetStripHeight();

  bool SetROI(unsigned int x, unsigned int y, unsigned int width, unsigned int height);
  // Mode 0x00 resets the recorded region to the full size, 0x11 to half of it in both directions;
  // the offsets stay.
  bool SetReadoutDriveMode(ReadoutDriveMode mode);
  bool SetReadoutDriveDirection(ReadoutDriveDirection direction);

  CmosSensorModel model() const { return model_; }
  std::pair<unsigned int, unsigned int> resolution() const { return resolution_; }
  unsigned int roi_x() const { return roi_x_; }
  unsigned int roi_y() const { return roi_y_; }
  unsigned int roi_width() const { return roi_width_; }
  unsigned int roi_height() const { return roi_height_; }
  ReadoutDriveMode read_out_drive_mode() const { return read_out_drive_mode_; }
  ReadoutDriveDirection read_out_drive_direction() const { return read_out_drive_direction_; }

 protected:
  // The recorded readout settings.
  struct Readout {
    unsigned int x, y, width, height;
    ReadoutDriveMode mode;
    ReadoutDriveDirection direction;
  };
  Readout readout() const;

  // Before the chip is programmed: global exposure shift and both trigger polarities.
  static void PrepareTiming(FpgaLogic& fpga, unsigned int t_ges);
  // For a running chip: switches the FPGA's timing off, armed, on. Pauses in microseconds.
  static void StartTiming(FpgaLogic& fpga, unsigned int off_pause, unsigned int armed_pause);

  // Resets the chip, programs it from the start and restores the recorded direction, mode and
  // region of interest, and the gain. Every step is taken even after a failure; then returns false
  // and prints a line with the driver's name.
  bool ResetAndRestore(const char* driver, unsigned int gain);

  virtual bool SetROIImpl(unsigned int x, unsigned int y, unsigned int width,
                          unsigned int height) = 0;
  virtual bool SetReadoutDriveModeImpl(ReadoutDriveMode mode) = 0;
  virtual bool SetReadoutDriveDirectionImpl(ReadoutDriveDirection direction) = 0;

  const CmosSensorModel model_;
  std::pair<unsigned int, unsigned int> resolution_;  // width, height; final once constructed
  Relaxed<unsigned int> roi_x_;
  Relaxed<unsigned int> roi_y_;
  Relaxed<unsigned int> roi_height_;
  Relaxed<unsigned int> roi_width_;
  Relaxed<ReadoutDriveMode> read_out_drive_mode_;
  Relaxed<ReadoutDriveDirection> read_out_drive_direction_;
  unsigned int max_frame_value_ = 0x0136260D;
  const products::StripSize strips_;
};

}  // namespace VeltranoSDK
