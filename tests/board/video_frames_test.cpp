// What a capture device tells about the frames in its buffers.

#include <gtest/gtest.h>

#include <optional>

#include "board/BoardFixture.h"
#include "board/VideoClient.h"
#include "support/FrameSource.h"

namespace {

using namespace board_test;  // NOLINT(google-build-using-namespace)
using tessaline_test::FrameSource;

class VideoFrames : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    client_.emplace("/dev/video0");
    FrameSource::Prepare();
    FrameSource::Route(FrameSource::kImages);
  }

  std::optional<VideoClient> client_;
};

TEST_F(VideoFrames, CountFromZeroInEveryStream) {
  client_->Start(FrameSource::kWidth, FrameSource::kHeight + 1, 2);
  FrameSource::Trigger(true);
  for (unsigned frame = 0; frame < 5; ++frame) {
    ASSERT_FALSE(client_->Dequeue().empty());
    EXPECT_EQ(client_->last().sequence, frame);
    client_->Requeue();
  }
  ASSERT_EQ(client_->StreamOff(), 0);
  for (const unsigned index : {0u, 1u}) {
    v4l2_buffer buffer = VideoClient::Buffer(index);
    ASSERT_EQ(ioctl(client_->fd(), VIDIOC_QBUF, &buffer), 0);
  }
  ASSERT_EQ(client_->StreamOn(), 0);
  ASSERT_FALSE(client_->Dequeue().empty());
  EXPECT_EQ(client_->last().sequence, 0u);
}

TEST_F(VideoFrames, CountTheWholeBufferAndSayWhenTheyEnded) {
  client_->Start(FrameSource::kWidth, FrameSource::kHeight + 1, 2);
  FrameSource::Trigger(true);
  ASSERT_FALSE(client_->Dequeue().empty());
  const v4l2_buffer& frame = client_->last();
  EXPECT_EQ(frame.bytesused, FrameSource::kWidth * (FrameSource::kHeight + 1));
  EXPECT_EQ(frame.flags, unsigned{V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC}) << "neither queued nor done";
  EXPECT_GT(frame.timestamp.tv_sec + frame.timestamp.tv_usec, 0);
}

TEST_F(VideoFrames, ThatDoNotFitAreMarkedAsErrors) {
  client_->Start(64, 64, 1);
  FrameSource::Trigger(true);
  ASSERT_FALSE(client_->Dequeue().empty());
  EXPECT_TRUE(client_->last().flags & V4L2_BUF_FLAG_ERROR);
  v4l2_buffer buffer = VideoClient::Buffer(0);
  ASSERT_EQ(ioctl(client_->fd(), VIDIOC_QUERYBUF, &buffer), 0);
  EXPECT_FALSE(buffer.flags & (V4L2_BUF_FLAG_ERROR | V4L2_BUF_FLAG_DONE)) << "software's again";
}

TEST_F(VideoFrames, AlsoFillBuffersThatAreCreatedDuringTheStream) {
  const unsigned bytes = FrameSource::kWidth * (FrameSource::kHeight + 1);
  client_->Start(FrameSource::kWidth, FrameSource::kHeight + 1, 1);
  FrameSource::Trigger(true);
  v4l2_create_buffers wanted{};
  wanted.count = 1;
  wanted.memory = V4L2_MEMORY_MMAP;
  wanted.format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  wanted.format.fmt.pix.sizeimage = 2 * bytes;
  ASSERT_EQ(ioctl(client_->fd(), VIDIOC_CREATE_BUFS, &wanted), 0);
  v4l2_buffer buffer = VideoClient::Buffer(0);
  ASSERT_EQ(ioctl(client_->fd(), VIDIOC_DQBUF, &buffer), 0);
  buffer = VideoClient::Buffer(wanted.index);
  ASSERT_EQ(ioctl(client_->fd(), VIDIOC_QBUF, &buffer), 0);
  ASSERT_EQ(ioctl(client_->fd(), VIDIOC_DQBUF, &buffer), 0);
  EXPECT_EQ(buffer.index, wanted.index);
  EXPECT_EQ(buffer.bytesused, bytes) << "a frame, not the buffer's room for two";
  EXPECT_EQ(buffer.length, 2 * bytes);
}

}  // namespace
