// When the buffers of a capture device are zeroed, and whose frame is left alone.
#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "Devices/capture/V4l2Test.h"
#include "support/Waiting.h"

namespace tessaline_test {
namespace {

class Clearing : public V4l2Flavour {
 protected:
  std::byte* AFrame() {
    Start(*device);
    FrameSource::Trigger(true);
    return device->DqBuf();
  }
};

INSTANTIATE_TEST_SUITE_P(Flavours, Clearing, AllFlavours());

TEST_P(Clearing, ZeroesAllBuffers) {
  std::byte* const data = AFrame();
  ASSERT_NE(data, nullptr);
  device->StreamOff();  // nobody else writes from here on
  const std::size_t size = device->BufferSize();
  EXPECT_NE(NonZero(data, size), 0u);
  device->QBuf();
  EXPECT_NE(NonZero(data, size), 0u);
  device->ClearBuf();
  EXPECT_EQ(NonZero(data, size), 0u);
}

// Whoever has a frame may ask, and keeps it until it goes back.
TEST_P(Clearing, AFramesOwnerClearsWhenItGivesTheFrameBack) {
  std::byte* const data = AFrame();
  ASSERT_NE(data, nullptr);
  device->StreamOff();
  const std::size_t size = device->BufferSize();
  const std::size_t before = NonZero(data, size);
  device->ClearBuf();
  EXPECT_EQ(NonZero(data, size), before);
  device->QBuf();
  EXPECT_EQ(NonZero(data, size), 0u);
}

// A handler in the middle of its frame keeps it; a clearing from elsewhere waits.
TEST_P(Clearing, ClearingLeavesTheFrameInHandAlone) {
  std::byte* const data = AFrame();
  ASSERT_NE(data, nullptr);
  device->StreamOff();
  const std::size_t size = device->BufferSize();
  const std::size_t before = NonZero(data, size);
  ASSERT_NE(before, 0u);
  std::atomic<bool> cleared{false};
  std::thread other([&] {
    device->ClearBuf();
    cleared = true;
  });
  ReallyWait(std::chrono::milliseconds(50));
  EXPECT_FALSE(cleared);
  EXPECT_EQ(NonZero(data, size), before);
  device->QBuf();
  other.join();
  EXPECT_EQ(NonZero(data, size), 0u);
}

TEST_P(Clearing, ClearingDoesNotWaitForEver) {
  std::byte* const data = AFrame();
  ASSERT_NE(data, nullptr);
  device->StreamOff();
  const std::size_t size = device->BufferSize();
  const std::size_t before = NonZero(data, size);
  std::thread([&] { device->ClearBuf(); }).join();
  EXPECT_EQ(NonZero(data, size), before);
  device->QBuf();
  EXPECT_EQ(NonZero(data, size), 0u) << "it was only put off";
}

// A driver that does not take it back changes nothing: the handler has returned.
TEST_P(Clearing, ClearingDoesNotWaitForAFrameThatTheDriverRefuses) {
  std::byte* const data = AFrame();
  ASSERT_NE(data, nullptr);
  device->StreamOff();
  const std::size_t size = device->BufferSize();
  tessaline_board_fault("video1", "VIDIOC_QBUF", 0, 1, EIO);
  EXPECT_FALSE(device->QBuf());
  const auto start = std::chrono::steady_clock::now();
  std::thread([&] { device->ClearBuf(); }).join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
  EXPECT_EQ(NonZero(data, size), 0u);
}

// Between one frame and the next there is time for it, however soon that comes.
TEST_P(Clearing, ClearingIsDoneWithTheNextFrameThatGoesBack) {
  Start(*device);
  FrameSource::Trigger(true);
  std::atomic<bool> over{false};
  std::thread frames([&] {
    while (!over) {
      const std::byte* const data = device->DqBuf();
      if (data == nullptr) break;
      const std::size_t before = NonZero(data, device->BufferSize());
      ReallyWait(std::chrono::milliseconds(10));
      EXPECT_EQ(NonZero(data, device->BufferSize()), before) << "wiped in somebody's hands";
      device->QBuf();
    }
  });
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 8; ++i) device->ClearBuf();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
  over = true;
  frames.join();
}

}  // namespace
}  // namespace tessaline_test
