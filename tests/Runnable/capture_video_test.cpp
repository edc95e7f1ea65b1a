// The image thread on the virtual board: images arrive in natural order with their header behind
// them, and only if they are newer than the time set.
#include <errno.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>

#include "DeviceManager.h"
#include "Devices/sensor/CmosSensor.h"
#include "Runnable/CaptureVideoStream.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "support/BoardFixture.h"
#include "support/FrameSource.h"
#include "support/LoggedLines.h"
#include "support/Waiting.h"
#include "tessaline/frames.h"

namespace {

using namespace VeltranoSDK;     // NOLINT(google-build-using-namespace)
using namespace tessaline_test;  // NOLINT(google-build-using-namespace)
using std::chrono::milliseconds;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr unsigned kWidth = FrameSource::kWidth;
constexpr unsigned kHeight = FrameSource::kHeight;

// A sensor of a chosen model and region that does not access the hardware.
class StillSensor final : public CmosSensor {
 public:
  explicit StillSensor(CmosSensorModel model) : CmosSensor(model, {kWidth, kHeight}) {}
  bool RegisterInitialize(ReadoutDriveMode) override { return true; }
  bool SetGain(unsigned) override { return true; }
  unsigned GetSensorTemp() override { return 0; }
  unsigned GetSensorVer(unsigned) override { return 0; }
  unsigned GetCameraDelay() override { return 0; }
  float GetExposureTimeUnit() override { return 1; }

 protected:
  bool SetROIImpl(unsigned, unsigned, unsigned, unsigned) override { return true; }
  bool SetReadoutDriveModeImpl(ReadoutDriveMode) override { return true; }
  bool SetReadoutDriveDirectionImpl(ReadoutDriveDirection) override { return true; }
};

struct Received {
  unsigned width, height;
  std::uint64_t frame_id, time_stamp;
};

class ImageThread : public BoardFixture {
 protected:
  ImageThread() : BoardFixture("K3610") {}

  void SetUp() override {
    BoardFixture::SetUp();
    tessaline_board_transcript_enable(0);
    ASSERT_TRUE(SeriesLogicFactory::InitSeriesLogicBySeries(kSeries21));
    UseSensor(kIMX273);
    FrameSource::Prepare();
    FrameSource::Route(FrameSource::kImages);
    video->RegisterBeforeRunFinishFunc([this] { set_up = true; });
  }

  void TearDown() override {
    FrameSource::Trigger(false);
    video->Cancel();
    video->ReleaseResource();
    BoardFixture::TearDown();
  }

  void UseSensor(CmosSensorModel model) {
    sensor = std::make_shared<StillSensor>(model);
    DeviceManagerHolder::Instance()->cmos_sensor_ = sensor;
  }

  void StartThread() {
    video->Start();
    video->Detach();
    ASSERT_TRUE(Eventually([this] { return set_up.load(); }));
  }

  void Collect() {
    video->RegisterImageBufCallback([this](unsigned width, unsigned height, void* data) {
      tessaline_image_header header;
      memcpy(&header, static_cast<const std::byte*>(data) + std::size_t{width} * height,
             sizeof header);
      const Received got{width, height, header.frame_id, header.time_stamp};
      const std::lock_guard lock(mutex);
      received.push_back(got);
    });
  }

  std::size_t Images() {
    const std::lock_guard lock(mutex);
    return received.size();
  }

  LoggedLines log{TESSALINE_LOG_INFO};
  std::shared_ptr<CaptureVideoStream> video = std::make_shared<CaptureVideoStream>();
  std::shared_ptr<StillSensor> sensor;
  std::atomic<bool> set_up{false};
  std::mutex mutex;
  std::vector<Received> received;
};

TEST_F(ImageThread, TellsThatItIsReady) {
  StartThread();
  // The driver rejects a change of the region of interest while it streams.
  EXPECT_THAT(
      log.Take(),
      ElementsAre("INFO Runnable/CaptureVideoStream.cpp: initialize v4l2 succeffully",
                  "ERROR Devices/V4l2Fd.cpp: v4l2 VIDIOC_S_FMT failed: Device or resource busy, "
                  "width1456, height1088"));
}

TEST_F(ImageThread, DeliversImagesInOrder) {
  Collect();
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Images() >= 30; }));
  video->Cancel();
  std::uint64_t next = received.front().frame_id;
  for (const Received& got : received) {
    EXPECT_EQ(got.width, kWidth);
    EXPECT_EQ(got.height, kHeight);
    EXPECT_EQ(got.frame_id, next++);
    EXPECT_GT(got.time_stamp, 0u);
  }
}

