#include "devices/VideoNode.h"

#include <errno.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "devices/Outcome.h"
#include "devices/UserMemory.h"

namespace board {
namespace {

constexpr unsigned kDriverVersion = 0x050f00;

template <std::size_t kSize>
void PutText(__u8 (&field)[kSize], const std::string& text) {
  std::memcpy(field, text.c_str(), std::min(text.size() + 1, kSize));
}

constexpr std::size_t kLargestArgument = 256;  // of all V4L2 calls

constexpr std::array<unsigned long, 6> kChanges{VIDIOC_S_FMT,    VIDIOC_S_INPUT,
                                                VIDIOC_REQBUFS,  VIDIOC_CREATE_BUFS,
                                                VIDIOC_STREAMON, VIDIOC_STREAMOFF};

bool Changes(unsigned long request) {
  return std::find(kChanges.begin(), kChanges.end(), request) != kChanges.end();
}

std::string_view MemoryName(unsigned memory) {
  return memory == V4L2_MEMORY_USERPTR ? "USERPTR" : "MMAP";
}

// As a driver on the kernel's V4L2 framework that has no controls, no events, no settable rate and
// no read(): the framework refuses what the driver does not have.
class VideoFile : public OpenFile {
 public:
  VideoFile(std::string name, CaptureQueue* queue, UserPriorities* priorities)
      : name_(std::move(name)), queue_(queue), priorities_(priorities) {
    queue_->Add(sign_);
  }
  ~VideoFile() override {
    priorities_->Remove(this);
    queue_->Closed(this);
    queue_->Remove(sign_);
  }

  int Ioctl(unsigned long request, void* argument) override {
    // Software makes these two for every frame, so they do without safe copies.
    if (request == VIDIOC_QBUF || request == VIDIOC_DQBUF) {
      if (!IsUserAddress(argument, sizeof(v4l2_buffer))) return -EFAULT;
      auto* const buffer = static_cast<v4l2_buffer*>(argument);
      return request == VIDIOC_QBUF ? Queue(buffer) : Dequeue(buffer);
    }
    const std::size_t size = _IOC_SIZE(request);
    if (size > kLargestArgument) return Unknown(request);
    alignas(std::max_align_t) std::array<std::byte, kLargestArgument> copy{};
    const bool in = (_IOC_DIR(request) & _IOC_WRITE) != 0;
    const bool out = (_IOC_DIR(request) & _IOC_READ) != 0;
    if (in && !CopyFromUser(copy.data(), argument, size)) return -EFAULT;
    if (Changes(request) && !priorities_->MayChange(this)) return -EBUSY;
    const int result = Answer(request, copy.data());
    if (result < 0 || !out) return result;
    return CopyToUser(argument, copy.data(), size) ? result : -EFAULT;
  }

  std::intptr_t Mmap(void* hint, std::size_t length, int protection, int flags,
                     off_t offset) override {
    const std::intptr_t address = queue_->Map(hint, length, protection, flags, offset);
    RecordAs(name_, [&] {
      return fmt::format("mmap {} bytes at {}{}", length, offset, Outcome(address));
    });
    return address;
  }

  short Ready(short events) override {
    const short now = queue_->Ready(sign_);
    // The kernel's queue reports nothing to callers that do not poll for frames.
    if ((events & (POLLIN | POLLRDNORM)) == 0 && (now & POLLHUP) == 0) return 0;
    return static_cast<short>(now & (events | POLLERR | POLLHUP));
  }

  PollSign* Sign() override { return &sign_; }

 private:
  int Answer(unsigned long request, void* argument) {
    switch (request) {
      case VIDIOC_QUERYCAP:
        return Capabilities(static_cast<v4l2_capability*>(argument));
      case VIDIOC_ENUM_FMT:
        return EnumerateFormat(static_cast<v4l2_fmtdesc*>(argument));
      case VIDIOC_ENUM_FRAMESIZES:
        return EnumerateSize(static_cast<v4l2_frmsizeenum*>(argument));
      case VIDIOC_ENUMINPUT:
        return EnumerateInput(static_cast<v4l2_input*>(argument));
      case VIDIOC_G_INPUT:
        *static_cast<int*>(argument) = 0;
        return 0;
      case VIDIOC_S_INPUT:
        return *static_cast<int*>(argument) == 0 ? 0 : -EINVAL;
      case VIDIOC_G_PRIORITY:
        *static_cast<unsigned*>(argument) = priorities_->Highest();
        return 0;
      case VIDIOC_S_PRIORITY:
        return priorities_->Set(this, *static_cast<unsigned*>(argument));
      case VIDIOC_G_FMT:
      case VIDIOC_TRY_FMT:
      case VIDIOC_S_FMT:
        return Format(request, static_cast<v4l2_format*>(argument));
      case VIDIOC_REQBUFS:
        return Request(static_cast<v4l2_requestbuffers*>(argument));
      case VIDIOC_QUERYBUF:
        return Query(static_cast<v4l2_buffer*>(argument));
      case VIDIOC_CREATE_BUFS:
        return Create(static_cast<v4l2_create_buffers*>(argument));
      case VIDIOC_PREPARE_BUF:
        return Prepare(static_cast<v4l2_buffer*>(argument));
      case VIDIOC_EXPBUF:
        return Export(static_cast<v4l2_exportbuffer*>(argument));
      case VIDIOC_STREAMON:
      case VIDIOC_STREAMOFF:
        return Stream(request, *static_cast<unsigned*>(argument));
      default:
        return Unknown(request);
    }
  }

  int Unknown(unsigned long request) const {
    RecordAs(name_, [&] { return fmt::format("ioctl 0x{:08x} failed: ENOTTY", request); });
    return -ENOTTY;
  }

