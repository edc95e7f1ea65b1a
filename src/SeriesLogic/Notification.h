#pragma once

namespace VeltranoSDK {

// Moments at which a series may add its own programming.
enum Notification : int {
  kCollectModeChanged = 0,    // the FPGA accepted a new collect mode
  kStartupFinished = 1,       // both capture threads finished their set-up
  kSensorInitialized = 2,     // the image sensor's registers are programmed
  kExposureConfigured = 3,    // exposure base configuration; again with collect mode 1
  kTriggerConfigured = 4,     // camera reset, work mode, trigger and global control are set
  kStripDataModeChanged = 5,  // the FPGA accepted a new strip data mode
};

}  // namespace VeltranoSDK
