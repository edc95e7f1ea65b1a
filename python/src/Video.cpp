#include "Video.h"

#include <poll.h>
#include <pybind11/numpy.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>

#include "Listening.h"
#include "Worker.h"
#include "WithoutGil.h"
#include "tessaline/video.h"

namespace py = pybind11;

namespace python {

namespace {

// Makes a call without Python's lock, and gives on what the library said. Channels do not touch
// each other, so calls of several may overlap.
template <typename Call>
auto Heard(Call call) {
  Listening listening;
  auto result = [&] {
    const WithoutGil release;
    return call();
  }();
  Report(listening.Lines());
  return result;
}

v4l2_buffer MappedBuffer(unsigned index) {
  v4l2_buffer buffer{};
  buffer.index = index;
  buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  buffer.memory = V4L2_MEMORY_MMAP;
  return buffer;
}

// Why a channel cannot be created: the step, "" if it can, and its errno.
struct Obstacle {
  const char* step = "";
  int error = 0;
  unsigned width = 0;  // what the driver makes of the size
  unsigned height = 0;
};

Obstacle FindObstacleOn(int fd, unsigned width, unsigned height, unsigned count) {
  if (v4l2_setfmt(fd, width, height) != 0) return {"format", errno};
  v4l2_format format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  if (ioctl(fd, VIDIOC_G_FMT, &format) != 0) return {"format", errno};
  const auto& seen = format.fmt.pix;
  if (seen.width != width || seen.height != height || seen.pixelformat != V4L2_PIX_FMT_GREY ||
      (seen.bytesperline != 0 && seen.bytesperline != width)) {
    return {"size", 0, seen.width, seen.height};
  }
  v4l2_requestbuffers request{};
  request.count = count;
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.memory = V4L2_MEMORY_MMAP;
  if (ioctl(fd, VIDIOC_REQBUFS, &request) != 0) return {"buffers", errno};
  if (request.count == 0) return {"buffers", ENOMEM};
  return {};
}

// Tries what create_video_channel() would end the process for. Closing the device gives the
// buffers back.
Obstacle FindObstacle(const std::string& path, unsigned width, unsigned height, unsigned count) {
  const int fd = v4l2_open(path.c_str());
  if (fd < 0) return {"open", errno};
  const Obstacle obstacle = FindObstacleOn(fd, width, height, count);
  v4l2_close(fd);
  return obstacle;
}

class Channel {
 public:
  Channel(const std::string& path, unsigned width, unsigned height, unsigned count, unsigned tag)
      : channel_(Heard(
            [&] { return create_video_channel(path.c_str(), 0, width, height, 0, tag, count); })),
        width_(width),
        height_(height) {}
  ~Channel() { Release(); }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  unsigned count() {
    const std::lock_guard lock(mutex_);
    return channel_ == nullptr ? 0 : channel_->count;
  }

  // 0, or an errno. video_start_capture() does the same, but ends the process at a refusal.
  int Start() {
    return Heard([this] {
      const std::lock_guard lock(mutex_);
      if (channel_ == nullptr) return EBADF;
      for (unsigned i = 0; stopped_ && i < channel_->count; ++i) {
        v4l2_buffer buffer = MappedBuffer(i);
        if (v4l2_qbuf(channel_->fd, &buffer) != 0) return errno;
      }
      stopped_ = false;
      return v4l2_streamon(channel_->fd) == 0 ? 0 : errno;
    });
  }

  int Stop() {
    return Heard([this] {
      const std::lock_guard lock(mutex_);
      if (channel_ == nullptr) return EBADF;
      if (v4l2_streamoff(channel_->fd) != 0) return errno;
      stopped_ = true;
      return 0;
    });
  }

  // Pixels, the driver's number, index of the buffer, tag and time; none when no frame came in
  // time; an errno. Negative: without a limit. Signals reach Python meanwhile.
  py::object Wait(int milliseconds) {
    constexpr int kSlice = 50;
    const int slice = milliseconds < 0 ? kSlice : std::min(milliseconds, kSlice);
    py::array_t<std::uint8_t> pixels({height_, width_});
    std::uint8_t* const target = pixels.mutable_data();
    for (int left = milliseconds;; left -= kSlice) {
      tessaline_image_buffer seen{};
      const int error = Heard([&] { return Take(slice, target, seen); });
      if (error == 0) {
        const timeval& time = seen.descriptor.timestamp;
        return py::make_tuple(
            pixels, seen.sequence, seen.descriptor.index, seen.tag,
            static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6);
      }
      if (error != EAGAIN) return py::int_(error);
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
      if (milliseconds >= 0 && left <= kSlice) return py::none();
    }
  }

  void Close() {
    closing_ = true;  // a wait on another thread ends soon
    Heard([this] { return Release(); });
  }

 private:
  int Release() {
    const std::lock_guard lock(mutex_);
    return channel_ == nullptr ? 0 : close_video_channel(std::exchange(channel_, nullptr));
  }

  // 0; EAGAIN: no frame so far.
  int Take(int milliseconds, std::uint8_t* target, tessaline_image_buffer& seen) {
    const std::lock_guard lock(mutex_);
    if (closing_ || channel_ == nullptr) return EBADF;
    pollfd entry{channel_->fd, POLLIN, 0};
    if (poll(&entry, 1, milliseconds) <= 0) return EAGAIN;
    int result = 0;
    tessaline_image_buffer* const buffer = video_request_img_buf(channel_, &result);
    if (result != 0 || buffer == nullptr) return errno == EINTR ? EAGAIN : errno;
    seen = *buffer;
    std::memcpy(target, buffer->address, static_cast<std::size_t>(width_) * height_);
    return video_release_img_buf(channel_, buffer) == 0 ? 0 : errno;
  }

  std::mutex mutex_;
  std::atomic<bool> closing_ = false;
  tessaline_video_channel* channel_;
  bool stopped_ = false;
  const unsigned width_;
  const unsigned height_;
};

}  // namespace

void DefineVideo(py::module_& module) {
  module.def("video_obstacle", [](const std::string& path, unsigned width, unsigned height,
                                  unsigned count) {
    const Obstacle found = Heard([&] { return FindObstacle(path, width, height, count); });
    return py::make_tuple(found.step, found.error, found.width, found.height);
  });
  py::class_<Channel>(module, "VideoChannel")
      .def(py::init<const std::string&, unsigned, unsigned, unsigned, unsigned>())
      .def_property_readonly("count", &Channel::count)
      .def("start", &Channel::Start)
      .def("stop", &Channel::Stop)
      .def("wait", &Channel::Wait, py::arg("milliseconds"))
      .def("close", &Channel::Close);
}

}  // namespace python
