// The plain capture functions on the virtual board: steps, frames and texts.
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "PlainCapture.h"
#include "support/Waiting.h"

namespace tessaline_test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

bool IsMapped(const void* address, std::size_t bytes) {
  auto* page = static_cast<std::uint8_t*>(const_cast<void*>(address));
  return msync(page, bytes, MS_ASYNC) == 0;
}

// --- Single steps -----------------------------------------------------------------------

class PlainSteps : public PlainCapture {
 protected:
  void SetUp() override {
    PlainCapture::SetUp();
    fd_ = v4l2_open(kDevice);
    ASSERT_GE(fd_, 0);
    tessaline_board_transcript_clear();
  }
  void TearDown() override {
    EXPECT_EQ(v4l2_close(fd_), 0);
    EXPECT_FALSE(IsOpen(fd_));
    PlainCapture::TearDown();
  }

  static bool IsOpen(int fd) { return fcntl(fd, F_GETFD) >= 0; }

  static v4l2_buffer Buffer(unsigned index = 0) {
    v4l2_buffer buffer{};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    return buffer;
  }

  int fd_ = -1;
};

TEST_F(PlainCapture, OpensForCaptureOnly) {
  const int fd = v4l2_open(kDevice);
  EXPECT_GE(fd, 0);
  EXPECT_THAT(Events(), ElementsAre("video0 VIDIOC_QUERYCAP"));
  EXPECT_EQ(Printed(), "");
  v4l2_close(fd);
}

TEST_F(PlainCapture, SaysWhyItCannotOpen) {
  EXPECT_EQ(v4l2_open(kNowhere), -1);
  EXPECT_EQ(Printed(), "v4l2_open failed: No such file or directory\n");
  EXPECT_EQ(v4l2_open(nullptr), -1);
  EXPECT_EQ(Printed(), "v4l2_open failed: Bad address\n");
  Fail("open", EACCES);
  EXPECT_EQ(v4l2_open(kDevice), -1);
  EXPECT_EQ(Printed(), "v4l2_open failed: Permission denied\n");
}

TEST_F(PlainCapture, ADeviceThatDoesNotAnswerIsClosedAgain) {
  const int before = OpenDescriptors();
  EXPECT_EQ(Told([] { EXPECT_EQ(v4l2_open("/dev/i2c-0"), -1); }),
            "Setting Pixel Format: Inappropriate ioctl for device\n");
  EXPECT_EQ(Printed(), "");
  EXPECT_TRUE(tessaline_test::NoDescriptorsAreLeft(before));
}

TEST_F(PlainSteps, SetTheFormat) {
  EXPECT_EQ(v4l2_setfmt(fd_, 640, 480), 0);
  EXPECT_THAT(Events(), ElementsAre("video0 VIDIOC_TRY_FMT 640x480 GREY",
                                    "video0 VIDIOC_S_FMT 640x480 GREY"));
  v4l2_format format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  ASSERT_EQ(ioctl(fd_, VIDIOC_G_FMT, &format), 0);
  EXPECT_EQ(format.fmt.pix.width, 640u);
  EXPECT_EQ(format.fmt.pix.height, 480u);
  EXPECT_EQ(format.fmt.pix.field, V4L2_FIELD_NONE);
}

TEST_F(PlainSteps, AFormatThatCannotBeTriedIsSetAllTheSame) {
  Fail("VIDIOC_TRY_FMT", EINVAL);
  EXPECT_EQ(v4l2_setfmt(fd_, 640, 480), 0);
  EXPECT_EQ(Printed(), "VIDIOC_TRY_FMT failed: Invalid argument (22)\n");
  EXPECT_THAT(Events(), ElementsAre("video0 VIDIOC_TRY_FMT failed: EINVAL",
                                    "video0 VIDIOC_S_FMT 640x480 GREY"));
}

TEST_F(PlainSteps, AFormatThatCannotBeSetIsAFailure) {
  Fail("VIDIOC_S_FMT", EBUSY);
  EXPECT_EQ(v4l2_setfmt(fd_, 640, 480), -1);
  EXPECT_EQ(Printed(), "VIDIOC_S_FMT failed: Device or resource busy (16)\n");
}

