// The capture threads with drivers that grant a different number of buffers than requested, or
// cannot capture at all. Also settings that change while a thread waits in its driver.
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DeviceManager.h"
#include "Devices/capture/UdmaBuf.h"
#include "Devices/sensor/CmosSensor.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "support/BoardFixture.h"
#include "support/ChangedDriver.h"
#include "support/FrameSource.h"
#include "support/LoggedLines.h"
#include "support/Waiting.h"
#include "tessaline/frames.h"

namespace {

using namespace VeltranoSDK;     // NOLINT(google-build-using-namespace)
using namespace tessaline_test;  // NOLINT(google-build-using-namespace)
using std::chrono::milliseconds;
using ::testing::ElementsAre;

class CaptureDriver : public BoardFixture {
 protected:
  CaptureDriver() : BoardFixture("K3610") {}

  void SetUp() override {
    BoardFixture::SetUp();
    ASSERT_TRUE(SeriesLogicFactory::InitSeriesLogicBySeries(kSeries21));
    ASSERT_TRUE(DeviceManagerHolder::Instance()->Init());
    FrameSource::Prepare();
    log.Take();
    tessaline_board_transcript_clear();
  }

  void TearDown() override {
    FrameSource::Trigger(false);
    for (Utility::Runnable* thread : {static_cast<Utility::Runnable*>(video.get()),
                                      static_cast<Utility::Runnable*>(strip.get())}) {
      thread->Cancel();
    }
    video->ReleaseResource();
    strip->ReleaseResource();
    changed_driver = nullptr;
    BoardFixture::TearDown();
  }

  // Returns when its device is set up, successfully or not.
  static void Run(Utility::Runnable& thread) {
    const auto set_up = std::make_shared<std::atomic<bool>>(false);
    thread.RegisterBeforeRunFinishFunc([set_up] { *set_up = true; });
    thread.Start();
    thread.Detach();
    ASSERT_TRUE(Eventually([&] { return set_up->load(); }));
  }

  static std::size_t EventCount(const std::string& event) {
    std::size_t count = 0;
    for (const std::string& seen : Events()) count += seen.starts_with(event);
    return count;
  }

  const LoggedLines log{TESSALINE_LOG_INFO};
  std::shared_ptr<CaptureVideoStream> video = std::make_shared<CaptureVideoStream>();
  std::shared_ptr<CaptureStripStream> strip = std::make_shared<CaptureStripStream>();
};

// --- Buffers -----------------------------------------------------------------------------

TEST_F(CaptureDriver, ThatGrantsFewerBuffersIsCapturedWithThose) {
  GrantBuffers(2);
  FrameSource::Route(FrameSource::kImages);
  std::atomic<int> images{0};
  video->RegisterImageBufCallback([&](unsigned, unsigned, void*) { ++images; });
  Run(*video);
  EXPECT_EQ(EventCount("video0 VIDIOC_QBUF"), 2u);
  tessaline_board_transcript_enable(0);
  FrameSource::Trigger(true);
  EXPECT_TRUE(Eventually([&] { return images >= 10; }));
  video->Cancel();
}

TEST_F(CaptureDriver, ThatGrantsFewerStripBuffersIsCapturedWithThose) {
  GrantBuffers(2);
  FrameSource::Route(FrameSource::kStrips);
  std::atomic<int> buffers{0};
  strip->RegisterStripBufCallback([&](unsigned, unsigned, void*) { ++buffers; });
  Run(*strip);
  EXPECT_EQ(EventCount("video1 VIDIOC_QBUF"), 2u);
  tessaline_board_transcript_enable(0);
  FrameSource::Trigger(true);
  EXPECT_TRUE(Eventually([&] { return buffers >= 10; }));
  strip->Cancel();
}

// The set-up is over. The thread has no buffers to deliver, but is still running.
TEST_F(CaptureDriver, ThatGrantsNoBuffersIsNoDevice) {
  GrantBuffers(0);
  std::atomic<int> calls{0};
  video->RegisterImageBufCallback([&](unsigned, unsigned, void*) { ++calls; });
  strip->RegisterStripBufCallback([&](unsigned, unsigned, void*) { ++calls; });
  Run(*video);
  Run(*strip);
  EXPECT_EQ(EventCount("video0 VIDIOC_QBUF"), 0u);
  EXPECT_EQ(EventCount("video1 VIDIOC_QBUF"), 0u);
  FrameSource::Route(FrameSource::kImages);
  FrameSource::Trigger(true);
  ReallyWait(milliseconds(50));
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(video->VideoBufClear());
  EXPECT_TRUE(strip->StripBufClear());
  EXPECT_TRUE(video->Cancel());
  EXPECT_TRUE(strip->Cancel());
}

TEST_F(CaptureDriver, ThatCannotCaptureIsTold) {
  RefuseToCapture();
  const int before = OpenDescriptors();
  Run(*video);
  Run(*strip);
  const auto told = log.Take();
  const auto times = [&told](const std::string& line) {
    return std::count(told.begin(), told.end(), line);
  };
  EXPECT_EQ(times("ERROR Devices/V4l2Fd.cpp: Device is not a video capture device!"), 2);
  EXPECT_EQ(times("ERROR Runnable/CaptureVideoStream.cpp: initialize v4l2 error!"), 1);
  EXPECT_EQ(times("ERROR Runnable/CaptureStripStream.cpp: initialize v4l2 error!"), 1);
  EXPECT_EQ(EventCount("video0 VIDIOC_TRY_FMT"), 1u) << "the region's format is asked for";
  EXPECT_EQ(EventCount("video1 VIDIOC_TRY_FMT"), 0u);
  video->Cancel();
  strip->Cancel();
  video->ReleaseResource();
  strip->ReleaseResource();
  EXPECT_TRUE(tessaline_test::NoDescriptorsAreLeft(before));
}

TEST_F(CaptureDriver, TheDmaAreaTellsThatItIsMapped) {
  const UdmaBuf area(0, 4096);
  EXPECT_THAT(log.Take(), ElementsAre("INFO Devices/UdmaBuf.cpp: UdmaBuf mmap succuffully!"));
}

// --- Settings while a thread waits -------------------------------------------------------

struct Image {
  std::uint64_t id, time_stamp;
};

class SteadyImages : public CaptureDriver {
 protected:
  // Returns the first `count` images. Calls `at` with each image on the capture thread.
  std::vector<Image> Collect(std::size_t count, std::function<void(const Image&)> at) {
    FrameSource::Route(FrameSource::kImages);
    video->RegisterImageBufCallback([=, this](unsigned width, unsigned height, void* data) {
      tessaline_image_header header;
      memcpy(&header, static_cast<const std::byte*>(data) + std::size_t{width} * height,
             sizeof header);
      const Image image{header.frame_id, header.time_stamp};
      at(image);
      const std::lock_guard lock(mutex);
      images.push_back(image);
    });
    tessaline_board_transcript_enable(0);
    Run(*video);
    FrameSource::Trigger(true);
    EXPECT_TRUE(Eventually([&] {
      const std::lock_guard lock(mutex);
      return images.size() >= count;
    }));
    video->Cancel();
    images.resize(count);
    return images;
  }

