// The frame engine, seen by a plain capture program that programs the FPGA and
// the sensor itself.

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/epoll.h>

#include <chrono>
#include <map>

#include "FramesFixture.h"
#include "support/Waiting.h"

namespace {

using namespace board_test;  // NOLINT(google-build-using-namespace)

constexpr unsigned kWidth = 1456;
constexpr unsigned kHeight = 1088;
constexpr unsigned kPad = 0x300D;  // readout mode
constexpr std::uint32_t kStreaming = 5;

class Frames : public FramesFixture {
 protected:
  Frames() : FramesFixture("K3610", {"907", "934"}, fpga::kZynqRegions) {}

  void SetUp() override {
    FramesFixture::SetUp();
    tessaline_board_chip_set("sensor", 0x3000, 0);
    Set(fpga::kReg.STRIP_IMAGE_WIDTH, kWidth);
    Set(fpga::kReg.STRIP_IMAGE_HEIGHT, kHeight);
  }

  // Use with trigger mode 2, in which there are no other triggers.
  void SoftwareTrigger() const {
    Write(fpga::kReg.TRIGGER_CTRL,
          fpga::kField.global_control.Mask() | 2 | fpga::kField.software_trigger.Mask());
    Write(fpga::kReg.TRIGGER_CTRL, fpga::kField.global_control.Mask() | 2);
  }
};

TEST_F(Frames, StripsCarryTheSceneWithinAHundredthOfAPixel) {
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 4);
  TriggerOn();
  unsigned objects = 0;
  for (int buffer = 0; buffer < 60; ++buffer) {
    const auto bytes = client.Dequeue();
    ASSERT_FALSE(bytes.empty());
    std::size_t at = 0;
    for (std::uint32_t strip = 0; strip < CountIn(bytes); ++strip) {
      const StripHeader header = HeaderAt(bytes, at);
      at += sizeof header;
      ASSERT_EQ(header.point_count, kWidth);  // every column sees the line
      const double y = BeltPosition(header.time_stamp);
      for (std::uint64_t i = 0; i < header.point_count; ++i, at += sizeof(StripPoint)) {
        const StripPoint point = PointAt(bytes, at);
        ASSERT_EQ(point.column, i);
        const double z = tessaline_board_scene_height(tessaline_board_scene_x(point.column), y);
        ASSERT_NEAR(point.row / 65536.0, tessaline_board_scene_row(z), 0.01)
            << "column " << i << " of frame " << header.frame_id;
        objects += z > 1;
      }
      EXPECT_NEAR(static_cast<double>(header.encoder_stamp),
                  y * tessaline_board_scene_counts_per_mm(), 1.0);
    }
    client.Requeue();
  }
  EXPECT_GT(objects, 10000u) << "the belt was empty all the time";
}

TEST_F(Frames, IdsAreConsecutiveAndStampsOneSpacingApart) {
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 4);
  TriggerOn();
  std::uint64_t id = 0;
  std::uint64_t stamp = 0;
  while (id < 50) {
    const auto bytes = client.Dequeue();
    ASSERT_FALSE(bytes.empty());
    std::size_t at = 0;
    for (std::uint32_t strip = 0; strip < CountIn(bytes); ++strip) {
      const StripHeader header = HeaderAt(bytes, at);
      EXPECT_EQ(header.frame_id, id + 1);
      if (id > 0) {
        EXPECT_EQ(header.time_stamp, stamp + 200000);
      }
      id = header.frame_id;
      stamp = header.time_stamp;
      at += sizeof header + 8 * header.point_count;
    }
    client.Requeue();
  }
}