TEST_F(PlainSteps, RequestMapAndQueueTheBuffers) {
  ASSERT_EQ(v4l2_setfmt(fd_, 64, 64), 0);
  tessaline_board_transcript_clear();
  tessaline_image_buffer* buffers = v4l2_reqbufs(fd_, 64, 64, 8, 2);
  ASSERT_NE(buffers, nullptr);
  EXPECT_THAT(Events(), ElementsAre("video0 VIDIOC_REQBUFS MMAP 2 -> 2", "video0 VIDIOC_QUERYBUF 0",
                                    "video0 mmap 4096 bytes at 0", "video0 VIDIOC_QBUF 0",
                                    "video0 VIDIOC_QUERYBUF 1", "video0 mmap 4096 bytes at 4096",
                                    "video0 VIDIOC_QBUF 1"));
  for (unsigned index = 0; index < 2; ++index) {
    EXPECT_TRUE(IsMapped(buffers[index].address, 64 * 64));
    // Only index and address are filled in.
    tessaline_image_buffer expected{};
    expected.descriptor.index = index;
    expected.address = buffers[index].address;
    EXPECT_EQ(memcmp(&buffers[index], &expected, sizeof expected), 0);
    memset(buffers[index].address, 0x5A, 64 * 64);  // the host may also write there
    munmap(buffers[index].address, 64 * 64);
  }
  free(buffers);
  EXPECT_EQ(Printed(), "");
}

TEST_F(PlainSteps, NoBuffersAreAnEmptyArray) {
  tessaline_image_buffer* buffers = v4l2_reqbufs(fd_, 64, 64, 8, 0);
  EXPECT_NE(buffers, nullptr);
  EXPECT_THAT(Events(), ElementsAre("video0 VIDIOC_REQBUFS MMAP 0 -> 0"));
  free(buffers);
}

TEST_F(PlainSteps, TheStreamStartsAndStops) {
  free(v4l2_reqbufs(fd_, 64, 64, 8, 1));
  tessaline_board_transcript_clear();
  EXPECT_EQ(v4l2_streamon(fd_), 0);
  EXPECT_EQ(v4l2_streamoff(fd_), 0);
  EXPECT_THAT(Events(), ElementsAre("video0 VIDIOC_STREAMON", "video0 VIDIOC_STREAMOFF"));
  EXPECT_EQ(Printed(), "");
}

TEST_F(PlainSteps, AStreamThatDoesNotSwitchIsToldWithoutANewline) {
  EXPECT_EQ(v4l2_streamon(fd_), -1);
  EXPECT_EQ(Printed(), "VIDIOC_STREAMON failed: Invalid argument (22)");
  Fail("VIDIOC_STREAMOFF", EIO);
  EXPECT_EQ(v4l2_streamoff(fd_), -1);
  EXPECT_EQ(Printed(), "VIDIOC_STREAMOFF failed: Input/output error (5)");
}

TEST_F(PlainSteps, ABufferThatIsRefusedIsTold) {
  v4l2_buffer buffer = Buffer(99);
  EXPECT_EQ(v4l2_qbuf(fd_, &buffer), -1);
  EXPECT_EQ(Printed(), "VIDIOC_QBUF failed: Invalid argument (22)");
  EXPECT_EQ(v4l2_qbuf(fd_, nullptr), -1);
  EXPECT_EQ(Printed(), "VIDIOC_QBUF failed: Bad address (14)");
}

TEST_F(PlainSteps, TheReasonOutlivesAStandardOutputThatIsFull) {
  const int full = open("/dev/full", O_WRONLY);
  const int kept_output = dup(STDOUT_FILENO);
  setvbuf(stdout, nullptr, _IONBF, 0);
  dup2(full, STDOUT_FILENO);
  v4l2_buffer buffer = Buffer(99);
  errno = 0;
  const int result = v4l2_qbuf(fd_, &buffer);
  const int reason = errno;
  dup2(kept_output, STDOUT_FILENO);
  close(kept_output);
  close(full);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(reason, EINVAL);
}

