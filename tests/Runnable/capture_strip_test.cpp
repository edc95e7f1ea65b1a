// The strip thread on the virtual board: every buffer reaches the application once, in place, and
// is returned with its marker cleared.
#include <errno.h>
#include <gmock/gmock.h>
#include <sys/mman.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>

#include "DeviceManager.h"
#include "Devices/capture/V4l2Base.h"
#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/CmosSensor.h"
#include "Runnable/CaptureStripStream.h"
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
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr std::size_t kBufferBytes = 1024 * 640;

// What the application received from one buffer.
struct Received {
  unsigned strips;
  unsigned bytes;
  std::uint64_t first_id;
  std::uint64_t last_id;
  std::uint32_t count_field;
  unsigned walked_bytes;
};

class StripThread : public BoardFixture {
 protected:
  StripThread() : BoardFixture("K3610") {}

  void SetUp() override {
    BoardFixture::SetUp();
    tessaline_board_transcript_enable(0);
    ASSERT_TRUE(SeriesLogicFactory::InitSeriesLogicBySeries(kSeries21));
    ASSERT_TRUE(DeviceManagerHolder::Instance()->Init());
    FrameSource::Prepare();
    FrameSource::Route(FrameSource::kStrips);
    strip->RegisterBeforeRunFinishFunc([this] { set_up = true; });
  }

  void TearDown() override {
    FrameSource::Trigger(false);
    strip->Cancel();
    strip->ReleaseResource();
    BoardFixture::TearDown();
  }

  void StartThread() {
    strip->Start();
    strip->Detach();
    ASSERT_TRUE(Eventually([this] { return set_up.load(); }));
  }

  void Collect(unsigned bytes_per_point = 8) {
    strip->RegisterStripBufCallback([=, this](unsigned strips, unsigned bytes, void* data) {
      Received got{strips, bytes, 0, 0, 0, 0};
      const auto* buffer = static_cast<const std::byte*>(data);
      for (unsigned i = 0; i < strips; ++i) {
        tessaline_strip_header header;
        memcpy(&header, buffer + got.walked_bytes, sizeof header);
        if (i == 0) got.first_id = header.frame_id;
        got.last_id = header.frame_id;
        got.walked_bytes +=
            static_cast<unsigned>(sizeof header + bytes_per_point * header.point_count);
      }
      const std::size_t count_at = kBufferBytes - (bytes_per_point == 4 ? 4 : 8);
      memcpy(&got.count_field, buffer + count_at, sizeof got.count_field);
      const std::lock_guard lock(mutex);
      received.push_back(got);
    });
  }

  std::size_t Buffers() {
    const std::lock_guard lock(mutex);
    return received.size();
  }

  static unsigned Lost() {
    struct tessaline_board_stream_stats stats {};
    tessaline_board_stream_stats(1, &stats);
    return static_cast<unsigned>(stats.lost);
  }

  LoggedLines log{TESSALINE_LOG_INFO};
  std::shared_ptr<CaptureStripStream> strip = std::make_shared<CaptureStripStream>();
  std::atomic<bool> set_up{false};
  std::mutex mutex;
  std::vector<Received> received;
};

TEST_F(StripThread, TellsThatItIsReady) {
  StartThread();
  EXPECT_THAT(log.Take(),
              ElementsAre("INFO Runnable/CaptureStripStream.cpp: initialize v4l2 succeffully"));
}

TEST_F(StripThread, DeliversEveryStripOnceAndInOrder) {
  Collect();
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Buffers() >= 100; }));
  FrameSource::Trigger(false);
  strip->Cancel();
  std::uint64_t next = received.front().first_id;
  for (const Received& got : received) {
    EXPECT_EQ(got.first_id, next);
    EXPECT_EQ(got.strips, got.count_field);
    EXPECT_EQ(got.bytes, got.walked_bytes);
    EXPECT_EQ(got.last_id, got.first_id + got.strips - 1);
    next = got.last_id + 1;
  }
  // The thread may have walked one more buffer when the delivery ended.
  EXPECT_GE(strip->LastFrameId(), received.back().last_id);
  EXPECT_EQ(strip->StripReleaseCount(), 0u);
  EXPECT_EQ(strip->CallbackLostCount(), 0u);
  EXPECT_EQ(Lost(), 0u);
}

TEST_F(StripThread, GivesBuffersBackWithTheMarkerCleared) {
  std::vector<std::byte*> buffers;
  strip->RegisterStripBufCallback([&](unsigned strips, unsigned, void* data) {
    auto* buffer = static_cast<std::byte*>(data);
    const std::lock_guard lock(mutex);
    if (strips > 0) buffers.push_back(buffer);
  });
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([&] {
    const std::lock_guard lock(mutex);
    return buffers.size() >= 2;
  }));
  FrameSource::Trigger(false);
  ReallyWait(milliseconds(200));
  {
    const std::lock_guard lock(mutex);
    // The last buffer but one has certainly been returned. It stays with the driver until the
    // triggers continue, so nothing writes to it.
    std::uint64_t marker;
    memcpy(&marker, buffers.end()[-2] + kBufferBytes - 8, sizeof marker);
    EXPECT_EQ(marker, 0u);
  }
  strip->Cancel();
}

