// Recorded frames in the place of the scene's, taken by a plain capture program. The test is the
// other end of the rings.
#include <gmock/gmock.h>
#include <poll.h>

#include <chrono>
#include <string>
#include <vector>

#include "FramesFixture.h"
#include "ring/RecordRing.h"
#include "support/Waiting.h"

namespace {

using namespace board_test;  // NOLINT(google-build-using-namespace)
using ring::Kind;
using ring::RecordRing;
using ::testing::ElementsAre;

constexpr unsigned kWidth = 1456;
constexpr unsigned kHeight = 1088;
constexpr std::int64_t kMs = 1'000'000;
constexpr std::uint64_t kTicksEach = 50'000;

class Replayed : public FramesFixture {
 protected:
  Replayed() : FramesFixture("K3610", {"907", "934"}, fpga::kZynqRegions) {}

  void SetUp() override {
    FramesFixture::SetUp();
    tessaline_board_chip_set("sensor", 0x3000, 0);
    Set(fpga::kReg.STRIP_IMAGE_WIDTH, kWidth);
    Set(fpga::kReg.STRIP_IMAGE_HEIGHT, kHeight);
  }

  static RecordRing Make() { return std::move(*RecordRing::Create(8 << 20)); }

  // One strip a buffer, with this id and without points.
  void PutStrip(std::uint64_t id, std::int64_t stamp_ns) {
    const tessaline_strip_header header{id, Stamp(id), id, 0};
    ASSERT_TRUE(strips_.Put({Kind::kStrips, stamp_ns, 1, 8, std::as_bytes(std::span(&header, 1))}));
  }
  void PutStrips(std::uint64_t count) {
    for (std::uint64_t id = 1; id <= count; ++id) {
      PutStrip(id, static_cast<std::int64_t>(id) * kMs);
    }
  }
  static std::uint64_t Stamp(std::uint64_t id) { return 1'000'000 + id * kTicksEach; }

  // Nothing more comes.
  void Play(double speed = 0) {
    for (RecordRing* ring : {&images_, &strips_, &events_}) ring->End();
    const std::string rings = images_.Path() + " " + strips_.Path() + " " + events_.Path() + " " +
                              state_.Path() + " " + std::to_string(speed);
    ASSERT_EQ(tessaline_board_replay(rings.c_str()), 0);
  }

  static std::uint64_t IdIn(std::span<const std::uint8_t> bytes) {
    return CountIn(bytes) == 0 ? 0 : HeaderAt(bytes, 0).frame_id;
  }
  // Strips are on, with so many buffers, and triggers too.
  void TakeStrips(VideoClient& client, unsigned buffers) const {
    RouteTo(false);
    client.Start(1024, 640, buffers);
    TriggerOn();
  }
  // Whether a frame is in the queue, before long.
  static bool IsWaiting(const VideoClient& client) {
    return tessaline_test::Eventually([&] {
      pollfd ready{client.fd(), POLLIN, 0};
      return poll(&ready, 1, 0) == 1 && (ready.revents & POLLIN) != 0;
    });
  }
  // Of the next frames; 0 stands for one that was cleared.
  static std::vector<std::uint64_t> Take(VideoClient& client, unsigned count) {
    std::vector<std::uint64_t> ids;
    while (ids.size() < count && IsWaiting(client)) {
      ids.push_back(IdIn(client.Dequeue()));
      client.Requeue();
    }
    return ids;
  }
  bool StripsAreTaken() const { return strips_.UsedBytes() == 0; }
  static std::uint64_t Ticks() {
    const auto half = [](const fpga::Register& reg) {
      return std::uint64_t{
          tessaline_board_register_get(static_cast<unsigned>(reg.block), reg.offset)};
    };
    return half(fpga::kReg.TIMER_COUNTER_L) | half(fpga::kReg.TIMER_COUNTER_H) << 32;
  }

