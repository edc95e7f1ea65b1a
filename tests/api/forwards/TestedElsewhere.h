#pragma once

// The exported symbols that a row of register accesses cannot describe, by the test that covers
// them.

#include <string>
#include <vector>

namespace tessaline_test {

struct TestFile {
  std::string path;  // below tests/
  std::vector<std::string> symbols;
};

inline const std::vector<TestFile> kTestedElsewhere{
    {"api/startup_test.cpp", {"GetLibVersion", "RegisterEventHandler", "RegisterHardwareInit"}},
    // Running counters.
    {"api/forwards_test.cpp", {"GetEncoderCounter", "GetTimerCounter"}},
    // GPIO, I2C, the sensor's own registers, an array.
    {"api/catalogue_test.cpp",
     {"CloseLaser", "DAWrite", "GetCpuTemp", "GetSensorTemp", "LedControl", "OpenLaser",
      "SetCmosGain", "SetDriveMode", "SetLaserPower", "SetROI1", "SetReverseMode",
      "SetStripRebuildValue"}},
    {"api/capture_statistics_test.cpp",
     {"TessalineGetCaptureStatistics", "TessalineResetCaptureStatistics"}},
    {"api/exports_test.cpp",
     {"VeltranoSDK::SignalHandler::SignalHandler", "VeltranoSDK::SignalHandler::~SignalHandler",
      "VeltranoSDK::SignalHandler::handleSignal", "VeltranoSDK::SignalHandler::install"}},
    {"function/eeprom_test.cpp",
     {"ConfigRead", "ConfigSave", "eeprom_page_read", "eeprom_page_write"}},
    {"function/fpga_test.cpp", {"fpga_contol", "fpga_read_addr", "fpga_write_addr"}},
    {"image/video_end_test.cpp", {"create_video_channel"}},
    {"image/video_test.cpp",
     {"close_video_channel", "v4l2_close", "v4l2_dqbuf", "v4l2_open", "v4l2_qbuf", "v4l2_release",
      "v4l2_reqbufs", "v4l2_setfmt", "v4l2_streamoff", "v4l2_streamon", "video_release_img_buf",
      "video_request_img_buf", "video_start_capture", "video_stop_capture"}},
    {"log/log_test.cpp",
     {"log_add_callback", "log_add_fp", "log_level_string", "log_log", "log_set_level",
      "log_set_lock", "log_set_quiet"}},
};

}  // namespace tessaline_test