TEST_F(ImageThread, RestoresThePixelOrder) {
  // Without a laser the sensor sees noise. With a laser it sees the row of the line, which is a
  // smooth image. Neighbouring pixels are similar only if the blocks are in order.
  for (const char* line : {"907", "934"}) {
    const std::string base = std::string("/sys/class/gpio/gpio") + line;
    for (const auto& [path, text] : std::initializer_list<std::pair<std::string, std::string>>{
             {"/sys/class/gpio/export", line},
             {base + "/direction", "out"},
             {base + "/value", "1"}}) {
      const int fd = open(path.c_str(), O_WRONLY);
      EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
      close(fd);
    }
  }
  Set(fpga::kReg.EXP_TIME_1, 100);
  std::atomic<int> images{0};
  std::atomic<std::size_t> columns_with_line{0};
  video->RegisterImageBufCallback([&](unsigned width, unsigned height, void* data) {
    const auto* pixels = static_cast<const std::uint8_t*>(data);
    std::size_t columns = 0;
    int row_before = -1;
    for (unsigned x = 0; x < width; ++x) {
      unsigned brightest = 0;
      for (unsigned y = 1; y < height; ++y) {
        if (pixels[y * width + x] > pixels[brightest * width + x]) brightest = y;
      }
      const int row = static_cast<int>(brightest);
      columns += row_before >= 0 && std::abs(row - row_before) <= 2;
      row_before = row;
    }
    columns_with_line = columns;
    ++images;
  });
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([&] { return images >= 2; }));
  video->Cancel();
  EXPECT_GT(columns_with_line, kWidth * 9 / 10);
}

TEST_F(ImageThread, DropsImagesUpToTheTimeSet) {
  Collect();
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Images() >= 5; }));
  std::uint64_t now;
  {
    const std::lock_guard lock(mutex);
    now = received.back().time_stamp + 40 * 200000;  // forty images ahead
    received.clear();
  }
  video->SetMinTimeStamp(now);
  ASSERT_TRUE(Eventually([this] { return Images() >= 5; }));
  video->Cancel();
  // Images on their way when the time was set may still have been delivered.
  const auto late = std::count_if(received.begin(), received.end(),
                                  [&](const Received& got) { return got.time_stamp > now; });
  EXPECT_GE(late, 1);
  const auto first_late = std::find_if(received.begin(), received.end(),
                                       [&](const Received& got) { return got.time_stamp > now; });
  EXPECT_LE(first_late - received.begin(), 11) << "more than the driver's buffers";
}

TEST_F(ImageThread, NeverDeliversTimeZeroButTellsOfIt) {
  const LoggedLines debug(TESSALINE_LOG_DEBUG);
  Collect();
  video->SetMinTimeStamp(~0ull);
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([&] { return debug.Count() > 20; }));
  video->Cancel();
  EXPECT_EQ(Images(), 0u);
  EXPECT_THAT(
      debug.Take(),
      Contains(StartsWith("DEBUG Runnable/CaptureVideoStream.cpp: frameId: 1, timeStamp: ")));
}

TEST_F(ImageThread, FollowsTheRegionOfInterest) {
  Collect();
  sensor->SetROI(0, 0, 728, 544);
  FrameSource::SetRegion(728, 544);
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Images() >= 5; }));
  video->Cancel();
  std::uint64_t next = received.front().frame_id;
  for (const Received& got : received) {
    EXPECT_EQ(got.width, 728u);
    EXPECT_EQ(got.height, 544u);
    EXPECT_EQ(got.frame_id, next++);
  }
}

TEST_F(ImageThread, RefusesARegionLargerThanTheFrame) {
  Collect();
  sensor->SetROI(0, 0, 5000, 5000);
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return log.Count() > 3; }));
  sensor->SetROI(0, 0, kWidth, kHeight);
  ASSERT_TRUE(Eventually([this] { return Images() >= 3; }));
  EXPECT_THAT(log.Take(), Contains(HasSubstr("an image of 5000 x 5000 does not fit")));
  EXPECT_GT(video->statistics().Snapshot().malformed, 0u);
}

