#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace board_test {

// A plain capture program: it does what any V4L2 application does, without the library.
class VideoClient {
 public:
  explicit VideoClient(const char* path, int flags = O_RDWR) : fd_(open(path, flags)) {}
  ~VideoClient() { Close(); }

  int fd() const { return fd_; }
  void Close() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    for (const auto& memory : memory_) munmap(memory.data(), memory.size());
    memory_.clear();
  }

  int SetFormat(unsigned width, unsigned height) {
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = width;
    format.fmt.pix.height = height;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_GREY;
    return ioctl(fd_, VIDIOC_S_FMT, &format);
  }

  // The number of buffers granted, or -1.
  int Request(unsigned count, unsigned memory = V4L2_MEMORY_MMAP) {
    v4l2_requestbuffers request{};
    request.count = count;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = memory;
    return ioctl(fd_, VIDIOC_REQBUFS, &request) == 0 ? static_cast<int>(request.count) : -1;
  }

  static v4l2_buffer Buffer(unsigned index, unsigned memory = V4L2_MEMORY_MMAP) {
    v4l2_buffer buffer{};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = memory;
    return buffer;
  }

  // Maps and queues `count` buffers of the driver and starts the stream.
  void Start(unsigned width, unsigned height, unsigned count) {
    ASSERT_EQ(SetFormat(width, height), 0);
    ASSERT_EQ(Request(count), static_cast<int>(count));
    for (unsigned i = 0; i < count; ++i) {
      v4l2_buffer buffer = Buffer(i);
      ASSERT_EQ(ioctl(fd_, VIDIOC_QUERYBUF, &buffer), 0);
      void* address =
          mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, buffer.m.offset);
      ASSERT_NE(address, MAP_FAILED);
      memory_.emplace_back(static_cast<std::uint8_t*>(address), buffer.length);
      ASSERT_EQ(ioctl(fd_, VIDIOC_QBUF, &buffer), 0);
    }
    ASSERT_EQ(StreamOn(), 0);
  }

  int StreamOn() { return Stream(VIDIOC_STREAMON); }
  int StreamOff() { return Stream(VIDIOC_STREAMOFF); }

  // Blocks until a frame arrives; returns its bytes, empty on failure.
  std::span<std::uint8_t> Dequeue() {
    last_ = Buffer(0);
    if (ioctl(fd_, VIDIOC_DQBUF, &last_) != 0) return {};
    return memory_[last_.index];
  }
  // As a program that wants no old frames.
  void ClearAll() const {
    for (const auto& memory : memory_) std::fill(memory.begin(), memory.end(), 0);
  }
  int Requeue() { return ioctl(fd_, VIDIOC_QBUF, &last_); }
  const v4l2_buffer& last() const { return last_; }

 private:
  int Stream(unsigned long request) {
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    return ioctl(fd_, request, &type);
  }

  int fd_;
  v4l2_buffer last_{};
  std::vector<std::span<std::uint8_t>> memory_;
};

}  // namespace board_test
