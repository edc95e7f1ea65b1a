#include "support/LoopedVideo.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <stdexcept>

namespace kernel_test {

namespace {

// Controls of the test driver.
constexpr __u32 kDriver = 0x00f0f000;
constexpr __u32 kOsd = kDriver + 1;
constexpr __u32 kLosePercent = kDriver + 64;
constexpr __u32 kLoop = kDriver + 37;
constexpr __u32 kCaptureCrop = kDriver + 31;
constexpr __u32 kCaptureCompose = kDriver + 32;
constexpr __u32 kCaptureScaler = kDriver + 33;
constexpr __u32 kOutputScaler = kDriver + 36;
constexpr int kNoOsd = 2;

constexpr unsigned kOutputBuffers = 4;

// The largest of the driver's video modes.
constexpr unsigned kWidest = 4096;
constexpr unsigned kHighest = 2160;

int Ask(int fd, unsigned long request, void* argument, const char* what) {
  const int result = ioctl(fd, request, argument);
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + strerror(errno));
  return result;
}

int OpenNode(unsigned number) {
  const std::string path = "/dev/video" + std::to_string(number);
  const int fd = open(path.c_str(), O_RDWR);
  if (fd < 0) throw std::runtime_error(path + ": " + strerror(errno));
  return fd;
}

void Control(int fd, __u32 id, int value) {
  v4l2_control control{id, value};
  Ask(fd, VIDIOC_S_CTRL, &control, ("control " + std::to_string(id - kDriver)).c_str());
}

}  // namespace

LoopedVideo::LoopedVideo(unsigned number, unsigned width, unsigned height) {
  output_ = OpenNode(10 + number);
  scaled_ = width > kWidest || height > kHighest;
  v4l2_dv_timings timings = ChooseTimings(std::min(width, kWidest), std::min(height, kHighest));
  SetUpCapture(number, timings);
  Ask(output_, VIDIOC_S_DV_TIMINGS, &timings, "timings of the output");
  Control(output_, kOutputScaler, 0);

  v4l2_format format{};
  format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  format.fmt.pix.width = timings.bt.width;
  format.fmt.pix.height = timings.bt.height;
  format.fmt.pix.pixelformat = V4L2_PIX_FMT_GREY;
  format.fmt.pix.field = V4L2_FIELD_NONE;
  Ask(output_, VIDIOC_S_FMT, &format, "format of the output");
  line_bytes_ = format.fmt.pix.bytesperline;

  v4l2_requestbuffers request{};
  request.count = kOutputBuffers;
  request.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  request.memory = V4L2_MEMORY_MMAP;
  Ask(output_, VIDIOC_REQBUFS, &request, "buffers of the output");
  for (unsigned i = 0; i < request.count; ++i) {
    v4l2_buffer buffer{};
    buffer.index = i;
    buffer.type = request.type;
    buffer.memory = request.memory;
    Ask(output_, VIDIOC_QUERYBUF, &buffer, "buffer of the output");
    void* data =
        mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, output_, buffer.m.offset);
    if (data == MAP_FAILED) throw std::runtime_error("mmap of the output");
    buffers_.push_back({static_cast<std::byte*>(data), buffer.length});
  }
}

LoopedVideo::~LoopedVideo() {
  running_ = false;
  if (feeder_.joinable()) feeder_.join();
  int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  ioctl(output_, VIDIOC_STREAMOFF, &type);
  for (const Mapped& buffer : buffers_) munmap(buffer.data, buffer.size);
  close(output_);
}

// The smallest progressive mode of the driver that holds such a frame.
v4l2_dv_timings LoopedVideo::ChooseTimings(unsigned width, unsigned height) {
  v4l2_dv_timings best{};
  unsigned best_pixels = UINT_MAX;
  for (unsigned i = 0;; ++i) {
    v4l2_enum_dv_timings each{};
    each.index = i;
    if (ioctl(output_, VIDIOC_ENUM_DV_TIMINGS, &each) < 0) break;
    const v4l2_bt_timings& mode = each.timings.bt;
    const unsigned pixels = mode.width * mode.height;
    if (mode.interlaced || mode.width < width || mode.height < height || pixels >= best_pixels) {
      continue;
    }
    best = each.timings;
    best_pixels = pixels;
  }
  if (best_pixels == UINT_MAX) throw std::runtime_error("no video mode is so large");
  const v4l2_bt_timings& mode = best.bt;
  frames_per_second_ =
      static_cast<double>(mode.pixelclock) /
      ((mode.width + mode.hfrontporch + mode.hsync + mode.hbackporch) *
       static_cast<double>(mode.height + mode.vfrontporch + mode.vsync + mode.vbackporch));
  return best;
}

void LoopedVideo::SetUpCapture(unsigned number, v4l2_dv_timings timings) {
  const int capture = OpenNode(number);
  Ask(capture, VIDIOC_S_DV_TIMINGS, &timings, "timings of the capture");
  Control(capture, kCaptureScaler, scaled_ ? 1 : 0);
  Control(capture, kCaptureCompose, 0);
  Control(capture, kCaptureCrop, 1);
  Control(capture, kLoop, 1);
  Control(capture, kOsd, kNoOsd);
  Control(capture, kLosePercent, 0);
  close(capture);
}

void LoopedVideo::LosePercent(unsigned number, int percent) {
  const int capture = OpenNode(number);
  Control(capture, kLosePercent, percent);
  close(capture);
}

void LoopedVideo::Start(Fill fill) {
  running_ = true;
  for (unsigned i = 0; i < buffers_.size(); ++i) {
    fill(sent_++, buffers_[i].data, line_bytes_);
    v4l2_buffer buffer{};
    buffer.index = i;
    buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.bytesused = static_cast<__u32>(buffers_[i].size);
    Ask(output_, VIDIOC_QBUF, &buffer, "queue to the output");
  }
  int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  Ask(output_, VIDIOC_STREAMON, &type, "start of the output");
  feeder_ = std::thread([this, fill = std::move(fill)] { Feed(fill); });
}

void LoopedVideo::Feed(const Fill& fill) {
  while (running_) {
    pollfd ready{output_, POLLOUT, 0};
    if (poll(&ready, 1, 100) <= 0) continue;
    v4l2_buffer buffer{};
    buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffer.memory = V4L2_MEMORY_MMAP;
    if (ioctl(output_, VIDIOC_DQBUF, &buffer) < 0) continue;
    fill(sent_++, buffers_[buffer.index].data, line_bytes_);
    ioctl(output_, VIDIOC_QBUF, &buffer);
  }
}

}  // namespace kernel_test
