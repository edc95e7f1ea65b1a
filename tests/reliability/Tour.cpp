#include "Tour.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "tessaline/board.h"
#include "tessaline/register_map.h"
#include "tessaline/tessaline.h"

namespace fpga = VeltranoSDK::fpga;

namespace reliability {
namespace {

// The frames that have arrived from a stream.
class Arrivals {
 public:
  void Add(unsigned count) {
    const std::lock_guard lock(mutex_);
    count_ += count;
    changed_.notify_all();
  }
  void Forget() {
    const std::lock_guard lock(mutex_);
    count_ = 0;
  }
  bool WaitFor(unsigned enough, std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return count_ >= enough; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  unsigned count_ = 0;
};

Arrivals images;
Arrivals strips;
Arrivals triggers;
Arrivals takeovers;

void OnImage(unsigned int, unsigned int, void*) { images.Add(1); }
void OnStrips(unsigned int count, unsigned int, void*) { strips.Add(count); }
void OnTrigger(unsigned int) { triggers.Add(1); }
void OnDaArrived() { takeovers.Add(1); }

class Guide {
 public:
  explicit Guide(void (*told)(const std::string&)) : told_(told) {}

  // Records only the call, because results from a clock or a counter differ between runs.
  template <typename Function, typename... Arguments>
  void Visit(const char* name, Function function, Arguments... arguments) {
    function(arguments...);
    told_(name);
  }

  template <typename Function, typename... Arguments>
  void Call(const char* name, Function function, Arguments... arguments) {
    if constexpr (std::is_void_v<decltype(function(arguments...))>) {
      Visit(name, function, arguments...);
    } else {
      told_(fmt::format("{} = {}", name, function(arguments...)));
    }
  }

  void Note(const std::string& line) { told_(line); }