  RecordRing images_ = Make();
  RecordRing strips_ = Make();
  RecordRing events_ = Make();
  RecordRing state_ = Make();
};

TEST_F(Replayed, EveryFrameOnceAndInOrder) {
  PutStrips(50);
  Play();
  VideoClient client("/dev/video1");
  TakeStrips(client, 3);
  std::vector<std::uint64_t> all(50);
  for (unsigned i = 0; i < all.size(); ++i) all[i] = i + 1;
  EXPECT_EQ(Take(client, 50), all);
  EXPECT_TRUE(tessaline_test::Eventually([this] { return StripsAreTaken(); }));
  EXPECT_EQ(Stats(1).delivered, 50u);
}

TEST_F(Replayed, AFrameThatAStopThrowsAwayComesAgain) {
  PutStrips(4);
  Play();
  VideoClient client("/dev/video1");
  TakeStrips(client, 3);
  EXPECT_EQ(IdIn(client.Dequeue()), 1u);
  // The second is in the queue then, and is discarded.
  EXPECT_TRUE(IsWaiting(client));
  EXPECT_EQ(client.StreamOff(), 0);
  for (unsigned i = 0; i < 3; ++i) {
    v4l2_buffer buffer = VideoClient::Buffer(i);
    EXPECT_EQ(ioctl(client.fd(), VIDIOC_QBUF, &buffer), 0);
  }
  EXPECT_EQ(client.StreamOn(), 0);
  EXPECT_THAT(Take(client, 3), ElementsAre(2, 3, 4));
}

TEST_F(Replayed, AFrameThatSoftwareClearsComesAgain) {
  PutStrips(3);
  Play();
  VideoClient client("/dev/video1");
  TakeStrips(client, 2);
  EXPECT_EQ(IdIn(client.Dequeue()), 1u);
  EXPECT_TRUE(IsWaiting(client));
  client.ClearAll();  // the second waits
  client.Requeue();
  EXPECT_THAT(Take(client, 3), ElementsAre(0, 2, 3));
}

// What has been taken counts, also when its buffer is never given back.
TEST_F(Replayed, AFrameThatWasTakenDoesNotComeAgain) {
  PutStrips(2);
  Play();
  {
    VideoClient client("/dev/video1");
    TakeStrips(client, 1);
    EXPECT_EQ(IdIn(client.Dequeue()), 1u);
  }
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 1);
  EXPECT_THAT(Take(client, 1), ElementsAre(2));
}

// Else the library would take the frame for one of before a stop.
TEST_F(Replayed, TheCounterWaitsForTheFrameThatSoftwareHas) {
  PutStrips(2);
  Play();
  EXPECT_LT(Ticks(), Stamp(1));
  VideoClient client("/dev/video1");
  TakeStrips(client, 1);
  EXPECT_EQ(IdIn(client.Dequeue()), 1u);
  tessaline_test::ReallyWait(std::chrono::milliseconds(20));
  EXPECT_LT(Ticks(), Stamp(1));
  client.Requeue();
  EXPECT_EQ(IdIn(client.Dequeue()), 2u);
  EXPECT_TRUE(tessaline_test::Eventually([] { return Ticks() >= Stamp(1); }));
  EXPECT_LT(Ticks(), Stamp(2));
}

// However fast it is played.
TEST_F(Replayed, EventsKeepTheirPlaceBetweenTheFrames) {
  PutStrips(3);
  events_.Put({Kind::kTrigger, 2 * kMs, 1, 0, {}});
  Play();
  Set(fpga::kReg.IRQ_CTRL, ~0u);
  VideoClient client("/dev/video1");
  TakeStrips(client, 1);
  EXPECT_EQ(IdIn(client.Dequeue()), 1u);
  tessaline_test::ReallyWait(std::chrono::milliseconds(20));
  EXPECT_EQ(tessaline_board_interrupts(0), 0u);
  client.Requeue();
  EXPECT_EQ(IdIn(client.Dequeue()), 2u);
  EXPECT_TRUE(tessaline_test::Eventually([] { return tessaline_board_interrupts(0) == 1; }));
}

TEST_F(Replayed, TheStateIsThereAndStaysTheApplicationsOwn) {
  const std::vector<std::uint8_t> eeprom(512, 0x5A);
  state_.Put({Kind::kDevice, 0, 0, 0, std::as_bytes(std::span(eeprom))});
  PutStrips(1);
  Play();
  EXPECT_EQ(tessaline_board_chip_get("eeprom", 511), 0x5A);
  tessaline_board_chip_set("eeprom", 511, 0x11);
  VideoClient client("/dev/video1");
  TakeStrips(client, 1);
  EXPECT_THAT(Take(client, 1), ElementsAre(1));
  EXPECT_EQ(tessaline_board_chip_get("eeprom", 511), 0x11);
}

TEST_F(Replayed, RingsThatAreNotThere) {
  for (const char* rings : {"", "a b c d 1", "/dev/null /dev/null /dev/null /dev/null 1"}) {
    EXPECT_EQ(tessaline_board_replay(rings), -1) << rings;
  }
  EXPECT_EQ(tessaline_board_replay(nullptr), -1);
}

}  // namespace
