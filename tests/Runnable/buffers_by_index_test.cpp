// Buffers that one thread dequeues and another thread returns by their index.
#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "Devices/capture/V4l2Fd.h"
#include "support/BoardFixture.h"
#include "support/FrameSource.h"
#include "tessaline/board.h"

namespace tessaline_test {
namespace {

class BuffersByIndex : public BoardFixture {
 protected:
  BuffersByIndex() : BoardFixture("K3610") {}

  void SetUp() override {
    BoardFixture::SetUp();
    FrameSource::Prepare();
    FrameSource::Route(FrameSource::kStrips);
    ASSERT_TRUE(device.Open("/dev/video1"));
    ASSERT_TRUE(device.SetFmt(1024, 64));
    ASSERT_TRUE(device.ReqBufs(kBuffers));
    ASSERT_TRUE(device.StreamOn());
  }

  void TearDown() override {
    device.StreamOff();
    device.Close();
    BoardFixture::TearDown();
  }

  static constexpr unsigned kBuffers = 2;
  VeltranoSDK::DevFOps::V4l2Fd device;
};

// There are only two buffers, so a lost buffer would soon stop the stream.
TEST_F(BuffersByIndex, GoRoundBetweenTwoThreads) {
  constexpr unsigned kRounds = 2000;
  std::mutex mutex;
  std::condition_variable filled;
  std::deque<unsigned> taken;
  unsigned refused = 0;
  std::thread returner([&] {
    for (unsigned i = 0; i < kRounds; ++i) {
      std::unique_lock lock(mutex);
      filled.wait(lock, [&] { return !taken.empty(); });
      const unsigned index = taken.front();
      taken.pop_front();
      lock.unlock();
      if (!device.QBuf(index)) ++refused;
    }
  });

  tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
  FrameSource::Trigger(true);
  unsigned missing = 0;
  for (unsigned i = 0; i < kRounds; ++i) {
    unsigned index = 0;
    if (device.DqBuf(index) == nullptr) ++missing;
    {
      const std::lock_guard lock(mutex);
      taken.push_back(index);
    }
    filled.notify_one();
  }
  returner.join();
  EXPECT_EQ(missing, 0U);
  EXPECT_EQ(refused, 0U);
}

TEST_F(BuffersByIndex, AreNotTakenFromTheThreadThatDequeuesInOrder) {
  FrameSource::Trigger(true);
  std::thread outsider([this] {
    for (int i = 0; i < 200; ++i) {
      for (unsigned index = 0; index < kBuffers; ++index) EXPECT_FALSE(device.QBuf(index));
    }
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_NE(device.DqBuf(), nullptr);
    EXPECT_TRUE(device.QBuf());
  }
  outsider.join();
}

TEST_F(BuffersByIndex, HaveTheIndexZeroAfterAFailedDequeue) {
  FrameSource::Trigger(true);
  do {
    ASSERT_NE(device.DqBuf(), nullptr);
    ASSERT_TRUE(device.QBuf());
  } while (device.Index() == 0);
  tessaline_board_fault("video1", "VIDIOC_DQBUF", 0, 1, EIO);
  EXPECT_EQ(device.DqBuf(), nullptr);
  EXPECT_EQ(device.Index(), 0U);
}

}  // namespace
}  // namespace tessaline_test