TEST_F(PlainSteps, ADequeueWithoutAStreamIsTold) {
  v4l2_buffer buffer = Buffer();
  EXPECT_EQ(Told([&] { EXPECT_EQ(v4l2_dqbuf(fd_, &buffer), -1); }), "ioctl: Invalid argument\n");
  EXPECT_EQ(Printed(), "VIDIOC_DQBUF failed: Invalid argument (22)");
  EXPECT_EQ(Told([&] { EXPECT_EQ(v4l2_dqbuf(fd_, nullptr), -1); }), "ioctl: Bad address\n");
  EXPECT_EQ(Printed(), "VIDIOC_DQBUF failed: Bad address (14)");
}

TEST_F(PlainSteps, AFrameGoesRound) {
  FrameSource::Prepare();
  FrameSource::Route(FrameSource::kImages);
  ASSERT_EQ(v4l2_setfmt(fd_, kWidth, kHeight), 0);
  tessaline_image_buffer* buffers = v4l2_reqbufs(fd_, kWidth, kHeight, 8, 2);
  ASSERT_EQ(v4l2_streamon(fd_), 0);
  FrameSource::Trigger(true);
  for (int frame = 0; frame < 6; ++frame) {
    v4l2_buffer filled = Buffer();
    ASSERT_EQ(v4l2_dqbuf(fd_, &filled), 0);
    EXPECT_EQ(filled.sequence, static_cast<unsigned>(frame));
    buffers[filled.index].descriptor = filled;
    ASSERT_EQ(v4l2_release(fd_, &buffers[filled.index]), 0);
  }
  EXPECT_EQ(v4l2_streamoff(fd_), 0);
  for (int index = 0; index < 2; ++index) {
    munmap(buffers[index].address, std::size_t{kWidth} * kHeight);
  }
  free(buffers);
  EXPECT_EQ(Printed(), "");
}

TEST_F(PlainSteps, AReleaseOfNothingIsRefused) {
  EXPECT_EQ(Told([this] { EXPECT_EQ(v4l2_release(fd_, nullptr), -1); }),
            "v4l2_release: Bad address\n");
}

TEST_F(PlainCapture, ClosingWhatIsNotOpenIsNoFailure) { EXPECT_EQ(v4l2_close(-1), 0); }

// --- Channels ---------------------------------------------------------------------------

TEST_F(PlainCapture, AChannelIsSetUpInOneGo) {
  tessaline_video_channel* channel = Channel(2, 64, 48);
  ASSERT_NE(channel, nullptr);
  EXPECT_THAT(Events(),
              ElementsAre("video0 VIDIOC_QUERYCAP", "video0 VIDIOC_TRY_FMT 64x48 GREY",
                          "video0 VIDIOC_S_FMT 64x48 GREY", "video0 VIDIOC_REQBUFS MMAP 2 -> 2",
                          "video0 VIDIOC_QUERYBUF 0", "video0 mmap 3072 bytes at 0",
                          "video0 VIDIOC_QBUF 0", "video0 VIDIOC_QUERYBUF 1",
                          "video0 mmap 3072 bytes at 4096", "video0 VIDIOC_QBUF 1"));
  EXPECT_GE(channel->fd, 0);
  EXPECT_EQ(channel->width, 64u);
  EXPECT_EQ(channel->height, 48u);
  EXPECT_EQ(channel->tag, kTag);
  EXPECT_EQ(channel->count, 2u);
  for (unsigned index = 0; index < 2; ++index) {
    const tessaline_image_buffer& buffer = channel->buffers[index];
    EXPECT_EQ(buffer.width, 64u);
    EXPECT_EQ(buffer.height, 48u);
    EXPECT_EQ(buffer.tag, kTag);
    EXPECT_EQ(buffer.descriptor.index, index);
    EXPECT_EQ(buffer.sequence, 0u);
    EXPECT_EQ(buffer.in_use, 0u);
    EXPECT_THAT(buffer.reserved_16, Each(0));
    EXPECT_THAT(buffer.reserved_124, Each(0));
  }
  EXPECT_EQ(close_video_channel(channel), 0);
  EXPECT_EQ(Printed(), "");
}

