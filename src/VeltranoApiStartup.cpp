#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/CmosSensor.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "Runnable/DAArrivedNotifier.h"
#include "Runnable/ExternalTriggerGuard.h"
#include "SeriesLogic/ModelCode.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "SystemSignalHandle.h"
#include "VeltranoApiCall.h"
#include "tessaline/fpga.h"
#include "tessaline/log.h"
#include "tessaline/peripherals.h"
#include "tessaline/startup.h"
#include "thread/EndGuard.h"
#include "thread/Pause.h"
#include "thread/PromptSleeps.h"

namespace {

using namespace VeltranoSDK;  // NOLINT(google-build-using-namespace): this file is its C face

constexpr int kVersionCode = 41915;

constexpr unsigned int kExposuresPerCycle = 1;
constexpr unsigned int kExposureDelta = 6000;
constexpr unsigned int kSensorWorkMode = 1;
constexpr unsigned int kSensorSettle = 1000;  // microseconds
constexpr unsigned int kTriggerModeAtStart = 3;
constexpr unsigned int kTriggerSpacing = 4000;  // microseconds
constexpr unsigned int kLaserModeAtStart = 0;
constexpr std::uint8_t kCaptureThreads = 2;
constexpr unsigned int kPollInterval = 10;  // microseconds

// The capture threads were started. They cannot be started again.
std::atomic<bool> started = false;

// The series adds its own programming at the notifications.
void ConfigureFpga(FpgaLogic& fpga, SeriesLogic& series) {
  fpga.EnableCollectModeSignal();
  fpga.SetExposureNum(kExposuresPerCycle);
  fpga.SetExposureNumDelta(kExposureDelta);
  series.Notify(kExposureConfigured);

  fpga.CameraReset();
  fpga.SetCmosSensorWorkMode(static_cast<CameraSensorMode>(kSensorWorkMode));
  Pause(kSensorSettle);
  fpga.SetTriMode(static_cast<TriggerMode>(kTriggerModeAtStart));
  fpga.SetTriSpacing(kTriggerSpacing);
  fpga.SetGlobalControl(kOff);
  series.Notify(kTriggerConfigured);
}

// Returns when both threads have set up their devices, successfully or not.
void StartCapture(CaptureVideoStream& video, CaptureStripStream& strip) {
  const auto finished = std::make_shared<std::atomic<std::uint8_t>>(0);
  const auto count = [finished] { finished->fetch_add(1, std::memory_order_acq_rel); };
  video.RegisterBeforeRunFinishFunc(count);
  strip.RegisterBeforeRunFinishFunc(count);

  video.Start();
  try {
    strip.Start();
  } catch (...) {
    video.Detach();
    video.Cancel();
    video.ReleaseResource();
    throw;
  }
  video.Detach();
  strip.Detach();
  while (finished->load(std::memory_order_acquire) != kCaptureThreads) Pause(kPollInterval);
}

int StartDevice(const api::Entry& entry) {
  if (started) {
    entry.Error("the device is already started");
    return -1;
  }
  if (pthread_mutex_init(&fpga_contol, nullptr) != 0) {
    puts("fpga_contol mutex init failed!");
    return -1;
  }
  if (!DeviceManagerHolder::Instance()->Init()) {
    entry.Error("no product selected, call GetLibVersion with a known model code first");
    return -1;
  }
  EndGuard::Start();
  const auto series = SeriesLogicFactory::GetSeriesLogicInstance();
  const auto fpga = DeviceManagerHolder::Instance()->fpga_logic_;
  const auto sensor = DeviceManagerHolder::Instance()->cmos_sensor_;
  const auto video = RunnableObjectManagerHolder::Instance()->video_;
  const auto strip = RunnableObjectManagerHolder::Instance()->strip_;

  {
    const PromptSleeps prompt_sleeps;
    ConfigureFpga(*fpga, *series);
    sensor->RegisterInitialize(kDriveMode00);
    series->Notify(kSensorInitialized);
    SetLaserMode(kLaserModeAtStart);
  }
  StartCapture(*video, *strip);
  started = true;
  {
    const PromptSleeps prompt_sleeps;
    series->Notify(kStartupFinished);
  }
  InstallSystemSignalHandle();
  return 0;
}

void Register(int type, tessaline_event_handler callback) {
  auto* const runnables = RunnableObjectManagerHolder::Instance();
  switch (type) {
    case TESSALINE_EVENT_IMAGE:
      runnables->video_->RegisterImageBufCallback(
          reinterpret_cast<tessaline_frame_handler>(callback));
      break;
    case TESSALINE_EVENT_STRIP:
      runnables->strip_->RegisterStripBufCallback(
          reinterpret_cast<tessaline_frame_handler>(callback));
      break;
    case TESSALINE_EVENT_EXTERNAL_TRIGGER:
      ExternalTriggerGuard::RegisterPulseSignalCallback(
          reinterpret_cast<tessaline_trigger_handler>(callback));
      break;
    case TESSALINE_EVENT_DA_ARRIVED:
      DAArrivedNotifier::RegisterDAArrivedCallback(callback);
      break;
    default:
      break;
  }
}

}  // namespace

extern "C" {

int GetLibVersion(const char* model) {
  log_set_level(TESSALINE_LOG_ERROR);
  const api::Entry entry(__func__);
  EndGuard::NoticeMain();
  if (model == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");

  return api::Guarded<int>(entry, [&] {
    const std::string text(model);
    const SeriesNumber series = SeriesOfModelCode(text);
    if (!SeriesLogicFactory::InitSeriesLogicBySeries(series)) {
      printf("error: SeriesLogicFactory::InitSeriesLogicBySeries failed! series_number:%d \n",
             series);
      printf("error :InitSeriesLogicAndDeviceManager input_model:%s\n", text.c_str());
    }
    DeviceManagerHolder::Instance()->model_ = text;
    return kVersionCode;
  });
}

void RegisterEventHandler(int type, tessaline_event_handler callback) {
  const api::Entry entry(__func__);
  EndGuard::NoticeMain();
  api::Guarded<void>(entry, [=] { Register(type, callback); });
}

int RegisterHardwareInit(void) {
  const api::Entry entry(__func__);
  EndGuard::NoticeMain();
  return api::Guarded<int>(entry, [&entry] { return StartDevice(entry); });
}

}  // extern "C"
