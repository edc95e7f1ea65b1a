// Threads that wait in the kernel for their devices, and how they end.
#include <gtest/gtest.h>
#include <linux/videodev2.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "DeviceManager.h"
#include "Devices/capture/UdmaBuf.h"
#include "Devices/capture/V4l2Fd.h"
#include "Devices/capture/V4l2FdUserPtr.h"
#include "Devices/capture/V4l2FdUserPtrSync.h"
#include "Runnable/RunnableObjectManager.h"
#include "SystemSignalHandle.h"
#include "support/Files.h"
#include "support/FpgaFrames.h"
#include "support/Measured.h"
#include "support/Silence.h"
#include "tessaline/tessaline.h"
#include "thread/EndGuard.h"

namespace {

using namespace kernel_test;
using namespace VeltranoSDK;  // NOLINT(google-build-using-namespace)
using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

template <typename Condition>
bool Soon(Condition condition) {
  const auto start = Clock::now();
  while (!condition()) {
    if (Since(start) > 20) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

TEST(WaitingForABuffer, AThreadEndsWhenAskedAHundredTimes) {
  log_set_quiet(true);
  const Silence silence;
  GetLibVersion("K3610");
  ASSERT_TRUE(DeviceManagerHolder::Instance()->Init());
  std::vector<double> seconds;
  for (int i = 0; i < 100; ++i) {
    const auto stream = std::make_shared<CaptureStripStream>();
    stream->Start();
    stream->Detach();
    ASSERT_TRUE(Soon([] { return ThreadsWaitInPoll(getpid(), 1); })) << "round " << i;
    const auto start = Clock::now();
    ASSERT_TRUE(stream->Cancel());
    ASSERT_TRUE(stream->WaitUntilGone(20000)) << "round " << i;
    seconds.push_back(Since(start));
    ASSERT_TRUE(stream->ReleaseResource());
  }
  ExpectEachWithinASecond("end of a thread that waits for a buffer", seconds);
}

// Does what RegisterHardwareInit does, except for the sensor's programming.
[[noreturn]] void StartCapturing() {
  std::freopen("/dev/null", "w", stdout);
  GetLibVersion("K3610");
  DeviceManagerHolder::Instance()->Init();
  const auto* runnables = RunnableObjectManagerHolder::Instance();
  runnables->video_->Start();
  runnables->strip_->Start();
  runnables->video_->Detach();
  runnables->strip_->Detach();
  EndGuard::Start();
  InstallSystemSignalHandle();
  for (;;) pause();
}

TEST(WaitingForABuffer, SigintEndsTheProcessAHundredTimes) {
  log_set_quiet(true);
  const Silence silence;
  std::vector<double> seconds;
  for (int i = 0; i < 100; ++i) {
    const pid_t child = fork();
    if (child == 0) StartCapturing();
    ASSERT_TRUE(Soon([=] { return ThreadsWaitInPoll(child, 2); })) << "round " << i;
    const auto start = Clock::now();
    kill(child, SIGINT);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    seconds.push_back(Since(start));
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
  }
  ExpectEachWithinASecond("SIGINT to the end of the process", seconds);
}

template <typename Device>
class Flavour : public ::testing::Test {};
using Flavours =
    ::testing::Types<DevFOps::V4l2Fd, DevFOps::V4l2FdUserPtr, DevFOps::V4l2FdUserPtrSync>;
TYPED_TEST_SUITE(Flavour, Flavours);

// Strips of 1024 x 640 in the driver's memory and in a DMA area.
TYPED_TEST(Flavour, CapturesEveryByte) {
  log_set_quiet(true);
  constexpr unsigned kStrips = 4, kPoints = 900, kFrames = 60;
  LoopedVideo video(1, kK3610.strip_width, kK3610.strip_height);
  frames::SendStrips(video, kK3610, kStrips, kPoints);
  const auto expected = frames::Strips(kStrips, kPoints);
  const std::size_t strip_bytes = expected.size() / kStrips;
  const std::size_t end = std::size_t{kK3610.strip_width} * kK3610.strip_height;

  TypeParam device;
  ASSERT_TRUE(device.Open("/dev/video1"));
  ASSERT_TRUE(device.SetFmt(kK3610.strip_width, kK3610.strip_height));
  ASSERT_TRUE(device.ReqBufs(18));
  ASSERT_TRUE(device.StreamOn());
  const auto start = Clock::now();
  unsigned filled = 0;
  for (unsigned frame = 0; frame < kFrames; ++frame) {
    std::byte* data = device.DqBuf();
    ASSERT_NE(data, nullptr);
    std::uint64_t count;
    std::memcpy(&count, data + end - sizeof count, sizeof count);
    if (count != 0) {
      ++filled;
      EXPECT_EQ(count, kStrips);
      for (unsigned strip = 0; strip < kStrips; ++strip) {
        const std::size_t at = strip * strip_bytes + sizeof(tessaline_strip_header);
        EXPECT_EQ(std::memcmp(data + at, expected.data() + at,
                              strip_bytes - sizeof(tessaline_strip_header)),
                  0);
      }
    }
    ASSERT_TRUE(device.QBuf());
  }
  Measured("frames of 1024 x 640", kFrames / Since(start), "per second");
  EXPECT_GT(filled, kFrames / 2);
  unsigned index = 99;
  ASSERT_NE(device.DqBuf(index), nullptr);
  EXPECT_LT(index, 18u);
  EXPECT_FALSE(device.SetFmt(640, 480)) << "while streaming";
  EXPECT_TRUE(device.QBuf(index));
  EXPECT_FALSE(device.QBuf(index)) << "queued already";
  EXPECT_TRUE(device.StreamOff());
  EXPECT_TRUE(device.Close());
}

TEST(DmaArea, IsSynchronisedThroughTheDriversAttributes) {
  log_set_quiet(true);
  const std::string attributes = "/sys/class/u-dma-buf/udmabuf0/";
  UdmaBuf area(0, 4 << 20);
  ASSERT_TRUE(area.IsMapped());
  const auto number = [&](const char* name) { return std::stoul(ReadLine(attributes + name)); };
  const auto for_cpu = number("sync_for_cpu");
  const auto for_device = number("sync_for_device");
  area.Sync(4096, 8192, UdmaBuf::kFromDevice);
  EXPECT_EQ(number("sync_offset"), 8192u);
  EXPECT_EQ(number("sync_size"), 4096u);
  EXPECT_EQ(number("sync_direction"), 2u);
  EXPECT_EQ(number("sync_for_cpu"), for_cpu + 1);
  EXPECT_EQ(number("sync_for_device"), for_device);
  area.Sync(8, 4088, UdmaBuf::kToDevice);
  EXPECT_EQ(number("sync_for_cpu"), for_cpu + 1);
  EXPECT_EQ(number("sync_for_device"), for_device + 1);
  area.SetSyncMode(2);
  EXPECT_EQ(number("sync_mode"), 2u);
}

}  // namespace
