// Image size, readout and region of interest, for every sensor that matters.
#include "Devices/fpga/FpgaLogicFixture.h"
#include "support/LoggedLines.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;
using namespace VeltranoSDK::fpga;

const std::vector<Rule> kSizeRules{
    {.name = "SetImageSizeTakesThePixels",
     .call = [](auto& f) { return f.SetImageSize(1456, 1088); },
     .steps = {Wrote(STRIP_IMAGE_WIDTH, 1456), Wrote(STRIP_IMAGE_HEIGHT, 1088)}},
    {.name = "SetImageSizeCountsTheGmax2509InUnits",
     .call = [](auto& f) { return f.SetImageSize(1000, 10); },
     .steps = {Wrote(STRIP_IMAGE_WIDTH, 1120), Wrote(STRIP_IMAGE_HEIGHT, 10)},
     .sensor = kGMAX2509},
    {.name = "SetImageSizeTakesThePixelsOfTheE2vFlash4k",
     .call = [](auto& f) { return f.SetImageSize(1000, 10); },
     .steps = {Wrote(STRIP_IMAGE_WIDTH, 1000), Wrote(STRIP_IMAGE_HEIGHT, 10)},
     .sensor = kE2vFlash4k},
    {.name = "SetImageSizeTakesThePixelsOfTheGsprint6502",
     .call = [](auto& f) { return f.SetImageSize(1000, 10); },
     .steps = {Wrote(STRIP_IMAGE_WIDTH, 1000), Wrote(STRIP_IMAGE_HEIGHT, 10)},
     .sensor = kGSPRINT6502BSI},
    {.name = "SetImageSizeTakesThePixelsOfTheImx252",
     .call = [](auto& f) { return f.SetImageSize(1000, 10); },
     .steps = {Wrote(STRIP_IMAGE_WIDTH, 1000), Wrote(STRIP_IMAGE_HEIGHT, 10)},
     .sensor = kIMX252},
    {.name = "SetImageSizeTellsAFailedWidth",
     .call = [](auto& f) { return f.SetImageSize(1, 2); },
     .result = 0,
     .printed = "SetImageSize fpga_write_addr STRIP_IMAGE_WIDTH error\n",
     .failing_access = 0},
    {.name = "SetImageSizeTellsAFailedHeight",
     .call = [](auto& f) { return f.SetImageSize(1, 2); },
     .result = 0,
     .steps = {Wrote(STRIP_IMAGE_WIDTH, 1)},
     .printed = "SetImageSize fpga_write_addr STRIP_IMAGE_HEIGHT error\n",
     .failing_access = 1},
    {.name = "GetImageWidthIsTheRegister",
     .given = {{STRIP_IMAGE_WIDTH, 1120}},
     .call = [](auto& f) { return f.GetImageWidth(); },
     .result = 1120,
     .steps = {Read(STRIP_IMAGE_WIDTH, 1120)}},
    {.name = "GetImageWidthOfTheE2vFlash4kIsTheRegister",
     .given = {{STRIP_IMAGE_WIDTH, 1120}},
     .call = [](auto& f) { return f.GetImageWidth(); },
     .result = 1120,
     .steps = {Read(STRIP_IMAGE_WIDTH, 1120)},
     .sensor = kE2vFlash4k},
    {.name = "GetImageWidthOfTheGsprint6502IsTheRegister",
     .given = {{STRIP_IMAGE_WIDTH, 1120}},
     .call = [](auto& f) { return f.GetImageWidth(); },
     .result = 1120,
     .steps = {Read(STRIP_IMAGE_WIDTH, 1120)},
     .sensor = kGSPRINT6502BSI},
    {.name = "GetImageWidthOfTheImx252IsTheRegister",
     .given = {{STRIP_IMAGE_WIDTH, 1120}},
     .call = [](auto& f) { return f.GetImageWidth(); },
     .result = 1120,
     .steps = {Read(STRIP_IMAGE_WIDTH, 1120)},
     .sensor = kIMX252},
    {.name = "GetImageWidthOfTheGmax2509IsInPixels",
     .given = {{STRIP_IMAGE_WIDTH, 1121}},
     .call = [](auto& f) { return f.GetImageWidth(); },
     .result = 980,
     .steps = {Read(STRIP_IMAGE_WIDTH, 1121)},
     .sensor = kGMAX2509},
    {.name = "GetImageHeight",
     .given = {{STRIP_IMAGE_HEIGHT, 640}},
     .call = [](auto& f) { return f.GetImageHeight(); },
     .result = 640,
     .steps = {Read(STRIP_IMAGE_HEIGHT, 640)}},
    {.name = "GetCmosMaxDriveIsTheResolution",
     .call = [](auto& f) { return f.GetCmosMaxDrive(); },
     .result = 4200u << 16 | 1024},
};