TEST_F(PlainCapture, CapturesTheFramesOfTheSensor) {
  FrameSource::Prepare();
  FrameSource::Route(FrameSource::kImages);
  tessaline_video_channel* channel = Channel();
  ASSERT_EQ(video_start_capture(channel), 0);
  FrameSource::Trigger(true);
  const std::size_t pixels = std::size_t{FrameSource::kWidth} * FrameSource::kHeight;
  for (std::uint64_t frame = 0; frame < 12; ++frame) {
    int result = -1;
    tessaline_image_buffer* image = video_request_img_buf(channel, &result);
    ASSERT_EQ(result, 0);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image, &channel->buffers[image->descriptor.index]);
    EXPECT_EQ(image->in_use, 1u);
    EXPECT_EQ(image->tag, kTag);
    EXPECT_EQ(image->sequence, frame);
    EXPECT_EQ(image->descriptor.sequence, frame);
    EXPECT_EQ(image->descriptor.length, kWidth * kHeight);
    // The FPGA writes its frame count, which starts at 1, behind the pixels.
    const auto* bytes = static_cast<const std::uint8_t*>(image->address);
    std::uint64_t id = 0;
    memcpy(&id, bytes + pixels, sizeof id);
    EXPECT_EQ(id, frame + 1);
    EXPECT_NE(std::count(bytes, bytes + pixels, 0), static_cast<std::ptrdiff_t>(pixels));
    ASSERT_EQ(video_release_img_buf(channel, image), 0);
    EXPECT_EQ(image->in_use, 1u) << "the mark stays";
  }
  EXPECT_EQ(video_stop_capture(channel), 0);
  FrameSource::Trigger(false);
  EXPECT_EQ(close_video_channel(channel), 0);
  EXPECT_EQ(Printed(), "");
}

TEST_F(PlainCapture, AFrameThatDoesNotComeIsTheFirstBuffer) {
  tessaline_video_channel* channel = Channel(2, 64, 64);
  channel->buffers[0].sequence = 77;
  int result = 0;
  tessaline_image_buffer* image = nullptr;
  EXPECT_EQ(Told([&] { image = video_request_img_buf(channel, &result); }),
            "ioctl: Invalid argument\n");
  EXPECT_EQ(Printed(), "VIDIOC_DQBUF failed: Invalid argument (22)");
  EXPECT_EQ(result, -1);
  ASSERT_EQ(image, &channel->buffers[0]);
  EXPECT_EQ(image->sequence, 0u);
  EXPECT_EQ(image->in_use, 1u);
  close_video_channel(channel);
}

TEST_F(PlainCapture, ABufferTheDriverHasAlreadyIsRefused) {
  tessaline_video_channel* channel = Channel(2, 64, 64);
  EXPECT_EQ(video_release_img_buf(channel, &channel->buffers[1]), -1);
  EXPECT_EQ(Printed(), "VIDIOC_QBUF failed: Invalid argument (22)");
  close_video_channel(channel);
}

TEST_F(PlainCapture, ClosingLeavesNothingBehind) {
  const int before = OpenDescriptors();
  tessaline_video_channel* channel = Channel(3, 128, 64);
  std::vector<void*> frames;
  for (unsigned index = 0; index < channel->count; ++index) {
    frames.push_back(channel->buffers[index].address);
    EXPECT_TRUE(IsMapped(frames.back(), 128 * 64));
  }
  EXPECT_EQ(close_video_channel(channel), 0);
  for (void* frame : frames) EXPECT_FALSE(IsMapped(frame, 128 * 64));
  EXPECT_TRUE(tessaline_test::NoDescriptorsAreLeft(before));
  // The driver has its buffers back.
  tessaline_video_channel* next = Channel(3, 64, 64);
  EXPECT_EQ(next->count, 3u);
  close_video_channel(next);
}