  std::mutex mutex;
  std::vector<Image> images;
};

// Images follow each other at the trigger's period.
constexpr std::uint64_t kPeriod = 200000;

TEST_F(SteadyImages, TheOneOfTheTimeSetIsNotDelivered) {
  const auto got = Collect(4, [this](const Image& image) {
    if (image.id == 2) video->SetMinTimeStamp(image.time_stamp + kPeriod);
  });
  EXPECT_EQ(got[1].time_stamp - got[0].time_stamp, kPeriod);
  EXPECT_EQ(got[1].id, 2u);
  EXPECT_EQ(got[2].id, 4u);
  EXPECT_EQ(got[2].time_stamp - got[1].time_stamp, 2 * kPeriod);
}

TEST_F(SteadyImages, TheOneJustAfterTheTimeSetIsDelivered) {
  const auto got = Collect(4, [this](const Image& image) {
    if (image.id == 2) video->SetMinTimeStamp(image.time_stamp + kPeriod - 1);
  });
  EXPECT_EQ(got[2].id, 3u);
}

// The thread waits for a buffer when the mode changes. It reads the next buffer in the new mode.
TEST_F(CaptureDriver, AWriteModeSetDuringTheWaitCountsForTheBufferThatComes) {
  FrameSource::Route(FrameSource::kStrips);
  struct Strips {
    unsigned count, bytes;
    std::uint64_t points;
  };
  std::mutex mutex;
  std::vector<Strips> received;
  strip->RegisterStripBufCallback([&](unsigned count, unsigned bytes, void* data) {
    tessaline_strip_header header;
    memcpy(&header, data, sizeof header);
    const std::lock_guard lock(mutex);
    received.push_back({count, bytes, header.point_count});
  });
  tessaline_board_set_strips_per_buffer(1);
  Run(*strip);
  ReallyWait(milliseconds(20));

  Set(fpga::kReg.STRIP_WRIMEM_STRATEGY, 1);
  strip->SetWriteMemMode(1);
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([&] {
    const std::lock_guard lock(mutex);
    return !received.empty();
  }));
  strip->Cancel();
  EXPECT_EQ(received[0].count, 1u);
  EXPECT_EQ(received[0].bytes, 32 + 4 * received[0].points);
}

}  // namespace
