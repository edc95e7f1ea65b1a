#include "tessaline/video.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "thread/NotCancellable.h"
#include "thread/SystemCalls.h"

namespace {

using VeltranoSDK::Ioctl;
using VeltranoSDK::NotCancellable;
using VeltranoSDK::OpenDevice;

// Hosts written in other languages declare the records by hand.
static_assert(sizeof(v4l2_buffer) == 88);
static_assert(sizeof(tessaline_image_buffer) == 176);
static_assert(offsetof(tessaline_image_buffer, width) == 0);
static_assert(offsetof(tessaline_image_buffer, height) == 4);
static_assert(offsetof(tessaline_image_buffer, tag) == 8);
static_assert(offsetof(tessaline_image_buffer, sequence) == 12);
static_assert(offsetof(tessaline_image_buffer, reserved_16) == 16);
static_assert(offsetof(tessaline_image_buffer, address) == 24);
static_assert(offsetof(tessaline_image_buffer, descriptor) == 32);
static_assert(offsetof(tessaline_image_buffer, in_use) == 120);
static_assert(offsetof(tessaline_image_buffer, reserved_124) == 124);
static_assert(offsetof(tessaline_video_channel, fd) == 0);
static_assert(offsetof(tessaline_video_channel, width) == 4);
static_assert(offsetof(tessaline_video_channel, height) == 8);
static_assert(offsetof(tessaline_video_channel, tag) == 12);
static_assert(offsetof(tessaline_video_channel, count) == 16);
static_assert(offsetof(tessaline_video_channel, buffers) == 24);

constexpr int kFailed = -1;

// Reporting may change errno, which callers still need.
class KeptErrno {
 public:
  KeptErrno() = default;
  ~KeptErrno() { errno = value_; }
  KeptErrno(const KeptErrno&) = delete;
  KeptErrno& operator=(const KeptErrno&) = delete;

  int value() const { return value_; }

 private:
  const int value_ = errno;
};

// "<what> failed: <reason> (<errno>)" on standard output.
void TellReason(const char* what, const char* end) {
  const KeptErrno error;
  printf("%s failed: %s (%d)%s", what, strerror(error.value()), error.value(), end);
}

// The reason on standard error.
void TellError(const char* what) {
  const KeptErrno error;
  perror(what);
}

int BadAddress(const char* function) {
  errno = EFAULT;
  TellError(function);
  return kFailed;
}

// A channel that cannot work: prints the calling line and the reason, and ends the process.
[[noreturn]] void ExitFrom(const char* step, const char* file = __builtin_FILE(),
                           int line = __builtin_LINE()) {
  {
    const KeptErrno error;
    printf("%s(%d) ", file, line);
    fflush(stdout);
  }
  perror(step);
  exit(-1);
}

int OpenPath(const char* path) {
  if (path != nullptr) return OpenDevice(path, O_RDWR);
  errno = EFAULT;
  return kFailed;
}

v4l2_buffer MappedBuffer(unsigned int index = 0) {
  v4l2_buffer buffer{};
  buffer.index = index;
  buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  buffer.memory = V4L2_MEMORY_MMAP;
  return buffer;
}

struct Free {
  void operator()(void* memory) const { free(memory); }
};

// The buffers of a device, as many as its driver granted. Ends the process when one of them cannot
// be set up.
class GrantedBuffers {
 public:
  GrantedBuffers(int fd, unsigned int frame_bytes, unsigned int asked) {
    v4l2_requestbuffers request{};
    request.count = asked;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    if (Ioctl(fd, VIDIOC_REQBUFS, &request) != 0) Exit("Requesting Buffer");
    count_ = request.count;
    records_.reset(
        static_cast<tessaline_image_buffer*>(calloc(count_, sizeof(tessaline_image_buffer))));
    // calloc may return null for zero records.
    if (records_ == nullptr && count_ > 0) Exit("calloc");
    for (unsigned int index = 0; index < count_; ++index) MapAndQueue(fd, index, frame_bytes);
  }

  unsigned int count() const { return count_; }
  tessaline_image_buffer* Release() { return records_.release(); }

 private:
  void MapAndQueue(int fd, unsigned int index, unsigned int frame_bytes) {
    v4l2_buffer buffer = MappedBuffer(index);
    buffer.length = frame_bytes;
    if (Ioctl(fd, VIDIOC_QUERYBUF, &buffer) != 0) Exit("Querying Buffer");
    tessaline_image_buffer& record = records_.get()[index];
    record.descriptor.index = index;
    record.address = mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd,
                          static_cast<off_t>(buffer.m.offset));
    if (record.address == MAP_FAILED) Exit("mmap");
    if (Ioctl(fd, VIDIOC_QBUF, &buffer) != 0) Exit("Queue Buffer");
  }

  [[noreturn]] void Exit(const char* step) {
    perror(step);
    records_.reset();
    exit(1);
  }

  std::unique_ptr<tessaline_image_buffer, Free> records_;
  unsigned int count_ = 0;
};

int SwitchStream(int fd, unsigned long request, const char* name) {
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  const int result = Ioctl(fd, request, &type);
  if (result != 0) TellReason(name, "");
  return result;
}

}  // namespace