// The driver makes rows of at least 16 pixels, so its frames are larger here.
TEST_F(PlainCapture, ClosingUnmapsWhatWasAskedFor) {
  tessaline_video_channel* channel = Channel(1, 4, 4096);
  auto* frame = static_cast<std::uint8_t*>(channel->buffers[0].address);
  EXPECT_TRUE(IsMapped(frame, 16 * 4096));
  EXPECT_EQ(close_video_channel(channel), 0);
  EXPECT_FALSE(IsMapped(frame, kPage));
  EXPECT_FALSE(IsMapped(frame + 3 * kPage, kPage));
  EXPECT_TRUE(IsMapped(frame + 4 * kPage, 12 * kPage));
  munmap(frame + 4 * kPage, 12 * kPage);
}

TEST_F(PlainCapture, FewerBuffersThanAskedAreAllThereIs) {
  tessaline_video_channel* channel = Channel(40, 64, 64);  // the driver has only 32
  EXPECT_EQ(channel->count, 32u);
  for (unsigned index = 0; index < channel->count; ++index) {
    EXPECT_EQ(channel->buffers[index].tag, kTag);
    EXPECT_EQ(channel->buffers[index].descriptor.index, index);
  }
  EXPECT_EQ(video_start_capture(channel), 0);
  EXPECT_EQ(video_stop_capture(channel), 0);
  EXPECT_EQ(close_video_channel(channel), 0);
}

TEST_F(PlainCapture, AChannelWithoutBuffersGivesNone) {
  tessaline_video_channel* channel = Channel(0, 64, 64);
  EXPECT_EQ(channel->count, 0u);
  int result = 0;
  EXPECT_EQ(Told([&] { EXPECT_EQ(video_request_img_buf(channel, &result), nullptr); }),
            "ioctl: Invalid argument\n");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(close_video_channel(channel), 0);
}

// --- Null pointers ----------------------------------------------------------------------

struct NullCall {
  const char* name;
  void (*call)(tessaline_video_channel* channel);
};

void PrintTo(const NullCall& row, std::ostream* out) { *out << row.name; }

class PlainNull : public PlainCapture, public ::testing::WithParamInterface<NullCall> {};

TEST_P(PlainNull, IsRefusedByNameAndTouchesNothing) {
  tessaline_video_channel* channel = Channel(1, 64, 64);
  tessaline_board_transcript_clear();
  EXPECT_EQ(Told([&] { GetParam().call(channel); }),
            std::string(GetParam().name) + ": Bad address\n");
  EXPECT_EQ(Printed(), "");
  EXPECT_THAT(Events(), IsEmpty());
  close_video_channel(channel);
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, PlainNull,
    ::testing::Values(
        NullCall{"video_start_capture",
                 [](tessaline_video_channel*) { EXPECT_EQ(video_start_capture(nullptr), -1); }},
        NullCall{"video_stop_capture",
                 [](tessaline_video_channel*) { EXPECT_EQ(video_stop_capture(nullptr), -1); }},
        NullCall{"video_request_img_buf",
                 [](tessaline_video_channel*) {
                   int result = 0;
                   EXPECT_EQ(video_request_img_buf(nullptr, &result), nullptr);
                   EXPECT_EQ(result, -1);
                 }},
        NullCall{"video_request_img_buf",
                 [](tessaline_video_channel* channel) {
                   EXPECT_EQ(video_request_img_buf(channel, nullptr), nullptr);
                 }},
        NullCall{"video_release_img_buf",
                 [](tessaline_video_channel* channel) {
                   EXPECT_EQ(video_release_img_buf(nullptr, channel->buffers), -1);
                 }},
        NullCall{"video_release_img_buf",
                 [](tessaline_video_channel* channel) {
                   EXPECT_EQ(video_release_img_buf(channel, nullptr), -1);
                 }},
        NullCall{"close_video_channel",
                 [](tessaline_video_channel*) { EXPECT_EQ(close_video_channel(nullptr), -1); }}));

}  // namespace
}  // namespace tessaline_test
