// The power-on self-test of the IMX252: does the sensor deliver images?

#include <atomic>
#include <cstdio>
#include <memory>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/imx252/IMX252.h"
#include "Devices/sensor/sony/SonyRegisters.h"
#include "Devices/sensor/sony/SonyTexts.h"
#include "Neighbours.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "log/Log.h"
#include "tessaline/fpga.h"
#include "tessaline/register_map.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

constexpr char kName[] = "IMX252";

constexpr int kAttempts = 22;
constexpr unsigned int kTestExposure = 100;

// In microseconds, like all pauses.
constexpr unsigned int kBeforeTrigger = 10;
constexpr unsigned int kImageTime = 10000;
constexpr unsigned int kQuietTime = 1000;

// The timing's states as register values.
enum class Timing : unsigned int {
  kOff = 0,
  kArmed = fpga::kField.timing_second.Mask(),
  kRunning = fpga::kField.timing_first.Mask() | fpga::kField.timing_second.Mask(),
};

// All products with this sensor are Zynq-7000.
void SetTiming(Timing timing) {
  const auto& control = fpga::kReg.CMOS_TIMING_CTRL;
  fpga_write_addr(fpga::BaseAddress(control.block, fpga::kZynqRegions), control.Index(),
                  static_cast<unsigned int>(timing));
}

}  // namespace

int IMX252::PostReset() {
  Trace(__func__);
  Pause(200);
  SetTiming(Timing::kArmed);
  Pause(1000);
  if (!EnterStandby(sony::kEnterStandbyFailed)) return -1;
  Pause(1000);
  if (!Write({sony::kStandby, 0}, sony::kLeaveStandbyFailed)) return -1;
  Pause(2500);
  SetTiming(Timing::kOff);
  Pause(1000);
  SetTiming(Timing::kArmed);
  Pause(3000);
  SetTiming(Timing::kRunning);
  Pause(100000);
  return 0;
}

void IMX252::PowerOnSelfTest() {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  const auto video = neighbour::ImageThread(kName);
  const auto strip = neighbour::StripThread(kName);
  if (!fpga || !video || !strip) return;

  // The image may arrive after this function has returned.
  const auto seen = std::make_shared<std::atomic<bool>>(false);
  video->RegisterCmos252SelfTestSuccessfullyCallback([seen] { *seen = true; });
  fpga->SetExpTime(kExposure1, kTestExposure, GetExposureTimeUnit());
  fpga->SetGlobalControl(kOn);

  for (int attempt = 1;; ++attempt) {
    Pause(kBeforeTrigger);
    fpga->ControlSoftwareTrigger();
    Pause(kImageTime);
    if (*seen) break;
    if (PostReset() < 0) {
      puts("PowerOnSelfTest252 POSTreset252 error");
      return;
    }
    if (attempt == kAttempts) {
      printf("PowerOnSelfTest252 POSTreset252 error,reset count is %d\n", kAttempts - 1);
      return;
    }
    puts("PowerOnSelfTest252 POSTreset252 successful");
  }

  fpga->SetGlobalControl(kOff);
  Pause(kQuietTime);
  fpga->ResetFrameID();
  strip->StripBufClear();
  video->VideoBufClear();
  strip->ResetStripReleaseCount();
  puts("PowerOnSelfTest252 successful");
}

}  // namespace VeltranoSDK
