// Start-up as an application does it, and the delivery of events after it.
#include <dlfcn.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <chrono>

#include "api/HeldImages.h"
#include "api/SelfTestImage.h"
#include "api/StartedBoard.h"
#include "support/LoggedLines.h"

namespace {

using std::chrono::milliseconds;
using tessaline_test::BoardFixture;
using tessaline_test::Eventually;
using tessaline_test::HeldImages;
using tessaline_test::LoggedErrors;
using tessaline_test::Read;
using tessaline_test::ReallyWait;
using tessaline_test::SelfTestImage;
using tessaline_test::Slept;
using tessaline_test::StartedBoard;
using tessaline_test::Wrote;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace fpga = VeltranoSDK::fpga;

using Lines = std::vector<std::string>;

std::atomic<bool> mutex_init_fails = false;

class Startup : public BoardFixture {
 protected:
  Startup() : BoardFixture("K3610") {}
};

Lines LightsOff() {
  Lines lines;
  for (const char* line : {"961", "962", "963", "969"}) {
    lines.push_back(std::string("gpio write export ") + line);
    lines.push_back(std::string("gpio write gpio") + line + "/direction out");
    lines.push_back(std::string("gpio write gpio") + line + "/value 0");
  }
  return lines;
}

void Route(Lines& lines, fpga::Block block, std::size_t open_port, std::uint32_t source) {
  for (std::size_t port = 0; port < fpga::kStreamSwitchPorts; ++port) {
    lines.push_back(Wrote(fpga::StreamSwitchPort(block, port),
                          port == open_port ? source : fpga::kStreamSwitchPortOff));
  }
}

// All accesses before the first one to the sensor.
Lines FpgaConfiguration() {
  Lines lines;
  Route(lines, fpga::Block::kImage2, 1, 0);
  lines.push_back(Wrote(fpga::kReg.COLLECT_MODE, 1));
  lines.push_back(Wrote(fpga::StreamSwitchControl(fpga::Block::kImage2), 2));
  Route(lines, fpga::Block::kImage4, 0, 1);
  lines.push_back(Wrote(fpga::StreamSwitchControl(fpga::Block::kImage4), 2));
  const Lines rest{Read(fpga::kReg.EXPOSURE_NUM, 1),
                   Wrote(fpga::kReg.EXPOSURE_NUM, 1),
                   Read(fpga::kReg.EXPOSURE_NUM, 1),
                   Wrote(fpga::kReg.EXPOSURE_NUM, 6000u << 3 | 1),
                   Read(fpga::kReg.CMOS_WORK_MODE, 0),
                   Wrote(fpga::kReg.CMOS_WORK_MODE, 1),
                   Slept(50000),
                   Wrote(fpga::kReg.CMOS_WORK_MODE, 0),
                   Slept(50000),
                   Wrote(fpga::kReg.CMOS_WORK_MODE, 1),
                   Slept(50000),
                   Read(fpga::kReg.CMOS_WORK_MODE, 1),
                   Wrote(fpga::kReg.CMOS_WORK_MODE, 3),
                   Slept(1000),
                   Read(fpga::kReg.TRIGGER_CTRL, 0),
                   Wrote(fpga::kReg.TRIGGER_CTRL, 3),
                   Read(fpga::kReg.TRIGGER_CTRL, 3),
                   Wrote(fpga::kReg.TRI_SPACING, 200000),
                   Read(fpga::kReg.TRIGGER_CTRL, 3),
                   Wrote(fpga::kReg.TRIGGER_CTRL, 3)};
  lines.insert(lines.end(), rest.begin(), rest.end());
  return lines;
}

TEST_F(Startup, SwitchesTheLightsOffThenConfiguresTheFpgaThenTheSensor) {
  GetLibVersion("K3610");
  log_set_quiet(true);
  ASSERT_EQ(RegisterHardwareInit(), 0);

  Lines expected = LightsOff();
  for (const std::string& line : FpgaConfiguration()) {
    expected.push_back(line.starts_with("sleep") ? line : "fpga " + line);
  }
  Lines before_sensor = Events();
  before_sensor.erase(
      std::find_if(before_sensor.begin(), before_sensor.end(),
                   [](const std::string& line) { return line.starts_with("i2c-0 "); }),
      before_sensor.end());
  EXPECT_THAT(before_sensor, ElementsAreArray(expected));
}

TEST_F(Startup, SetsTheLaserModeBetweenSensorAndCapture) {
  Set(fpga::kReg.LASER_CTRL, 0xFFFFFFFF);
  GetLibVersion("K3610");
  log_set_quiet(true);
  ASSERT_EQ(RegisterHardwareInit(), 0);

  const Lines events = Events();
  const auto laser =
      std::find(events.begin(), events.end(), "fpga " + Wrote(fpga::kReg.LASER_CTRL, 1));
  ASSERT_NE(laser, events.end());
  EXPECT_THAT(Lines(events.begin(), laser), Each(Not(StartsWith("video"))));
  EXPECT_THAT(Lines(laser, events.end()), Each(Not(StartsWith("i2c-0"))));
  EXPECT_THAT(Lines(laser, events.end()), Contains("video0 VIDIOC_STREAMON"));
  EXPECT_THAT(Lines(laser, events.end()), Contains("video1 VIDIOC_STREAMON"));
}

TEST_F(Startup, WithoutAModelIsOneErrorAndCanBeDoneAgain) {
  const LoggedErrors errors;
  EXPECT_EQ(RegisterHardwareInit(), -1);
  EXPECT_THAT(errors.lines(), ElementsAre(HasSubstr("RegisterHardwareInit: ")));
  EXPECT_THAT(Events(), IsEmpty());

  GetLibVersion("K3610");
  EXPECT_EQ(RegisterHardwareInit(), 0);
  EXPECT_EQ(GetTriSpacing(), 200000u);
}

TEST_F(Startup, WithAnUnknownModelIsOneError) {
  GetLibVersion("K9999");
  const LoggedErrors errors;
  EXPECT_EQ(RegisterHardwareInit(), -1);
  EXPECT_THAT(errors.lines(), ElementsAre(HasSubstr("RegisterHardwareInit: ")));
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(StartedBoard, IsNotStartedASecondTime) {
  EXPECT_EQ(RegisterHardwareInit(), -1);
  EXPECT_THAT(Errors(), ElementsAre(HasSubstr("RegisterHardwareInit: ")));
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_EQ(SetTriSpacing(10), 0);
}

TEST_F(Startup, EndsWhenTheRegisterLockCannotBeMade) {
  GetLibVersion("K3610");
  mutex_init_fails = true;
  EXPECT_EQ(RegisterHardwareInit(), -1);
  EXPECT_EQ(Printed(), "fpga_contol mutex init failed!\n");
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_EQ(SetTriSpacing(10), -1);
}

struct Capture {
  const char* device;
  const char* stream;
};
class StartupWithout : public Startup, public ::testing::WithParamInterface<Capture> {};

TEST_P(StartupWithout, ACaptureDeviceReturnsAllTheSame) {
  const auto [device, stream] = GetParam();
  tessaline_board_fault(device, "open", 0, 0, EACCES);
  GetLibVersion("K3610");
  const LoggedErrors errors;
  EXPECT_EQ(RegisterHardwareInit(), 0);
  EXPECT_THAT(errors.lines(), Contains(HasSubstr("v4l2 open file failed: Permission denied")));
  EXPECT_THAT(errors.lines(), Contains(StartsWith(std::string("Runnable/Capture") + stream +
                                                  "Stream.cpp: initialize v4l2 error!")));
  const std::string other = std::string(device) == "video0" ? "video1" : "video0";
  EXPECT_THAT(Events(), Contains(other + " VIDIOC_STREAMON"));
  EXPECT_EQ(SetTriSpacing(10), 0);
}

INSTANTIATE_TEST_SUITE_P(Api, StartupWithout,
                         ::testing::Values(Capture{"video0", "Video"}, Capture{"video1", "Strip"}),
                         [](const auto& row) { return std::string(row.param.stream); });

// A sensor that does not answer is reported, and everything else is started.
TEST_F(Startup, GoesOnWithoutTheSensor) {
  tessaline_board_chip_present("sensor", 0);
  Set(fpga::kReg.LASER_CTRL, 0xFFFFFFFF);
  GetLibVersion("K3610");
  log_set_quiet(true);
  EXPECT_EQ(RegisterHardwareInit(), 0);
  EXPECT_EQ(Printed(), "init error 0x3000\n");
  EXPECT_THAT(Events(), Contains("fpga " + Wrote(fpga::kReg.LASER_CTRL, 1)));
  EXPECT_THAT(Events(), Contains("video0 VIDIOC_STREAMON"));
  EXPECT_THAT(Events(), Contains("video1 VIDIOC_STREAMON"));
}

class StartupOf : public BoardFixture, public ::testing::WithParamInterface<const char*> {
 protected:
  StartupOf() : BoardFixture(GetParam()) {}
};

TEST_P(StartupOf, EveryProductInTheCatalogueSucceeds) {
  GetLibVersion(GetParam());
  log_set_quiet(true);
  RegisterEventHandler(TESSALINE_EVENT_IMAGE,
                       reinterpret_cast<tessaline_event_handler>(
                           +[](unsigned, unsigned, void*) { SelfTestImage::Handled(); }));
  const SelfTestImage tried_out(GetParam());
  EXPECT_EQ(RegisterHardwareInit(), 0);
  EXPECT_THAT(Printed(), Not(HasSubstr("error")));
  EXPECT_THAT(Events(), Contains("video0 VIDIOC_STREAMON"));
  EXPECT_THAT(Events(), Contains("video1 VIDIOC_STREAMON"));
  EXPECT_EQ(GetTriSpacing(), 200000u);
}

INSTANTIATE_TEST_SUITE_P(Api, StartupOf,
                         ::testing::Values("K3610", "K3620", "K3630", "K3640", "K3650", "K3660",
                                           "K3710", "K3720", "K3730", "K3740", "K3710ch16",
                                           "K3710ch16arm_rebuild", "K3810", "K3820", "K3830",
                                           "K3840", "K3850", "K3860", "K3910", "K3920",
                                           "K3910arm_rebuild", "K3920arm_rebuild", "K4010", "K4020",
                                           "K4030", "K4040", "K4010arm_rebuild",
                                           "K4040arm_rebuild"),
                         [](const auto& row) { return std::string(row.param); });

// --- Events ------------------------------------------------------------------------------

struct Frame {
  std::atomic<unsigned int> calls, first, second;
  void Arrived(unsigned int a, unsigned int b) {
    first = a;
    second = b;
    ++calls;
  }
};
Frame image, strips;

void OnImage(unsigned int width, unsigned int height, void*) { image.Arrived(width, height); }
void OnStrips(unsigned int count, unsigned int bytes, void*) { strips.Arrived(count, bytes); }

std::atomic<unsigned int> triggers, arrivals, nothings;
void OnTrigger(unsigned int) { ++triggers; }
void OnArrived() { ++arrivals; }
void OnNothing() { ++nothings; }

template <typename Handler>
tessaline_event_handler Generic(Handler handler) {
  return reinterpret_cast<tessaline_event_handler>(handler);
}

// In external mode without an input signal, only the software triggers.
void TriggerOnce() {
  SetTriMode(2);
  SetGlobalControl(1);
  TricontrolSWTrigger();
}

TEST_F(StartedBoard, DeliversOneImagePerTrigger) {
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, Generic(OnImage));
  RegisterEventHandler(TESSALINE_EVENT_STRIP, Generic(OnStrips));
  TriggerOnce();
  EXPECT_TRUE(Eventually([] { return image.calls == 1; }));
  ReallyWait(milliseconds(50));
  EXPECT_EQ(image.calls, 1u);
  EXPECT_EQ(image.first, 1456u);
  EXPECT_EQ(image.second, 1088u);
  EXPECT_EQ(strips.calls, 0u);
}

std::atomic<int> slack_of_the_capture_thread = 0;
void NoteTimerSlack(unsigned, unsigned, void*) {
  slack_of_the_capture_thread = prctl(PR_GET_TIMERSLACK);
}

// Start-up sleeps more exactly, but must not change the timer slack of other threads.
TEST_F(Startup, LeavesTheTimerSlackOfTheCallerAndOfTheCaptureThreadsAlone) {
  constexpr int kNanoseconds = 77777;
  ASSERT_EQ(prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(kNanoseconds)), 0);
  GetLibVersion("K3610");
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, Generic(NoteTimerSlack));
  ASSERT_EQ(RegisterHardwareInit(), 0);
  EXPECT_EQ(prctl(PR_GET_TIMERSLACK), kNanoseconds);
  TriggerOnce();
  EXPECT_TRUE(Eventually([] { return slack_of_the_capture_thread != 0; }));
  EXPECT_EQ(slack_of_the_capture_thread, kNanoseconds);
}