TEST_F(StripThread, CountsStripsNobodyWants) {
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return strip->StripReleaseCount() > 50; }));
  FrameSource::Trigger(false);
  ReallyWait(milliseconds(200));
  strip->Cancel();
  struct tessaline_board_stream_stats stats {};
  tessaline_board_stream_stats(1, &stats);
  EXPECT_EQ(strip->StripReleaseCount(), stats.delivered);
  EXPECT_EQ(strip->LastFrameId(), stats.frames);
  EXPECT_TRUE(strip->ResetStripReleaseCount());
  EXPECT_EQ(strip->StripReleaseCount(), 0u);
}

TEST_F(StripThread, DeliversAnUncompletedBufferAsEmpty) {
  Collect();
  tessaline_board_frame_fault(1, TESSALINE_BOARD_FRAME_TRUNCATED, 2, 1);
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Buffers() >= 4; }));
  strip->Cancel();
  EXPECT_GT(received[1].strips, 0u);
  EXPECT_EQ(received[2].strips, 0u);
  EXPECT_EQ(received[2].bytes, 0u);
  EXPECT_GT(received[3].strips, 0u);
}

TEST_F(StripThread, DeliversWhatIsWholeOfACorruptBuffer) {
  Collect();
  tessaline_board_frame_fault(1, TESSALINE_BOARD_FRAME_CORRUPT, 1, 1);
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Buffers() >= 3; }));
  strip->Cancel();
  const Received& corrupt = received[1];
  EXPECT_EQ(corrupt.strips, corrupt.count_field - 1);
  EXPECT_EQ(corrupt.bytes, corrupt.walked_bytes);
  EXPECT_EQ(received[2].first_id, corrupt.first_id + corrupt.count_field);
  std::size_t told = 0;
  for (const std::string& line : log.Take()) told += line.find("does not fit") != std::string::npos;
  EXPECT_EQ(told, 1u);
}

TEST_F(StripThread, NarrowModeHasFourBytesAPointAndANarrowCount) {
  Collect(/*bytes_per_point=*/4);
  Set(fpga::kReg.STRIP_WRIMEM_STRATEGY, 1);
  strip->SetWriteMemMode(1);
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Buffers() >= 5; }));
  strip->Cancel();
  for (const Received& got : received) {
    EXPECT_GT(got.strips, 0u);
    EXPECT_EQ(got.strips, got.count_field);
    EXPECT_EQ(got.bytes, got.walked_bytes);
  }
}

TEST_F(StripThread, TellsOfEveryStripAtDebugLevel) {
  const LoggedLines debug(TESSALINE_LOG_DEBUG);
  Collect();
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Buffers() >= 2; }));
  strip->Cancel();
  const std::string id = std::to_string(received[0].first_id);
  EXPECT_THAT(
      debug.Take(),
      Contains(StartsWith("DEBUG Runnable/CaptureStripStream.cpp: strip_index:1, frameId: " + id +
                          ", timeStamp: ")));
}

TEST_F(StripThread, GoesOnWhenADequeueFails) {
  Collect();
  tessaline_board_fault("video1", "VIDIOC_DQBUF", 3, 5, EIO);
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return Buffers() >= 20; }));
  std::size_t failures = 0;
  for (const std::string& line : log.Take()) {
    failures += line.ends_with("v4l2 VIDIOC_DQBUF failed: Input/output error");
  }
  EXPECT_EQ(failures, 5u);
}

TEST_F(StripThread, NeitherCrashesNorSpinsWithoutItsDevice) {
  tessaline_board_fault("video1", "open", 0, 0, ENOENT);
  StartThread();
  ReallyWait(milliseconds(500));
  const auto lines = log.Take();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], "ERROR Devices/V4l2Fd.cpp: v4l2 open file failed: No such file or directory");
  EXPECT_EQ(lines[1], "ERROR Runnable/CaptureStripStream.cpp: initialize v4l2 error!");
  EXPECT_LT(lines.size(), 15u);
  strip->Cancel();
  EXPECT_TRUE(strip->WaitUntilGone(5000));
}

TEST_F(StripThread, WithoutASelectedProductItOnlyComplains) {
  DeviceManagerHolder::Instance()->cmos_sensor_.reset();
  StartThread();
  EXPECT_THAT(log.Take(),
              Contains("ERROR Runnable/CaptureStripStream.cpp: initialize v4l2 error!"));
  EXPECT_FALSE(strip->QV4l2Buf(0));
  strip->Cancel();
  EXPECT_TRUE(strip->WaitUntilGone(5000));
}

