// The arguments and results of the exported functions. Applications built with earlier headers, and
// hosts in other languages, depend on them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "tessaline/tessaline.h"

namespace {

// Only names the functions. Other tests call them.
template <typename Signature, typename... Functions>
constexpr bool kAllAre = (std::is_same_v<Functions, Signature> && ...);

using U = unsigned int;

// --- Start-up and threads

static_assert(kAllAre<int(const char*), decltype(GetLibVersion), decltype(v4l2_open)>);
static_assert(kAllAre<int(), decltype(RegisterHardwareInit)>);
static_assert(kAllAre<void(int, void (*)()), decltype(RegisterEventHandler)>);
static_assert(std::is_same_v<decltype(fpga_contol), pthread_mutex_t>);

// --- The device

// clang-format off
static_assert(kAllAre<int(U),
    decltype(SetTriMode), decltype(SetTriSpacing), decltype(SetDoorControlEn),
    decltype(SetTriDelayStandard), decltype(SetDelayEn), decltype(SetTriDelay),
    decltype(SetReverseMode_io), decltype(SetReverseDistance), decltype(SetGlobalControl),
    decltype(SetMasterState), decltype(SetMasterConctrolID), decltype(SetExternSignalFilter),
    decltype(SetLasTriPolarity), decltype(SetExtTriggerState), decltype(OutputSWTrigger),
    decltype(WRFifo), decltype(SetDAOutputDelay), decltype(DAWrite), decltype(SetDADelayState),
    decltype(SetExposureNum), decltype(SetCmosGain), decltype(SetDriveMode),
    decltype(SetReverseMode), decltype(SetSensingMode), decltype(SetRisThresholdValue),
    decltype(SetStripWidthMin), decltype(SetStripWidthMax), decltype(SetStripDataMode),
    decltype(SetCollectMode), decltype(SetStripWriteMemMode), decltype(QV4l2Buf),
    decltype(SetBinEnable), decltype(SetHotpixelEnable), decltype(SetObOffset),
    decltype(SetBriThresMax), decltype(SetBriThresMin), decltype(SetEnhanceEnable),
    decltype(SetEnhanceThresMax), decltype(SetEnhanceThresMin), decltype(SetEnhanceThresNum),
    decltype(SetEnhanceGain), decltype(SetMedianFilterEnable), decltype(SetErosionFilterEnable),
    decltype(SetErosionThresMax), decltype(SetErosionThresMin), decltype(SetErosionThresNum),
    decltype(SetErosionFilterStrategy), decltype(SetLaserMode), decltype(LedControl)>);
static_assert(kAllAre<U(),
    decltype(GetTriSpacing), decltype(GetDoorControlEn), decltype(GetTriDelayStandard),
    decltype(GetTriDelay), decltype(GetReverseMode_io), decltype(GetReverseDistance),
    decltype(GetEncoderFreq), decltype(GetXtrigLostSta), decltype(GetGlobalControl),
    decltype(GetMasterState), decltype(GetMasterConctrolID), decltype(GetExposureNum),
    decltype(GetDriveMode), decltype(GetImageWidth), decltype(GetImageHeight),
    decltype(GetCmosMaxDrive), decltype(TransferMaxFrameValue), decltype(GetRisThresholdValue),
    decltype(GetStripWidthMin), decltype(GetStripWidthMax), decltype(GetStripDataMode),
    decltype(GetCollectMode), decltype(GetCallbackLostNum), decltype(GetDigitalPOTResolution)>);
static_assert(kAllAre<int(),
    decltype(TricontrolSWTrigger), decltype(TriggerLostReset), decltype(GetSensorTemp),
    decltype(ResetFrameID), decltype(ResetCallbackLostNum), decltype(ResetStripReleaseNum),
    decltype(OpenLaser), decltype(CloseLaser)>);
static_assert(kAllAre<int(U, U),
    decltype(SetOutWidth), decltype(SetOutEvent), decltype(SetOutMode), decltype(SetOutDelayEn),
    decltype(SetOutPolarity), decltype(SetExtTriDelayStandard), decltype(SetDigitalOutputEnState),
    decltype(SetExposureTime), decltype(SetMeasuringRange), decltype(SetRoiOffset)>);
static_assert(kAllAre<U(U),
    decltype(GetOutWidth), decltype(GetOutEvent), decltype(GetOutMode), decltype(GetOutDelayEn)>);
static_assert(kAllAre<std::uint64_t(),
    decltype(GetEncoderCounter), decltype(GetTimerCounter), decltype(GetStripReleaseNum)>);
static_assert(kAllAre<void(U),
    decltype(SetFpgaContinuous), decltype(SetBrFlag), decltype(SetContinuousFlag)>);
// clang-format on
static_assert(kAllAre<int(U, std::uint64_t), decltype(SetOutDelay)>);
static_assert(kAllAre<std::uint64_t(U), decltype(GetOutDelay)>);
static_assert(kAllAre<int(U, U, U, U), decltype(SetROI1)>);
static_assert(kAllAre<int(U, std::uint16_t), decltype(SetHDRParam)>);
static_assert(kAllAre<void(double, double, double), decltype(SetHDRParam24)>);
static_assert(kAllAre<int(std::int32_t*), decltype(SetStripRebuildValue)>);
static_assert(kAllAre<int(std::int32_t, std::int32_t, std::int32_t, std::int32_t, std::int32_t),
                      decltype(SetSampleLightLineParam)>);
static_assert(kAllAre<int(float), decltype(SetLaserPower)>);
static_assert(kAllAre<float(), decltype(GetCpuTemp)>);
static_assert(kAllAre<std::int64_t(), decltype(Temp18b20Read)>);

static_assert(
    kAllAre<int(U, tessaline_capture_statistics*), decltype(TessalineGetCaptureStatistics)>);
static_assert(kAllAre<int(U), decltype(TessalineResetCaptureStatistics)>);

// --- Registers and logger

static_assert(kAllAre<U(U, U), decltype(fpga_read_addr)>);
static_assert(kAllAre<U(U, U, U), decltype(fpga_write_addr)>);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-attributes"  // that it takes a format
static_assert(kAllAre<void(int, const char*, int, const char*, ...), decltype(log_log)>);
#pragma GCC diagnostic pop
static_assert(kAllAre<void(int), decltype(log_set_level)>);
static_assert(kAllAre<void(bool), decltype(log_set_quiet)>);
static_assert(kAllAre<void(void (*)(bool, void*), void*), decltype(log_set_lock)>);
static_assert(kAllAre<int(void (*)(log_Event*), void*, int), decltype(log_add_callback)>);
static_assert(kAllAre<int(FILE*, int), decltype(log_add_fp)>);
static_assert(kAllAre<const char*(int), decltype(log_level_string)>);

// --- Configuration store

static_assert(kAllAre<int(unsigned char, void*, U, unsigned char), decltype(eeprom_page_read)>);
static_assert(kAllAre<int(unsigned char, const void*, unsigned char, unsigned char),
                      decltype(eeprom_page_write)>);
static_assert(kAllAre<int(unsigned char*, int), decltype(ConfigSave), decltype(ConfigRead)>);

// --- Plain capture

using Channel = tessaline_video_channel*;
using Image = tessaline_image_buffer*;

static_assert(kAllAre<int(int, U, U), decltype(v4l2_setfmt)>);
static_assert(kAllAre<Image(int, U, U, U, U), decltype(v4l2_reqbufs)>);
static_assert(
    kAllAre<int(int), decltype(v4l2_streamon), decltype(v4l2_streamoff), decltype(v4l2_close)>);
static_assert(kAllAre<int(int, v4l2_buffer*), decltype(v4l2_qbuf), decltype(v4l2_dqbuf)>);
static_assert(kAllAre<int(int, Image), decltype(v4l2_release)>);
static_assert(kAllAre<Channel(const char*, U, U, U, U, U, U), decltype(create_video_channel)>);
static_assert(kAllAre<int(Channel), decltype(video_start_capture), decltype(video_stop_capture),
                      decltype(close_video_channel)>);
static_assert(kAllAre<Image(Channel, int*), decltype(video_request_img_buf)>);
static_assert(kAllAre<int(Channel, Image), decltype(video_release_img_buf)>);

// The checks above cover all exports.
TEST(Signatures, OfEveryExportAreFixed) {
  const std::filesystem::path source = __FILE__;
  std::set<std::string> fixed;
  std::ifstream text(source);
  ASSERT_TRUE(text.is_open());
  const std::regex name("decltype\\((\\w+)\\)");
  for (std::string line; std::getline(text, line);) {
    for (std::sregex_iterator at(line.begin(), line.end(), name), end; at != end; ++at) {
      fixed.insert((*at)[1]);
    }
  }
  std::ifstream list(source.parent_path().parent_path() / "exports.txt");
  ASSERT_TRUE(list.is_open());
  std::vector<std::string> missing;
  for (std::string exported; std::getline(list, exported);) {
    // Neither the interface version nor the C++ class.
    const bool plain_c = exported != "TESSALINE_1" && !exported.starts_with("_Z");
    if (plain_c && !fixed.contains(exported)) missing.push_back(exported);
  }
  EXPECT_THAT(missing, ::testing::IsEmpty());
}

}  // namespace