TEST_F(StartedBoard, DeliversStripsInCollectModeZero) {
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, Generic(OnImage));
  RegisterEventHandler(TESSALINE_EVENT_STRIP, Generic(OnStrips));
  tessaline_board_set_strips_per_buffer(1);
  SetCollectMode(0);
  TriggerOnce();
  EXPECT_TRUE(Eventually([] { return strips.calls == 1; }));
  EXPECT_EQ(strips.first, 1u);
  EXPECT_GE(strips.second, 32u);
  EXPECT_EQ(image.calls, 0u);
}

TEST_F(StartedBoard, CountsStripsNobodyTakes) {
  RegisterEventHandler(TESSALINE_EVENT_STRIP, Generic(OnStrips));
  RegisterEventHandler(TESSALINE_EVENT_STRIP, nullptr);
  tessaline_board_set_strips_per_buffer(1);
  SetCollectMode(0);
  TriggerOnce();
  EXPECT_TRUE(Eventually([] { return GetStripReleaseNum() == 1; }));
  EXPECT_EQ(strips.calls, 0u);
  EXPECT_EQ(ResetStripReleaseNum(), 0);
  EXPECT_EQ(GetStripReleaseNum(), 0u);
}

// Every event arrives, and its registered handlers are called.
TEST_F(StartedBoard, IgnoresAHandlerOfNoEvent) {
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, Generic(OnImage));
  RegisterEventHandler(TESSALINE_EVENT_STRIP, Generic(OnStrips));
  RegisterEventHandler(TESSALINE_EVENT_EXTERNAL_TRIGGER, Generic(OnTrigger));
  RegisterEventHandler(TESSALINE_EVENT_DA_ARRIVED, OnArrived);
  for (const int type : {-1, 4, 5, 7, 1000}) RegisterEventHandler(type, OnNothing);

  TriggerOnce();
  EXPECT_TRUE(Eventually([] { return image.calls == 1; }));
  tessaline_board_set_strips_per_buffer(1);
  SetCollectMode(0);
  TricontrolSWTrigger();
  EXPECT_TRUE(Eventually([] { return strips.calls == 1; }));
  EXPECT_EQ(SetExtTriggerState(1), 0);
  tessaline_board_external_trigger(1);
  EXPECT_TRUE(Eventually([] { return triggers == 1; }));
  EXPECT_EQ(SetDADelayState(1), 0);
  tessaline_board_da_arrived();
  EXPECT_TRUE(Eventually([] { return arrivals == 1; }));
  EXPECT_EQ(nothings, 0u);
}