extern "C" {

// --- Single steps ------------------------------------------------------------------------

int v4l2_open(const char* path) {
  const NotCancellable whole;
  const int fd = OpenPath(path);
  if (fd < 0) {
    const KeptErrno error;
    printf("v4l2_open failed: %s\n", strerror(error.value()));
    return kFailed;
  }
  v4l2_capability capability{};
  if (Ioctl(fd, VIDIOC_QUERYCAP, &capability) != 0) {
    const KeptErrno error;
    perror("Setting Pixel Format");
    close(fd);
    return kFailed;
  }
  if ((capability.capabilities & V4L2_CAP_VIDEO_CAPTURE) == 0) {
    printf("Not a capture device");
    close(fd);
    errno = ENODEV;
    return kFailed;
  }
  return fd;
}

int v4l2_setfmt(int fd, unsigned int width, unsigned int height) {
  const NotCancellable whole;
  v4l2_format format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  format.fmt.pix.width = width;
  format.fmt.pix.height = height;
  format.fmt.pix.pixelformat = V4L2_PIX_FMT_GREY;
  format.fmt.pix.field = V4L2_FIELD_NONE;
  if (Ioctl(fd, VIDIOC_TRY_FMT, &format) != 0) TellReason("VIDIOC_TRY_FMT", "\n");
  const int result = Ioctl(fd, VIDIOC_S_FMT, &format);
  if (result != 0) TellReason("VIDIOC_S_FMT", "\n");
  return result;
}

tessaline_image_buffer* v4l2_reqbufs(int fd, unsigned int width, unsigned int height, unsigned int,
                                     unsigned int count) {
  const NotCancellable whole;
  return GrantedBuffers(fd, width * height, count).Release();
}

int v4l2_streamon(int fd) {
  const NotCancellable whole;
  return SwitchStream(fd, VIDIOC_STREAMON, "VIDIOC_STREAMON");
}

int v4l2_streamoff(int fd) {
  const NotCancellable whole;
  return SwitchStream(fd, VIDIOC_STREAMOFF, "VIDIOC_STREAMOFF");
}

int v4l2_qbuf(int fd, v4l2_buffer* buffer) {
  const NotCancellable whole;
  const int result = Ioctl(fd, VIDIOC_QBUF, buffer);
  if (result != 0) TellReason("VIDIOC_QBUF", "");
  return result;
}

int v4l2_dqbuf(int fd, v4l2_buffer* buffer) {
  const NotCancellable whole;
  // Not repeated after a signal: a handler of the application may end its wait for a frame.
  const int result = ioctl(fd, VIDIOC_DQBUF, buffer);
  if (result != 0) {
    TellError("ioctl");
    TellReason("VIDIOC_DQBUF", "");
  }
  return result;
}

int v4l2_close(int fd) {
  const NotCancellable whole;
  close(fd);
  return 0;
}

int v4l2_release(int fd, tessaline_image_buffer* image) {
  const NotCancellable whole;
  return image == nullptr ? BadAddress(__func__) : v4l2_qbuf(fd, &image->descriptor);
}

// --- Channels ----------------------------------------------------------------------------

tessaline_video_channel* create_video_channel(const char* device, unsigned int, unsigned int width,
                                              unsigned int height, unsigned int, unsigned int tag,
                                              unsigned int count) {
  const NotCancellable whole;
  auto* channel = static_cast<tessaline_video_channel*>(malloc(sizeof(tessaline_video_channel)));
  if (channel == nullptr) ExitFrom("malloc");
  channel->width = width;
  channel->height = height;
  channel->tag = tag;
  channel->fd = v4l2_open(device);
  if (channel->fd < 0) ExitFrom("v4l2_open");
  if (v4l2_setfmt(channel->fd, width, height) < 0) ExitFrom("v4l2_setfmt");
  GrantedBuffers granted(channel->fd, width * height, count);
  channel->count = granted.count();
  channel->buffers = granted.Release();
  if (channel->buffers == nullptr) ExitFrom("v4l2_reqbufs");
  for (unsigned int index = 0; index < channel->count; ++index) {
    channel->buffers[index].width = width;
    channel->buffers[index].height = height;
    channel->buffers[index].tag = tag;
  }
  return channel;
}

int video_start_capture(tessaline_video_channel* channel) {
  const NotCancellable whole;
  if (channel == nullptr) return BadAddress(__func__);
  const int result = v4l2_streamon(channel->fd);
  if (result < 0) ExitFrom("v4l2_streamon");
  return result;
}

int video_stop_capture(tessaline_video_channel* channel) {
  const NotCancellable whole;
  if (channel == nullptr) return BadAddress(__func__);
  const int result = v4l2_streamoff(channel->fd);
  if (result < 0) ExitFrom("v4l2_streamoff");
  return result;
}

tessaline_image_buffer* video_request_img_buf(tessaline_video_channel* channel, int* result) {
  const NotCancellable whole;
  if (channel == nullptr || result == nullptr) {
    const int failure = BadAddress(__func__);
    if (result != nullptr) *result = failure;
    return nullptr;
  }
  v4l2_buffer dequeued = MappedBuffer();
  *result = v4l2_dqbuf(channel->fd, &dequeued);
  if (dequeued.index >= channel->count) {
    *result = kFailed;
    return nullptr;
  }
  tessaline_image_buffer& record = channel->buffers[dequeued.index];
  record.descriptor = dequeued;
  record.sequence = dequeued.sequence;
  record.in_use = 1;
  return &record;
}

int video_release_img_buf(tessaline_video_channel* channel, tessaline_image_buffer* image) {
  const NotCancellable whole;
  if (channel == nullptr || image == nullptr) return BadAddress(__func__);
  return v4l2_qbuf(channel->fd, &image->descriptor);
}

int close_video_channel(tessaline_video_channel* channel) {
  const NotCancellable whole;
  if (channel == nullptr) return BadAddress(__func__);
  // The requested size; records do not keep the driver's.
  const std::size_t frame_bytes = static_cast<std::size_t>(channel->width) * channel->height;
  for (unsigned int index = 0; index < channel->count; ++index) {
    munmap(channel->buffers[index].address, frame_bytes);
  }
  free(channel->buffers);
  v4l2_close(channel->fd);
  free(channel);
  return 0;
}

}  // extern "C"