  int Capabilities(v4l2_capability* out) {
    *out = {};
    PutText(out->driver, "tessaline-board");
    PutText(out->card, name_ == "video0" ? "image stream" : "strip stream");
    PutText(out->bus_info, "platform:" + name_);
    out->version = kDriverVersion;
    out->device_caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT;
    out->capabilities = out->device_caps | V4L2_CAP_DEVICE_CAPS;
    Record(name_, "VIDIOC_QUERYCAP");
    return 0;
  }

  int EnumerateFormat(v4l2_fmtdesc* out) {
    if (out->index != 0 || out->type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    *out = {};
    out->type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    PutText(out->description, "8-bit Greyscale");
    out->pixelformat = V4L2_PIX_FMT_GREY;
    return 0;
  }

  static int EnumerateSize(v4l2_frmsizeenum* out) {
    if (out->index != 0 || out->pixel_format != V4L2_PIX_FMT_GREY) return -EINVAL;
    *out = {};
    out->pixel_format = V4L2_PIX_FMT_GREY;
    out->type = V4L2_FRMSIZE_TYPE_CONTINUOUS;
    out->stepwise = {CaptureQueue::kMinWidth,  CaptureQueue::kMaxSide, 1,
                     CaptureQueue::kMinHeight, CaptureQueue::kMaxSide, 1};
    return 0;
  }

  // The one input: the FPGA.
  static int EnumerateInput(v4l2_input* out) {
    if (out->index != 0) return -EINVAL;
    *out = {};
    PutText(out->name, "FPGA");
    out->type = V4L2_INPUT_TYPE_CAMERA;
    return 0;
  }

  int Format(unsigned long request, v4l2_format* format) {
    const unsigned width = format->fmt.pix.width;
    const unsigned height = format->fmt.pix.height;
    const unsigned code = format->fmt.pix.pixelformat;
    const int result = request == VIDIOC_G_FMT     ? queue_->GetFormat(format)
                       : request == VIDIOC_TRY_FMT ? CaptureQueue::TryFormat(format)
                                                   : queue_->SetFormat(format);
    RecordAs(name_, [&] {
      const std::string name(reinterpret_cast<const char*>(&code), sizeof code);
      return request == VIDIOC_G_FMT ? "VIDIOC_G_FMT" + Outcome(result)
                                     : fmt::format("{} {}x{} {}{}", IoctlName(request), width,
                                                   height, name, Outcome(result));
    });
    return result;
  }

  int Request(v4l2_requestbuffers* request) {
    const unsigned asked = request->count;
    const int result = queue_->Request(request, this);
    RecordAs(name_, [&] {
      return fmt::format("VIDIOC_REQBUFS {} {} -> {}{}", MemoryName(request->memory), asked,
                         result == 0 ? request->count : 0, Outcome(result));
    });
    return result;
  }

  int Create(v4l2_create_buffers* request) {
    const unsigned asked = request->count;
    const int result = queue_->Create(request, this);
    RecordAs(name_, [&] {
      return fmt::format("VIDIOC_CREATE_BUFS {} {} -> {}{}", MemoryName(request->memory), asked,
                         result == 0 ? request->count : 0, Outcome(result));
    });
    return result;
  }

  int Query(v4l2_buffer* buffer) {
    const unsigned index = buffer->index;
    const int result = queue_->Query(buffer);
    RecordAs(name_, [&] { return fmt::format("VIDIOC_QUERYBUF {}{}", index, Outcome(result)); });
    return result;
  }

  int Prepare(v4l2_buffer* buffer) {
    const unsigned index = buffer->index;
    const int result = queue_->Prepare(buffer, this);
    RecordAs(name_, [&] { return fmt::format("VIDIOC_PREPARE_BUF {}{}", index, Outcome(result)); });
    return result;
  }

  int Export(v4l2_exportbuffer* request) {
    const int result = queue_->Export(request, this);
    RecordAs(name_,
             [&] { return fmt::format("VIDIOC_EXPBUF {}{}", request->index, Outcome(result)); });
    return result;
  }

  int Queue(v4l2_buffer* buffer) {
    const unsigned index = buffer->index;
    const int result = queue_->Queue(buffer, this);
    RecordAs(name_, [&] { return fmt::format("VIDIOC_QBUF {}{}", index, Outcome(result)); });
    return result;
  }

  int Dequeue(v4l2_buffer* buffer) {
    int result = 0;
    for (;;) {
      const std::uint32_t seen = queue_->Filled().Count();
      result = queue_->Dequeue(buffer, this);
      if (result != -EAGAIN || Nonblocking()) break;
      if (queue_->Filled().Wait(seen)) continue;
      result = -EINTR;
      break;
    }
    RecordAs(name_, [&] {
      return result != 0 ? "VIDIOC_DQBUF" + Outcome(result)
                         : fmt::format("VIDIOC_DQBUF -> {}, {} bytes, sequence {}", buffer->index,
                                       buffer->bytesused, buffer->sequence);
    });
    return result;
  }

  int Stream(unsigned long request, unsigned type) {
    const int result =
        request == VIDIOC_STREAMON ? queue_->StreamOn(type, this) : queue_->StreamOff(type, this);
    RecordAs(name_, [&] { return IoctlName(request) + Outcome(result); });
    return result;
  }

  std::string name_;
  CaptureQueue* queue_;
  UserPriorities* priorities_;
  PollSign sign_;
};

}  // namespace

VideoNode::VideoNode(BoardMemory& memory, unsigned number)
    : name_("video" + std::to_string(number)),
      queue_(memory, number == 0 ? Seat::kImages : Seat::kStrips) {}

OpenResult VideoNode::Open(const std::string&, int) {
  return {std::make_shared<VideoFile>(name_, &queue_, &priorities_), 0};
}

}  // namespace board