TEST_F(StartedBoard, WithoutAHandlerImagesGoBackToTheDriver) {
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, Generic(OnImage));
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, nullptr);
  TriggerOnce();
  const auto requeued = [] {
    const Lines events = Events();
    return std::ranges::count_if(
        events, [](const std::string& line) { return line.starts_with("video0 VIDIOC_QBUF"); });
  };
  EXPECT_TRUE(Eventually([&] { return requeued() == 1; }));
  EXPECT_EQ(image.calls, 0u);
  EXPECT_THAT(Errors(), IsEmpty());

  RegisterEventHandler(TESSALINE_EVENT_IMAGE, Generic(OnImage));
  TricontrolSWTrigger();
  EXPECT_TRUE(Eventually([] { return image.calls == 1; }));
}

// The second image is exposed before the stop and would be handled after it.
TEST_F(StartedBoard, DropsImagesFromBeforeTheStop) {
  HeldImages::StopBetweenTwo();
  HeldImages::TriggerOnce();
  EXPECT_THAT(HeldImages::Delivered(2), ElementsAre(1u, 3u));
}

}  // namespace

// Replaces the C library's function for the whole program, so that one lock fails.
extern "C" int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes)
#if defined(__GLIBC__)
    __THROW
#endif
{
  static const auto real = reinterpret_cast<int (*)(pthread_mutex_t*, const pthread_mutexattr_t*)>(
      dlsym(RTLD_NEXT, "pthread_mutex_init"));
  if (mutex == &fpga_contol && mutex_init_fails) return ENOMEM;
  return real(mutex, attributes);
}
