#include <errno.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <pthread.h>

#include <array>
#include <cstring>
#include <thread>

#include "board/VideoClient.h"
#include "support/BoardFixture.h"

namespace {

using namespace tessaline_test;  // NOLINT(google-build-using-namespace)
using board_test::VideoClient;

class Video : public BoardFixture {
 protected:
  Video() : BoardFixture("K3610") {}
};

#define EXPECT_ERRNO(call, error) \
  do {                            \
    errno = 0;                    \
    EXPECT_EQ(call, -1);          \
    EXPECT_EQ(errno, error);      \
  } while (false)

TEST_F(Video, SaysWhatItIs) {
  VideoClient client("/dev/video0");
  v4l2_capability capability{};
  ASSERT_EQ(ioctl(client.fd(), VIDIOC_QUERYCAP, &capability), 0);
  EXPECT_TRUE(capability.capabilities & V4L2_CAP_VIDEO_CAPTURE);
  EXPECT_TRUE(capability.capabilities & V4L2_CAP_STREAMING);
}

TEST_F(Video, NegotiatesGreyWithinItsLimits) {
  VideoClient client("/dev/video1");
  v4l2_format format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  format.fmt.pix.width = 100000;
  format.fmt.pix.height = 0;
  format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
  ASSERT_EQ(ioctl(client.fd(), VIDIOC_TRY_FMT, &format), 0);
  EXPECT_EQ(format.fmt.pix.width, 16384u);
  EXPECT_EQ(format.fmt.pix.height, 1u);
  EXPECT_EQ(format.fmt.pix.pixelformat, V4L2_PIX_FMT_GREY);
  EXPECT_EQ(format.fmt.pix.sizeimage, 16384u);
  format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  EXPECT_ERRNO(ioctl(client.fd(), VIDIOC_TRY_FMT, &format), EINVAL);
}

TEST_F(Video, RefusesANewFormatWhileThereAreBuffers) {
  VideoClient client("/dev/video1");
  ASSERT_EQ(client.SetFormat(1024, 640), 0);
  ASSERT_EQ(client.Request(2), 2);
  EXPECT_ERRNO(client.SetFormat(512, 640), EBUSY);
  ASSERT_EQ(client.Request(0), 0);
  EXPECT_EQ(client.SetFormat(512, 640), 0);
}

TEST_F(Video, GrantsAtMost32Buffers) {
  VideoClient client("/dev/video1");
  ASSERT_EQ(client.SetFormat(64, 64), 0);
  EXPECT_EQ(client.Request(100), 32);
  EXPECT_EQ(client.Request(4, V4L2_MEMORY_DMABUF), -1);
}

TEST_F(Video, BelongsToTheOneWhoRequestedTheBuffers) {
  VideoClient first("/dev/video1");
  VideoClient second("/dev/video1");
  ASSERT_EQ(first.SetFormat(64, 64), 0);
  ASSERT_EQ(first.Request(2), 2);
  EXPECT_ERRNO(second.Request(2), EBUSY);
  EXPECT_ERRNO(second.StreamOn(), EBUSY);
  first.Close();
  EXPECT_EQ(second.Request(2), 2);
}

TEST_F(Video, RefusesWrongIndicesAndStates) {
  VideoClient client("/dev/video1");
  EXPECT_ERRNO(client.StreamOn(), EINVAL);  // no buffers
  ASSERT_EQ(client.SetFormat(64, 64), 0);
  ASSERT_EQ(client.Request(2), 2);
  v4l2_buffer buffer = VideoClient::Buffer(2);
  EXPECT_ERRNO(ioctl(client.fd(), VIDIOC_QUERYBUF, &buffer), EINVAL);
  EXPECT_ERRNO(ioctl(client.fd(), VIDIOC_QBUF, &buffer), EINVAL);
  buffer = VideoClient::Buffer(0, V4L2_MEMORY_USERPTR);
  EXPECT_ERRNO(ioctl(client.fd(), VIDIOC_QBUF, &buffer), EINVAL);
  buffer = VideoClient::Buffer(0);
  EXPECT_ERRNO(ioctl(client.fd(), VIDIOC_DQBUF, &buffer), EINVAL);  // not streaming
  ASSERT_EQ(ioctl(client.fd(), VIDIOC_QBUF, &buffer), 0);
  EXPECT_ERRNO(ioctl(client.fd(), VIDIOC_QBUF, &buffer), EINVAL);  // already queued
  EXPECT_ERRNO(ioctl(client.fd(), VIDIOC_QUERYBUF, nullptr), EFAULT);
  EXPECT_ERRNO(ioctl(client.fd(), 0x1234, &buffer), ENOTTY);
}

TEST_F(Video, UserMemoryMustBeThereAndLargeEnough) {
  VideoClient client("/dev/video1");
  ASSERT_EQ(client.SetFormat(64, 64), 0);
  ASSERT_EQ(client.Request(1, V4L2_MEMORY_USERPTR), 1);
  std::array<char, 4096> memory{};
  v4l2_buffer buffer = VideoClient::Buffer(0, V4L2_MEMORY_USERPTR);
  buffer.length = 4095;
  buffer.m.userptr = reinterpret_cast<unsigned long>(memory.data());
  EXPECT_ERRNO(ioctl(client.fd(), VIDIOC_QBUF, &buffer), EINVAL);
  buffer = VideoClient::Buffer(0, V4L2_MEMORY_USERPTR);
  buffer.length = 4096;
  buffer.m.userptr = ~0xFFFul;  // a value like that of a failed mmap
  EXPECT_ERRNO(ioctl(client.fd(), VIDIOC_QBUF, &buffer), EFAULT);
  buffer.m.userptr = reinterpret_cast<unsigned long>(memory.data());
  EXPECT_EQ(ioctl(client.fd(), VIDIOC_QBUF, &buffer), 0);
}

TEST_F(Video, NonblockingDequeueSaysAgain) {
  VideoClient client("/dev/video1", O_RDWR | O_NONBLOCK);
  client.Start(1024, 640, 2);
  v4l2_buffer buffer = VideoClient::Buffer(0);
  EXPECT_ERRNO(ioctl(client.fd(), VIDIOC_DQBUF, &buffer), EAGAIN);
  pollfd waiting{client.fd(), POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 10), 0);
}