const std::vector<Rule> kReadoutRules{
    {.name = "TheImx273NeedsNoBlockCount",
     .given = {{ISP_CTRL, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetImageReadoutParam(1456, 1088, kDriveMode11); },
     .steps = {Wrote(ISP_WIDTH, 0), Wrote(ISP_HEIGHT, 0), Read(ISP_CTRL, 0xFFFFFFFF),
               Wrote(ISP_CTRL, 0xFE)},
     .sensor = kIMX273},
    {.name = "TheImx252NeedsNoBlockCount",
     .given = {{ISP_CTRL, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetImageReadoutParam(2064, 1544, kDriveMode00); },
     .steps = {Wrote(ISP_WIDTH, 0), Wrote(ISP_HEIGHT, 0), Read(ISP_CTRL, 0xFFFFFFFF),
               Wrote(ISP_CTRL, 0xFD)},
     .sensor = kIMX252},
    {.name = "Gmax2509InBlocksOf28",
     .given = {{ISP_CTRL, 0x1D}},
     .call = [](auto& f) { return f.SetImageReadoutParam(4199, 1024, kDriveMode11); },
     .steps = {Wrote(ISP_WIDTH, 149), Wrote(ISP_HEIGHT, 36), Read(ISP_CTRL, 0x1D),
               Wrote(ISP_CTRL, 0x1E)},
     .sensor = kGMAX2509},
    {.name = "E2vFlash4kInBlocksOf64",
     .call = [](auto& f) { return f.SetImageReadoutParam(4096, 1080, kDriveMode00); },
     .steps = {Wrote(ISP_WIDTH, 64), Wrote(ISP_HEIGHT, 16), Read(ISP_CTRL, 0), Wrote(ISP_CTRL, 1)},
     .sensor = kE2vFlash4k},
    {.name = "Gsprint6502InBlocksOf32",
     .call = [](auto& f) { return f.SetImageReadoutParam(2048, 1152, kDriveMode22); },
     .steps = {Wrote(ISP_WIDTH, 64), Wrote(ISP_HEIGHT, 36), Read(ISP_CTRL, 0), Wrote(ISP_CTRL, 1)},
     .sensor = kGSPRINT6502BSI},
};

const std::vector<Rule> kRoiRules{
    {.name = "FullReadoutKeepsTheOffset",
     .given = {{ROI_OFFSET, 0xFEABCDEF}},
     .call = [](auto& f) { return f.SetPLDriveMode(kDriveMode00); },
     .steps = {Read(ROI_OFFSET, 0xFEABCDEF), Wrote(ROI_OFFSET, 0x00ABCDEF)}},
    {.name = "FullReadoutKeepsTheWholeOffset",
     .given = {{ROI_OFFSET, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetPLDriveMode(kDriveMode00); },
     .steps = {Read(ROI_OFFSET, 0xFFFFFFFF), Wrote(ROI_OFFSET, 0x01FFFFFF)}},
    {.name = "HalfReadoutClearsTheWholeOffset",
     .given = {{ROI_OFFSET, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetPLDriveMode(kDriveMode11); },
     .steps = {Read(ROI_OFFSET, 0xFFFFFFFF), Wrote(ROI_OFFSET, 0x06000000)}},
    {.name = "HalfReadoutClearsTheOffset",
     .given = {{ROI_OFFSET, 0x00ABCDEF}},
     .call = [](auto& f) { return f.SetPLDriveMode(kDriveMode11); },
     .steps = {Read(ROI_OFFSET, 0x00ABCDEF), Wrote(ROI_OFFSET, 0x06000000)}},
    {.name = "HalvingOneDirectionKeepsTheOffset",
     .given = {{ROI_OFFSET, 0x06ABCDEF}},
     .call = [](auto& f) { return f.SetPLDriveMode(ReadoutDriveMode{0x01}); },
     .steps = {Read(ROI_OFFSET, 0x06ABCDEF), Wrote(ROI_OFFSET, 0x02ABCDEF)}},
    {.name = "HalvingTheOtherDirectionKeepsTheOffset",
     .given = {{ROI_OFFSET, 0x00ABCDEF}},
     .call = [](auto& f) { return f.SetPLDriveMode(ReadoutDriveMode{0x10}); },
     .steps = {Read(ROI_OFFSET, 0x00ABCDEF), Wrote(ROI_OFFSET, 0x04ABCDEF)}},
    {.name = "TheSonysReducedReadoutIsFullReadout",
     .given = {{ROI_OFFSET, 0x07ABCDEF}},
     .call = [](auto& f) { return f.SetPLDriveMode(kDriveMode22); },
     .steps = {Read(ROI_OFFSET, 0x07ABCDEF), Wrote(ROI_OFFSET, 0x01ABCDEF)}},
    {.name = "SetRoiOffsetKeepsTheDriveMode",
     .given = {{ROI_OFFSET, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetRoiOffset(0x123, 0x456); },
     .steps = {Read(ROI_OFFSET, 0xFFFFFFFF), Wrote(ROI_OFFSET, 0xFE456123)}},
    {.name = "SetRoiOffsetHasTwelveAndThirteenBits",
     .call = [](auto& f) { return f.SetRoiOffset(0xF001, 0xE001); },
     .steps = {Read(ROI_OFFSET, 0), Wrote(ROI_OFFSET, 0x00001001)}},
    {.name = "SetMeasuringRangeHas26Bits",
     .call = [](auto& f) { return f.SetMeasuringRange(0xFFFFFFFF, 0x04000001); },
     .steps = {Wrote(MEASURING_RANGE_START, 0x3FFFFFF), Wrote(MEASURING_RANGE_END, 1)}},
};

TEST_P(FpgaRule, Holds) { Check(GetParam()); }
INSTANTIATE_TEST_SUITE_P(ImageSize, FpgaRule, ::testing::ValuesIn(kSizeRules), FpgaRule::Name);
INSTANTIATE_TEST_SUITE_P(SetImageReadoutParam, FpgaRule, ::testing::ValuesIn(kReadoutRules),
                         FpgaRule::Name);
INSTANTIATE_TEST_SUITE_P(RegionOfInterest, FpgaRule, ::testing::ValuesIn(kRoiRules),
                         FpgaRule::Name);

TEST_F(ZynqFpga, WithoutASensorNothingIsTouched) {
  const LoggedErrors errors;
  DeviceManagerHolder::Instance()->cmos_sensor_.reset();
  EXPECT_FALSE(logic().SetImageSize(1, 2));
  EXPECT_EQ(logic().GetImageWidth(), kAllOnes);
  EXPECT_FALSE(logic().SetImageReadoutParam(1, 2, kDriveMode00));
  EXPECT_EQ(logic().GetCmosMaxDrive(), kAllOnes);
  EXPECT_FALSE(logic().CameraReset());
  EXPECT_FALSE(logic().SetExpDelay());
  EXPECT_THAT(Steps(), ::testing::IsEmpty());
  constexpr std::size_t kCalls = 6;
  EXPECT_EQ(
      errors.lines(),
      std::vector<std::string>(
          kCalls,
          "Neighbours.cpp: FpgaLogic: there is no image sensor, call RegisterHardwareInit first"));
}

}  // namespace
}  // namespace tessaline_test