TEST_F(Frames, ImagesLieInFourPlanesWithTheHeaderBehindTheLast) {
  RouteTo(true);
  VideoClient client("/dev/video0");
  client.Start(kWidth, kHeight + 1, 2);
  TriggerOn();
  const auto bytes = client.Dequeue();
  ASSERT_FALSE(bytes.empty());
  const std::size_t quarter = std::size_t{kWidth} * kHeight / 4;
  const StripHeader header = HeaderAt(bytes, 4 * quarter);
  EXPECT_EQ(header.frame_id, 1u);
  const double y = BeltPosition(header.time_stamp);
  // The brightest pixel of a column is where the line is.
  for (unsigned column = 0; column < kWidth; column += 13) {
    unsigned brightest = 0;
    unsigned best = 0;
    for (unsigned row = 0; row < kHeight; ++row) {
      const std::size_t pixel = std::size_t{row} * kWidth + column;
      const std::size_t block = pixel / 16;
      const unsigned grey = bytes[block % 4 * quarter + block / 4 * 16 + pixel % 16];
      if (grey > best) {
        best = grey;
        brightest = row;
      }
    }
    const double z = tessaline_board_scene_height(tessaline_board_scene_x(column), y);
    EXPECT_NEAR(brightest, tessaline_board_scene_row(z), 2.0) << "column " << column;
    EXPECT_GT(best, 60u);
  }
}

TEST_F(Frames, WithoutTheLaserThereIsNoLine) {
  WriteFile("/sys/class/gpio/gpio934/value", "0");
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  TriggerOn();
  const auto bytes = client.Dequeue();
  ASSERT_GT(CountIn(bytes), 0u);
  EXPECT_EQ(HeaderAt(bytes, 0).point_count, 0u);
}

TEST_F(Frames, ExposureDecidesWhetherDarkSurfacesReachTheThreshold) {
  Set(fpga::kReg.EXP_TIME_1, 20);
  Set(fpga::kReg.RIS_THRESHOLD, 50);
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 4);
  TriggerOn();
  EXPECT_EQ(HeaderAt(client.Dequeue(), 0).point_count, 0u);
  client.Requeue();
  Set(fpga::kReg.EXP_TIME_1, 200);
  std::uint64_t points = 0;
  for (int i = 0; i < 10 && points == 0; ++i) {
    points = HeaderAt(client.Dequeue(), 0).point_count;
    client.Requeue();
  }
  EXPECT_EQ(points, kWidth);
}

TEST_F(Frames, ACroppedSensorSeesTheSameLineElsewhere) {
  constexpr unsigned kLeft = 256, kTop = 400, kCropWidth = 640, kCropHeight = 512;
  const std::map<unsigned, unsigned> crop{{0x3300, 3},
                                          {0x3310, kLeft & 0xFF},
                                          {0x3311, kLeft >> 8},
                                          {0x3312, kTop & 0xFF},
                                          {0x3313, kTop >> 8},
                                          {0x3314, kCropWidth & 0xFF},
                                          {0x3315, kCropWidth >> 8},
                                          {0x3316, kCropHeight & 0xFF},
                                          {0x3317, kCropHeight >> 8}};
  for (const auto& [reg, value] : crop) {
    ASSERT_EQ(tessaline_board_chip_set("sensor", reg, value), 0);
  }
  Set(fpga::kReg.STRIP_IMAGE_WIDTH, kCropWidth);
  Set(fpga::kReg.STRIP_IMAGE_HEIGHT, kCropHeight);
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  TriggerOn();
  const auto bytes = client.Dequeue();
  const StripHeader header = HeaderAt(bytes, 0);
  ASSERT_EQ(header.point_count, kCropWidth);
  const StripPoint point = PointAt(bytes, sizeof header + 100 * sizeof(StripPoint));
  const double y = BeltPosition(header.time_stamp);
  const double z = tessaline_board_scene_height(tessaline_board_scene_x(kLeft + 100), y);
  EXPECT_NEAR(point.row / 65536.0, tessaline_board_scene_row(z) - kTop, 0.01);
}

TEST_F(Frames, ReducedReadoutHalvesTheFrame) {
  ASSERT_EQ(tessaline_board_chip_set("sensor", kPad, 0x11), 0);
  Set(fpga::kReg.STRIP_IMAGE_WIDTH, kWidth / 2);
  Set(fpga::kReg.STRIP_IMAGE_HEIGHT, kHeight / 2);
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  TriggerOn();
  const auto bytes = client.Dequeue();
  const StripHeader header = HeaderAt(bytes, 0);
  ASSERT_EQ(header.point_count, kWidth / 2);
  const StripPoint point = PointAt(bytes, sizeof header + 100 * sizeof(StripPoint));
  const double y = BeltPosition(header.time_stamp);
  const double z = tessaline_board_scene_height(tessaline_board_scene_x(200), y);
  EXPECT_NEAR(point.row / 65536.0, tessaline_board_scene_row(z) / 2, 0.01);
}