TEST_F(Video, StreamOffEndsABlockedDequeue) {
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  std::thread blocked([&client] { EXPECT_TRUE(client.Dequeue().empty()); });
  EXPECT_EQ(client.StreamOff(), 0);
  blocked.join();
}

TEST_F(Video, UnpluggingEndsABlockedDequeue) {
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  std::thread blocked([&client] {
    EXPECT_TRUE(client.Dequeue().empty());
    EXPECT_EQ(errno, ENODEV);
  });
  tessaline_board_unplug();
  blocked.join();
}

// A thread that blocks in DQBUF and is cancelled.
struct Blocked {
  VideoClient* client;
  int type;
  std::atomic<bool> returned{false};
};

void* DequeueCancellably(void* argument) {
  auto* blocked = static_cast<Blocked*>(argument);
  int ignored = 0;
  pthread_setcanceltype(blocked->type, &ignored);
  // Not declared non-throwing, because the unwind must pass through it.
  int (*volatile call)(int, unsigned long, ...) =
      reinterpret_cast<int (*)(int, unsigned long, ...)>(&ioctl);
  v4l2_buffer buffer = VideoClient::Buffer(0);
  call(blocked->client->fd(), VIDIOC_DQBUF, &buffer);
  blocked->returned = true;
  return nullptr;
}

TEST_F(Video, AThreadWithAsynchronousCancellationEndsInsideTheDequeue) {
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  for (int round = 0; round < 50; ++round) {
    Blocked blocked{&client, PTHREAD_CANCEL_ASYNCHRONOUS};
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, DequeueCancellably, &blocked), 0);
    if (round % 2 == 0) sched_yield();
    ASSERT_EQ(pthread_cancel(thread), 0);
    // Ignores the result of join. The C library sets none for a thread that ends where it enables
    // its cancellation again.
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_FALSE(blocked.returned);
  }
  EXPECT_EQ(client.StreamOff(), 0) << "no lock was left behind";
}

TEST_F(Video, AnIoctlIsNoCancellationPointOtherwise) {
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  Blocked blocked{&client, PTHREAD_CANCEL_DEFERRED};
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, nullptr, DequeueCancellably, &blocked), 0);
  ASSERT_EQ(pthread_cancel(thread), 0);
  EXPECT_EQ(client.StreamOff(), 0);
  pthread_join(thread, nullptr);
  EXPECT_TRUE(blocked.returned);
}

TEST_F(Video, FailuresCanBePlantedForTheNthCall) {
  VideoClient client("/dev/video1");
  tessaline_board_fault("video1", "VIDIOC_S_FMT", 1, 2, EIO);
  EXPECT_EQ(client.SetFormat(64, 64), 0);
  EXPECT_ERRNO(client.SetFormat(64, 64), EIO);
  EXPECT_ERRNO(client.SetFormat(64, 64), EIO);
  EXPECT_EQ(client.SetFormat(64, 64), 0);
  EXPECT_THAT(Events(), ::testing::Contains("video1 VIDIOC_S_FMT failed: EIO").Times(2));
}

}  // namespace
