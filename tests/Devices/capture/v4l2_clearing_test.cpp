// When the buffers of a capture device are zeroed, and which frames must not be changed.
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
  device->StreamOff();  // nothing else writes to the buffers from here on
  const std::size_t size = device->BufferSize();
  EXPECT_NE(NonZero(data, size), 0u);
  device->QBuf();
  EXPECT_NE(NonZero(data, size), 0u);
  device->ClearBuf();
  EXPECT_EQ(NonZero(data, size), 0u);
}

// The owner of a frame may request a clear, and keeps the frame until it returns it.
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

// A handler keeps the frame that it is using. A clear requested elsewhere waits.
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

// It makes no difference if the driver rejects the frame, because the handler has returned.
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

// The clear happens between two frames, even if the next one comes at once.
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