// The self-test's callback comes before the image's.
TEST_F(ImageThread, CountsTheImageOfAThreadThatIsBeingEndedAsSuppressed) {
  UseSensor(kIMX252);
  std::atomic<bool> ended{false};
  video->RegisterCmos252SelfTestSuccessfullyCallback([&] { ended = video->Cancel(); });
  Collect();
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([&] { return ended.load(); }));
  ASSERT_TRUE(video->WaitUntilGone(20000));
  const CaptureStatistics::Counts counts = video->statistics().Snapshot();
  EXPECT_EQ(counts.dequeued, 1u);
  EXPECT_EQ(counts.suppressed, 1u);
  EXPECT_EQ(Images(), 0u);
}

// The counts belong to the process, not to the thread.
TEST_F(ImageThread, KeepsItsCountsFromStartToStart) {
  Collect();
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Images() >= 3; }));
  video->Cancel();
  ASSERT_TRUE(video->WaitUntilGone(20000));
  video->ReleaseResource();
  const std::uint64_t before = video->statistics().Snapshot().delivered;
  EXPECT_EQ(before, Images());
  set_up = false;
  StartThread();
  ASSERT_TRUE(Eventually([&] { return video->statistics().Snapshot().delivered >= before + 3; }));
}

TEST_F(ImageThread, ReportsTheSelfTestOfAnImx252Once) {
  UseSensor(kIMX252);
  std::atomic<int> reports{0};
  video->RegisterCmos252SelfTestSuccessfullyCallback([&] { ++reports; });
  Collect();
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Images() >= 5; }));
  video->Cancel();
  EXPECT_EQ(reports, 1);
}

TEST_F(ImageThread, ReportsNoSelfTestOfAnotherSensorNorALateOne) {
  std::atomic<int> reports{0};
  Collect();
  video->RegisterCmos252SelfTestSuccessfullyCallback([&] { ++reports; });
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Images() >= 5; }));
  video->Cancel();
  EXPECT_EQ(reports, 0);
}

TEST_F(ImageThread, ASelfTestNobodyIsRegisteredForIsNotMadeUpFor) {
  UseSensor(kIMX252);
  Collect();
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Images() >= 3; }));
  std::atomic<int> reports{0};
  video->RegisterCmos252SelfTestSuccessfullyCallback([&] { ++reports; });
  const std::size_t before = Images();
  ASSERT_TRUE(Eventually([&] { return Images() >= before + 3; }));
  video->Cancel();
  EXPECT_EQ(reports, 0);
}

TEST_F(ImageThread, NeitherCrashesNorSpinsWhenBuffersAreRefused) {
  tessaline_board_fault("video0", "VIDIOC_REQBUFS", 0, 0, ENOMEM);
  StartThread();
  ReallyWait(milliseconds(500));
  const auto lines = log.Take();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0],
            "ERROR Devices/V4l2Fd.cpp: v4l2 VIDIOC_REQBUFS failed: Cannot allocate memory");
  EXPECT_EQ(lines[1], "ERROR Runnable/CaptureVideoStream.cpp: initialize v4l2 error!");
  EXPECT_LT(lines.size(), 15u);
  video->Cancel();
  EXPECT_TRUE(video->WaitUntilGone(5000));
}

TEST_F(ImageThread, WithoutASelectedProductItOnlyComplains) {
  DeviceManagerHolder::Instance()->cmos_sensor_.reset();
  StartThread();
  EXPECT_THAT(log.Take(),
              Contains("ERROR Runnable/CaptureVideoStream.cpp: initialize v4l2 error!"));
  video->Cancel();
  EXPECT_TRUE(video->WaitUntilGone(5000));
}

TEST_F(ImageThread, ClosedItRefusesAFormat) {
  EXPECT_FALSE(video->SetV4l2Fmt(100, 200));
  EXPECT_TRUE(video->VideoBufClear());
  EXPECT_THAT(log.Take(),
              ElementsAre("ERROR Devices/V4l2Fd.cpp: v4l2 VIDIOC_TRY_FMT failed: Bad file "
                          "descriptor, width100, height200"));
}

TEST_F(ImageThread, ReleasesTheDeviceAfterACancel) {
  const int before = OpenDescriptors();
  Collect();
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Images() >= 1; }));
  FrameSource::Trigger(false);
  EXPECT_TRUE(video->Cancel());
  EXPECT_TRUE(video->ReleaseResource());
  EXPECT_TRUE(tessaline_test::NoDescriptorsAreLeft(before));
}

}  // namespace