TEST_F(Frames, NothingArrivesWhileAnythingIsMissing) {
  RouteTo(false);
  VideoClient client("/dev/video1", O_RDWR | O_NONBLOCK);
  client.Start(1024, 640, 2);
  const auto arrived = [&client] {
    for (int i = 0; i < 100; ++i) {
      if (!client.Dequeue().empty()) return true;
      const timespec pause{0, 1'000'000};
      nanosleep(&pause, nullptr);
    }
    return false;
  };
  tessaline_board_set_sleep_factor(1);
  EXPECT_FALSE(arrived()) << "global control is off";
  Set(fpga::kReg.CMOS_TIMING_CTRL, 4);
  TriggerOn();
  EXPECT_FALSE(arrived()) << "the sensor timing is off";
  tessaline_board_chip_set("sensor", 0x3000, 1);
  Set(fpga::kReg.CMOS_TIMING_CTRL, kStreaming);
  EXPECT_FALSE(arrived()) << "the sensor is in standby";
  tessaline_board_chip_set("sensor", 0x3000, 0);
  Set(fpga::kReg.TRI_SPACING, 200001);
  EXPECT_TRUE(arrived());
}

TEST_F(Frames, ASoftwareTriggerMakesOneFrame) {
  tessaline_board_set_pace(TESSALINE_BOARD_REAL_TIME);
  tessaline_board_set_strips_per_buffer(1);
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 4);
  TriggerOn(2);  // external: there are no other triggers
  for (std::uint64_t id = 1; id <= 3; ++id) {
    SoftwareTrigger();
    const auto bytes = client.Dequeue();
    EXPECT_EQ(CountIn(bytes), 1u);
    EXPECT_EQ(HeaderAt(bytes, 0).frame_id, id);
  }
  EXPECT_EQ(Stats(1).frames, 3u);
}

TEST_F(Frames, StoppingForgetsTheTriggersThatStillWait) {
  constexpr std::uint32_t kOn = fpga::kField.global_control.Mask() | 2;
  tessaline_board_set_pace(TESSALINE_BOARD_REAL_TIME);
  tessaline_board_set_strips_per_buffer(1);
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 16);
  for (int round = 0; round < 10; ++round) {
    TriggerOn(2);
    for (int i = 0; i < 10; ++i) {  // far more triggers than the sensor can read out in this time
      Write(fpga::kReg.TRIGGER_CTRL, kOn | fpga::kField.software_trigger.Mask());
      Write(fpga::kReg.TRIGGER_CTRL, kOn);
    }
    Write(fpga::kReg.TRIGGER_CTRL, 2);
  }
  // A trigger that was being processed at the stop may still produce a frame.
  EXPECT_LT(Stats(1).frames, 100u);
  const std::uint64_t frames = Stats(1).frames;
  TriggerOn(2);
  tessaline_board_set_sleep_factor(1);
  usleep(100'000);
  EXPECT_LE(Stats(1).frames, frames + 1);
}