 private:
  void (*told_)(const std::string&);
};

// The wait has a limit, because a fault may prevent the awaited frames.
void Await(Guide& guide, const char* what, Arrivals& arrivals, unsigned enough) {
  constexpr std::chrono::seconds kPatience{10};
  const bool arrived = arrivals.WaitFor(enough, kPatience);
  guide.Note(fmt::format("{} {}", what, arrived ? "arrived" : "missing"));
}

void Acquire(Guide& guide, const char* what, Arrivals& arrivals) {
  constexpr unsigned kEnough = 3;
  arrivals.Forget();
  guide.Call("SetGlobalControl(1)", SetGlobalControl, 1U);
  guide.Call("GetGlobalControl", GetGlobalControl);
  Await(guide, what, arrivals, kEnough);
  guide.Call("SetGlobalControl(0)", SetGlobalControl, 0U);
}

// Uses a register that ignores writes.
void Registers(Guide& guide, bool is_zynqmp) {
  constexpr fpga::Register kRegister = fpga::kReg.FPGA_VERSION;
  const std::uint32_t block =
      BaseAddress(kRegister.block, is_zynqmp ? fpga::kZynqMpRegions : fpga::kZynqRegions);
  guide.Call("fpga_write_addr", fpga_write_addr, block, kRegister.Index(), 0U);
  guide.Call("fpga_read_addr", fpga_read_addr, block, kRegister.Index());
}

void Trigger(Guide& guide) {
  guide.Call("SetTriMode", SetTriMode, 0U);
  guide.Call("SetTriSpacing", SetTriSpacing, 4000U);
  guide.Call("GetTriSpacing", GetTriSpacing);
  guide.Call("SetDoorControlEn", SetDoorControlEn, 0U);
  guide.Call("GetDoorControlEn", GetDoorControlEn);
  guide.Call("SetTriDelayStandard", SetTriDelayStandard, 1U);
  guide.Call("GetTriDelayStandard", GetTriDelayStandard);
  guide.Call("SetDelayEn", SetDelayEn, 0U);
  guide.Call("SetTriDelay", SetTriDelay, 10U);
  guide.Call("GetTriDelay", GetTriDelay);
  guide.Call("SetReverseMode_io", SetReverseMode_io, 2U);
  guide.Call("GetReverseMode_io", GetReverseMode_io);
  guide.Call("SetReverseDistance", SetReverseDistance, 100U);
  guide.Call("GetReverseDistance", GetReverseDistance);
  guide.Visit("GetEncoderFreq", GetEncoderFreq);
  guide.Visit("GetEncoderCounter", GetEncoderCounter);
  guide.Visit("GetTimerCounter", GetTimerCounter);
  guide.Visit("GetXtrigLostSta", GetXtrigLostSta);
  guide.Call("TriggerLostReset", TriggerLostReset);
  guide.Call("SetExternSignalFilter", SetExternSignalFilter, 5U);
  guide.Call("SetLasTriPolarity", SetLasTriPolarity, 1U);
  guide.Call("TricontrolSWTrigger", TricontrolSWTrigger);
  guide.Call("SetExtTriggerState(1)", SetExtTriggerState, 1U);
  tessaline_board_external_trigger(1);
  Await(guide, "trigger", triggers, 1);
  guide.Call("SetExtTriggerState(0)", SetExtTriggerState, 0U);
  guide.Call("SetMasterState", SetMasterState, 0U);
  guide.Call("GetMasterState", GetMasterState);
  guide.Call("SetMasterConctrolID", SetMasterConctrolID, 3U);
  guide.Call("GetMasterConctrolID", GetMasterConctrolID);
}

void Outputs(Guide& guide) {
  guide.Call("SetOutWidth", SetOutWidth, 0U, 100U);
  guide.Call("GetOutWidth", GetOutWidth, 0U);
  guide.Call("SetOutEvent", SetOutEvent, 1U, 1U);
  guide.Call("GetOutEvent", GetOutEvent, 1U);
  guide.Call("SetOutMode", SetOutMode, 0U, 1U);
  guide.Call("GetOutMode", GetOutMode, 0U);
  guide.Call("SetDigitalOutputEnState", SetDigitalOutputEnState, 0U, 1U);
  guide.Call("SetOutPolarity", SetOutPolarity, 0U, 1U);
  guide.Call("OutputSWTrigger", OutputSWTrigger, 0U);
  guide.Call("WRFifo", WRFifo, 0U);
  guide.Call("SetExtTriDelayStandard", SetExtTriDelayStandard, 0U, 1U);
  guide.Call("SetOutDelayEn", SetOutDelayEn, 0U, 1U);
  guide.Call("GetOutDelayEn", GetOutDelayEn, 0U);
  guide.Call("SetOutDelay", SetOutDelay, 0U, std::uint64_t{5000});
  guide.Call("GetOutDelay", GetOutDelay, 0U);
  guide.Call("SetDAOutputDelay", SetDAOutputDelay, 7U);
  guide.Call("DAWrite", DAWrite, 100U);
  guide.Call("SetDADelayState(1)", SetDADelayState, 1U);
  tessaline_board_da_arrived();
  Await(guide, "takeover", takeovers, 1);
  guide.Call("SetDADelayState(0)", SetDADelayState, 0U);
}

void ImageProcessing(Guide& guide) {
  using Setter = int (*)(unsigned int);
  constexpr std::pair<const char*, Setter> kSetters[] = {
      {"SetBinEnable", SetBinEnable},
      {"SetHotpixelEnable", SetHotpixelEnable},
      {"SetObOffset", SetObOffset},
      {"SetBriThresMax", SetBriThresMax},
      {"SetBriThresMin", SetBriThresMin},
      {"SetEnhanceEnable", SetEnhanceEnable},
      {"SetEnhanceThresMax", SetEnhanceThresMax},
      {"SetEnhanceThresMin", SetEnhanceThresMin},
      {"SetEnhanceThresNum", SetEnhanceThresNum},
      {"SetEnhanceGain", SetEnhanceGain},
      {"SetMedianFilterEnable", SetMedianFilterEnable},
      {"SetErosionFilterEnable", SetErosionFilterEnable},
      {"SetErosionThresMax", SetErosionThresMax},
      {"SetErosionThresMin", SetErosionThresMin},
      {"SetErosionThresNum", SetErosionThresNum},
      {"SetErosionFilterStrategy", SetErosionFilterStrategy},
  };
  for (const auto& [name, set] : kSetters) guide.Call(name, set, 0U);
}

void Strips(Guide& guide) {
  static std::array<std::int32_t, 64> coefficients{};
  guide.Call("SetStripDataMode", SetStripDataMode, 0U);
  guide.Call("GetStripDataMode", GetStripDataMode);
  guide.Call("SetStripWriteMemMode", SetStripWriteMemMode, 0U);
  guide.Call("SetRisThresholdValue", SetRisThresholdValue, 30U);
  guide.Call("GetRisThresholdValue", GetRisThresholdValue);
  guide.Call("SetStripWidthMin", SetStripWidthMin, 1U);
  guide.Call("GetStripWidthMin", GetStripWidthMin);
  guide.Call("SetStripWidthMax", SetStripWidthMax, 128U);
  guide.Call("GetStripWidthMax", GetStripWidthMax);
  guide.Call("SetStripRebuildValue", SetStripRebuildValue, coefficients.data());
  guide.Call("SetSampleLightLineParam", SetSampleLightLineParam, 0, 1, 64, 0, 0);
  guide.Call("SetMeasuringRange", SetMeasuringRange, 0U, 1000U);
  guide.Call("SetRoiOffset", SetRoiOffset, 0U, 0U);
  guide.Call("SetBrFlag", SetBrFlag, 0U);
  guide.Call("SetContinuousFlag", SetContinuousFlag, 0U);
  guide.Call("ResetFrameID", ResetFrameID);
  guide.Visit("GetCallbackLostNum", GetCallbackLostNum);
  guide.Call("ResetCallbackLostNum", ResetCallbackLostNum);
  guide.Visit("GetStripReleaseNum", GetStripReleaseNum);
  guide.Call("ResetStripReleaseNum", ResetStripReleaseNum);
}

void Sensor(Guide& guide) {
  const unsigned full = GetCmosMaxDrive();
  const unsigned width = full >> 16;
  const unsigned height = full & 0xFFFF;
  guide.Call("SetExposureNum", SetExposureNum, 1U);
  guide.Call("GetExposureNum", GetExposureNum);
  guide.Call("SetExposureTime", SetExposureTime, 1U, 300U);
  guide.Call("SetCmosGain", SetCmosGain, 1U);
  guide.Call("SetSensingMode(1)", SetSensingMode, 1U);
  // The FPGA timed the exposure before. Now the sensor does, if it can.
  guide.Call("SetExposureTime(sensing)", SetExposureTime, 1U, 300U);
  guide.Call("SetSensingMode(0)", SetSensingMode, 0U);
  guide.Call("SetHDRParam", SetHDRParam, 10U, static_cast<unsigned short>(20));
  guide.Call("SetHDRParam24", SetHDRParam24, 1.0, 2.0, 3.0);
  guide.Call("SetFpgaContinuous", SetFpgaContinuous, 0U);
  // Halved readout, which some sensors do not have.
  guide.Call("SetDriveMode(17)", SetDriveMode, 0x11U);
  guide.Call("SetDriveMode(0)", SetDriveMode, 0U);
  guide.Call("GetDriveMode", GetDriveMode);
  // Uses steps of eight, which every sensor accepts.
  guide.Call("SetROI1", SetROI1, 0U, 0U, width, height / 16 * 8);
  guide.Call("SetReverseMode(1)", SetReverseMode, 1U);
  guide.Call("SetReverseMode(0)", SetReverseMode, 0U);
  guide.Call("GetImageWidth", GetImageWidth);
  guide.Call("GetImageHeight", GetImageHeight);
  guide.Call("GetCmosMaxDrive", GetCmosMaxDrive);
  guide.Call("TransferMaxFrameValue", TransferMaxFrameValue);
  guide.Call("GetSensorTemp", GetSensorTemp);
}

void Peripherals(Guide& guide) {
  constexpr unsigned char kStore = 0x51;
  constexpr unsigned char kPage = 0xF0;
  constexpr unsigned char kPageBytes = 16;
  static std::array<unsigned char, 272> settings{};
  constexpr int kLowerHalf = 100;
  constexpr int kBothHalves = static_cast<int>(settings.size());
  guide.Call("OpenLaser", OpenLaser);
  guide.Call("SetLaserPower", SetLaserPower, 40.0F);
  guide.Call("GetDigitalPOTResolution", GetDigitalPOTResolution);
  guide.Call("SetLaserMode", SetLaserMode, 0U);
  guide.Call("LedControl", LedControl, 2U);
  guide.Call("GetCpuTemp", GetCpuTemp);
  guide.Call("Temp18b20Read", Temp18b20Read);
  guide.Call("ConfigSave(100)", ConfigSave, settings.data(), kLowerHalf);
  guide.Call("ConfigRead(100)", ConfigRead, settings.data(), kLowerHalf);
  guide.Call("ConfigSave(272)", ConfigSave, settings.data(), kBothHalves);
  guide.Call("ConfigRead(272)", ConfigRead, settings.data(), kBothHalves);
  // The read comes first, because the chip does not answer for a while after a write.
  guide.Call("eeprom_page_read", eeprom_page_read, kPage, settings.data(), unsigned{kPageBytes},
             kStore);
  guide.Call("eeprom_page_write", eeprom_page_write, kPage, settings.data(), kPageBytes, kStore);
  guide.Call("CloseLaser", CloseLaser);
}

}  // namespace

void Tour(const std::string& model, void (*told)(const std::string& line)) {
  Guide guide(told);
  guide.Call("GetLibVersion", GetLibVersion, model.c_str());
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(OnImage));
  RegisterEventHandler(TESSALINE_EVENT_STRIP, reinterpret_cast<tessaline_event_handler>(OnStrips));
  RegisterEventHandler(TESSALINE_EVENT_EXTERNAL_TRIGGER,
                       reinterpret_cast<tessaline_event_handler>(OnTrigger));
  RegisterEventHandler(TESSALINE_EVENT_DA_ARRIVED, OnDaArrived);
  guide.Call("RegisterHardwareInit", RegisterHardwareInit);
  Registers(guide, model.starts_with("K40"));
  Trigger(guide);
  Outputs(guide);
  ImageProcessing(guide);
  Strips(guide);
  guide.Call("SetCollectMode(0)", SetCollectMode, 0U);
  Acquire(guide, "strips", strips);
  Sensor(guide);
  guide.Call("SetCollectMode(1)", SetCollectMode, 1U);
  guide.Call("GetCollectMode", GetCollectMode);
  Acquire(guide, "images", images);
  Peripherals(guide);
}

}  // namespace reliability