TEST_F(StripThread, IsRefusedWhatNeedsADeviceBeforeTheStart) {
  EXPECT_FALSE(strip->StripBufClear());
  EXPECT_FALSE(strip->QV4l2Buf(0));
  EXPECT_FALSE(strip->ReleaseResource());
  EXPECT_THAT(log.Take(), Contains(HasSubstr("the strip device is not open")));
}

TEST_F(StripThread, ClearsItsBuffersAndTheLastFrameId) {
  std::atomic<std::byte*> last{nullptr};
  strip->RegisterStripBufCallback(
      [&](unsigned, unsigned, void* data) { last = static_cast<std::byte*>(data); });
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([&] { return last != nullptr; }));
  FrameSource::Trigger(false);
  ReallyWait(milliseconds(200));
  EXPECT_NE(strip->LastFrameId(), 0u);
  EXPECT_TRUE(strip->StripBufClear());
  EXPECT_EQ(strip->LastFrameId(), 0u);
  EXPECT_EQ(std::count(last.load(), last.load() + kBufferBytes, std::byte{0}),
            static_cast<std::ptrdiff_t>(kBufferBytes));
}

TEST_F(StripThread, DoesNotGiveBackByIndexWhatItGivesBackItself) {
  StartThread();
  for (unsigned index : {0u, 17u, 18u, 0xFFFFFFFFu}) EXPECT_FALSE(strip->QV4l2Buf(index));
}

TEST_F(StripThread, AFormatTheBufferIsTooSmallForIsNeverReadPastTheMapping) {
  constexpr std::size_t kPage = 4096;
  // Maps only one page of each buffer.
  class SmallBuffers final : public DevFOps::V4l2Base {
   public:
    SmallBuffers() : V4l2Base(V4L2_MEMORY_MMAP, __builtin_FILE()) {}

   private:
    bool PrepareMemory(unsigned) override { return true; }
    bool Provide(v4l2_buffer& descriptor, Buffer& buffer) override {
      void* page = mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, fd(),
                        static_cast<off_t>(descriptor.m.offset));
      if (page == MAP_FAILED) return false;
      buffer.data = static_cast<std::byte*>(page);
      buffer.size = kPage;
      return true;
    }
    void ReleaseMemory() override {
      for (Buffer& buffer : buffers()) munmap(buffer.data, buffer.size);
    }
    void ClearMemory() override {}
  };
  DeviceManagerHolder::Instance()->v4l2_buf_ = std::make_shared<SmallBuffers>();
  std::atomic<int> calls{0};
  strip->RegisterStripBufCallback([&](unsigned strips, unsigned bytes, void*) {
    EXPECT_EQ(strips, 0u);
    EXPECT_EQ(bytes, 0u);
    ++calls;
  });
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([&] { return calls > 0; }));
  FrameSource::Trigger(false);
  strip->Cancel();
  EXPECT_THAT(log.Take(), Contains(HasSubstr("a strip buffer of 655360 bytes")));
}

TEST_F(StripThread, ReleasesTheDeviceAfterACancel) {
  const int before = OpenDescriptors();
  StartThread();
  FrameSource::Trigger(true);
  ASSERT_TRUE(Eventually([this] { return strip->StripReleaseCount() > 0; }));
  FrameSource::Trigger(false);
  EXPECT_TRUE(strip->Cancel());
  EXPECT_TRUE(strip->ReleaseResource());
  EXPECT_TRUE(tessaline_test::NoDescriptorsAreLeft(before));
  EXPECT_TRUE(strip->ReleaseResource()) << "once more does no harm";
}

TEST_F(StripThread, CanBeCancelledAndStartedAgainAndAgain) {
  for (int round = 0; round < 30; ++round) {
    set_up = false;
    StartThread();
    FrameSource::Trigger(true);
    strip->ResetStripReleaseCount();
    ASSERT_TRUE(Eventually([this] { return strip->StripReleaseCount() > 10; })) << round;
    strip->Cancel();
    ASSERT_TRUE(strip->WaitUntilGone(5000));
    FrameSource::Trigger(false);
    if (round % 2 == 0) {
      ASSERT_TRUE(strip->ReleaseResource());
    }
  }
}

TEST_F(StripThread, TakesNewSettingsWhileItRuns) {
  Collect();
  StartThread();
  FrameSource::Trigger(true);
  for (int i = 0; i < 200; ++i) {
    strip->SetMinTimeStamp(static_cast<std::uint64_t>(i));
    strip->SetTimeStampHold(i % 2 == 0);
    EXPECT_EQ(strip->TimeStampHold(), i % 2 == 0);
    strip->ResetLastFrameId();
    strip->ResetCallbackLostCount();
    if (i % 20 == 0) strip->RegisterStripBufCallback({});
    if (i % 20 == 10) Collect();
  }
  Collect();
  const std::size_t before = Buffers();
  EXPECT_TRUE(Eventually([&] { return Buffers() > before + 5; }));
  EXPECT_THAT(log.Take(), Not(Contains(StartsWith("ERROR"))));
}

}  // namespace