TEST_F(Frames, PollWaitsForEachOfThem) {
  tessaline_board_set_pace(TESSALINE_BOARD_REAL_TIME);
  tessaline_board_set_strips_per_buffer(1);
  RouteTo(false);
  VideoClient client("/dev/video1", O_RDWR | O_NONBLOCK);
  client.Start(1024, 640, 4);
  TriggerOn(2);
  pollfd waiting{client.fd(), POLLIN, 0};
  for (int i = 0; i < 3; ++i) {
    SoftwareTrigger();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(poll(&waiting, 1, 20'000), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    EXPECT_EQ(waiting.revents, POLLIN);
    EXPECT_FALSE(client.Dequeue().empty());
    EXPECT_EQ(poll(&waiting, 1, 0), 0) << "there was one";
    client.Requeue();
  }
}

// After registering the device, epoll only uses the kernel.
TEST_F(Frames, EpollSeesThemComeAndGo) {
  tessaline_board_set_strips_per_buffer(1);
  RouteTo(false);
  VideoClient client("/dev/video1");
  const int set = epoll_create1(EPOLL_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  ASSERT_EQ(epoll_ctl(set, EPOLL_CTL_ADD, client.fd(), &event), 0);
  EXPECT_EQ(epoll_wait(set, &event, 1, 0), 1) << "without a stream there is an error to report";
  client.Start(1024, 640, 4);
  EXPECT_EQ(epoll_wait(set, &event, 1, 0), 0);
  TriggerOn(2);
  for (int i = 0; i < 3; ++i) {
    SoftwareTrigger();
    EXPECT_EQ(epoll_wait(set, &event, 1, 20'000), 1);
    EXPECT_FALSE(client.Dequeue().empty());
    EXPECT_EQ(epoll_wait(set, &event, 1, 0), 0);
    client.Requeue();
  }
  EXPECT_EQ(client.StreamOff(), 0);
  EXPECT_EQ(epoll_wait(set, &event, 1, 0), 1);
  close(set);
}

TEST_F(Frames, TheExternalInputTriggersInModeTwo) {
  tessaline_board_set_strips_per_buffer(1);
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 4);
  TriggerOn(2);
  tessaline_board_external_trigger(1);
  EXPECT_EQ(CountIn(client.Dequeue()), 1u);
  tessaline_board_external_trigger(0);
  EXPECT_EQ(Stats(1).frames, 1u) << "the falling edge triggers nothing";
}

TEST_F(Frames, ResettingTheFrameIdStartsAtOneAgain) {
  tessaline_board_set_strips_per_buffer(1);
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 4);
  TriggerOn();
  for (int i = 0; i < 8; ++i) {
    client.Dequeue();
    client.Requeue();
  }
  Write(fpga::kReg.FRAME_ID_RESET, 1);
  std::uint64_t lowest = ~0ull;
  for (int i = 0; i < 8; ++i) {
    lowest = std::min(lowest, HeaderAt(client.Dequeue(), 0).frame_id);
    client.Requeue();
  }
  EXPECT_EQ(lowest, 1u);
}

TEST_F(Frames, WithoutABufferStripsAreLostAndCounted) {
  tessaline_board_set_pace(TESSALINE_BOARD_REAL_TIME);
  tessaline_board_set_sleep_factor(1);
  tessaline_board_set_strips_per_buffer(1);
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  TriggerOn();
  while (Stats(1).lost < 5) usleep(1000);
  EXPECT_GE(Get(fpga::kReg.CALLBACK_LOST_NUM), 5u);
  EXPECT_EQ(Stats(1).delivered, 2u);
  Write(fpga::kReg.TRIGGER_CTRL, 0);
  Write(fpga::kReg.CALLBACK_LOST_RESET, 1);
  EXPECT_LE(Get(fpga::kReg.CALLBACK_LOST_NUM), 1u);
}

// A strip that no longer fits must wait if the full buffer was the last one.
TEST_F(Frames, AtFreePaceStripsWaitForABuffer) {
  tessaline_board_set_strips_per_buffer(1000);
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 1);
  TriggerOn();
  tessaline_test::ReallyWait(std::chrono::milliseconds(200));
  std::uint64_t id = 0;
  for (int buffer = 0; buffer < 3; ++buffer) {
    const auto bytes = client.Dequeue();
    std::size_t at = 0;
    for (std::uint32_t strip = 0; strip < CountIn(bytes); ++strip) {
      const StripHeader header = HeaderAt(bytes, at);
      EXPECT_EQ(header.frame_id, ++id);
      at += sizeof header + 8 * header.point_count;
    }
    client.Requeue();
  }
  EXPECT_EQ(Stats(1).lost, 0u);
}

TEST_F(Frames, ChecksumsAreThoseOfTheFramesAsTheyWereExposed) {
  constexpr unsigned kSmallWidth = 1000;
  constexpr unsigned kSmallHeight = 700;  // not whole groups of four blocks
  const auto kept = [](std::uint64_t id) {
    std::uint64_t checksum = 0;
    EXPECT_EQ(tessaline_board_frame_checksum(id, &checksum), 0) << "frame " << id;
    return checksum;
  };
  std::uint64_t none = 0;
  EXPECT_EQ(tessaline_board_frame_checksum(1, &none), -1);
  tessaline_board_keep_checksums(1);
  Set(fpga::kReg.STRIP_IMAGE_WIDTH, kSmallWidth);
  Set(fpga::kReg.STRIP_IMAGE_HEIGHT, kSmallHeight);
  RouteTo(true);
  VideoClient images("/dev/video0");
  images.Start(kWidth, kHeight + 1, 1);
  TriggerOn();
  const auto frame = images.Dequeue();
  ASSERT_FALSE(frame.empty());
  constexpr std::size_t kPixels = std::size_t{kSmallWidth} * kSmallHeight;
  constexpr std::size_t kQuarter = std::size_t{kWidth} * kHeight / 4;
  std::vector<std::uint8_t> image(kPixels + sizeof(StripHeader), 0);
  for (std::size_t pixel = 0; pixel < kPixels / 64 * 64; ++pixel) {
    image[pixel] = frame[pixel / 16 % 4 * kQuarter + pixel / 64 * 16 + pixel % 16];
  }
  std::memcpy(&image[kPixels], &frame[3 * kQuarter + kPixels / 4], sizeof(StripHeader));
  EXPECT_EQ(tessaline_board_checksum(image.data(), image.size()), kept(1));
  image[kPixels / 2] ^= 1;
  EXPECT_NE(tessaline_board_checksum(image.data(), image.size()), kept(1));

  RouteTo(false);
  VideoClient strips("/dev/video1");
  strips.Start(1024, 640, 1);
  const auto bytes = strips.Dequeue();
  ASSERT_GT(CountIn(bytes), 1u);
  std::size_t at = 0;
  for (std::uint32_t strip = 0; strip < CountIn(bytes); ++strip) {
    const StripHeader header = HeaderAt(bytes, at);
    const std::size_t size = sizeof header + 8 * header.point_count;
    EXPECT_EQ(tessaline_board_checksum(&bytes[at], size), kept(header.frame_id));
    at += size;
  }
}

TEST_F(Frames, TriggersFasterThanTheSensorAreLost) {
  Set(fpga::kReg.TRI_SPACING, 100000);  // 2 ms; a full frame takes 3.6 ms
  tessaline_board_set_strips_per_buffer(4);
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 4);
  TriggerOn();
  client.Dequeue();
  EXPECT_GE(Get(fpga::kReg.XTRIG_LOST_STA), 3u);
}

TEST_F(Frames, CanGoWrongOnPurpose) {
  tessaline_board_set_strips_per_buffer(2);
  RouteTo(false);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 8);
  tessaline_board_frame_fault(1, TESSALINE_BOARD_FRAME_LOST, 1, 1);
  tessaline_board_frame_fault(1, TESSALINE_BOARD_FRAME_CORRUPT, 1, 1);
  tessaline_board_frame_fault(1, TESSALINE_BOARD_FRAME_TRUNCATED, 1, 1);
  TriggerOn();
  EXPECT_EQ(HeaderAt(client.Dequeue(), 0).frame_id, 1u);
  auto bytes = client.Dequeue();  // 3 and 4 are lost
  EXPECT_EQ(HeaderAt(bytes, 0).frame_id, 5u);
  EXPECT_GT(HeaderAt(bytes, 32 + 8 * HeaderAt(bytes, 0).point_count).point_count, bytes.size());
  bytes = client.Dequeue();
  EXPECT_EQ(HeaderAt(bytes, 0).frame_id, 7u);
  EXPECT_EQ(CountIn(bytes), 0u);
  EXPECT_EQ(Stats(1).lost, 2u);
}

}  // namespace
