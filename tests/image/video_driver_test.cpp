// Plain capture with drivers whose answers differ from the virtual board's.
#include <errno.h>
#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/mman.h>

#include <string>
#include <vector>

#include "support/BoardFixture.h"
#include "support/ChangedDriver.h"
#include "support/Waiting.h"
#include "tessaline/video.h"

namespace tessaline_test {
namespace {

class PlainDriver : public BoardFixture {
 protected:
  PlainDriver() : BoardFixture("K3610") {}
  void TearDown() override {
    changed_driver = nullptr;
    BoardFixture::TearDown();
  }

  static tessaline_video_channel* Channel(unsigned count) {
    return create_video_channel("/dev/video0", 0, 64, 64, 0, 7, count);
  }
};

TEST_F(PlainDriver, ThatCannotCaptureIsClosedAgain) {
  RefuseToCapture();
  const int before = OpenDescriptors();
  EXPECT_EQ(v4l2_open("/dev/video0"), -1);
  EXPECT_EQ(Printed(), "Not a capture device");
  EXPECT_TRUE(tessaline_test::NoDescriptorsAreLeft(before));
  EXPECT_EXIT(Channel(2), ::testing::ExitedWithCode(255), "^v4l2_open: No such device\n$");
  EXPECT_THAT(Printed(),
              ::testing::MatchesRegex("Not a capture deviceimage/video\\.cpp\\([1-9][0-9]*\\) "));
}

TEST_F(PlainDriver, ThatGrantsFewerBuffersDecidesTheirNumber) {
  GrantBuffers(2);
  tessaline_video_channel* channel = Channel(5);
  EXPECT_EQ(channel->count, 2u);
  EXPECT_EQ(channel->buffers[1].tag, 7u);
  EXPECT_EQ(close_video_channel(channel), 0);
}

TEST_F(PlainDriver, ThatGrantsMoreBuffersDecidesTheirNumber) {
  GrantBuffers(6);
  const int before = OpenDescriptors();
  tessaline_video_channel* channel = Channel(1);
  EXPECT_EQ(channel->count, 6u);
  EXPECT_EQ(channel->buffers[5].tag, 7u);
  EXPECT_EQ(channel->buffers[5].width, 64u);
  EXPECT_EQ(close_video_channel(channel), 0);
  EXPECT_TRUE(tessaline_test::NoDescriptorsAreLeft(before));
}

TEST_F(PlainDriver, IsAskedForProgressiveFramesOfTheWholeSize) {
  std::vector<std::string> asked;
  changed_driver = [&asked](Ioctl call, int fd, unsigned long request, void* argument) {
    if (request == VIDIOC_TRY_FMT || request == VIDIOC_S_FMT) {
      const auto& format = *static_cast<v4l2_format*>(argument);
      EXPECT_EQ(format.type, V4L2_BUF_TYPE_VIDEO_CAPTURE);
      asked.push_back("field " + std::to_string(format.fmt.pix.field));
    }
    if (request == VIDIOC_QUERYBUF) {
      const auto& buffer = *static_cast<v4l2_buffer*>(argument);
      EXPECT_EQ(buffer.type, V4L2_BUF_TYPE_VIDEO_CAPTURE);
      EXPECT_EQ(buffer.memory, V4L2_MEMORY_MMAP);
      asked.push_back(std::to_string(buffer.length) + " bytes");
    }
    return call(fd, request, argument);
  };
  const std::string progressive = "field " + std::to_string(V4L2_FIELD_NONE);
  close_video_channel(create_video_channel("/dev/video0", 0, 64, 48, 0, 7, 1));
  EXPECT_THAT(asked, ::testing::ElementsAre(progressive, progressive, "3072 bytes"));
  asked.clear();
  const int fd = v4l2_open("/dev/video0");
  tessaline_image_buffer* buffers = v4l2_reqbufs(fd, 32, 16, 8, 1);
  EXPECT_THAT(asked, ::testing::ElementsAre("512 bytes"));
  munmap(buffers[0].address, 64 * 48);
  free(buffers);
  v4l2_close(fd);
}

TEST_F(PlainDriver, ThatNamesABufferThereIsNotGivesNone) {
  tessaline_video_channel* channel = Channel(2);
  changed_driver = [](Ioctl, int, unsigned long, void* argument) {
    static_cast<v4l2_buffer*>(argument)->index = 2;
    return 0;
  };
  int result = 0;
  EXPECT_EQ(video_request_img_buf(channel, &result), nullptr);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(close_video_channel(channel), 0);
}

}  // namespace
}  // namespace tessaline_test
