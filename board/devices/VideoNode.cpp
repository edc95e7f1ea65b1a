#include "devices/VideoNode.h"

#include <errno.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>

#include <cstring>

#include "devices/Outcome.h"

namespace board {
namespace {

constexpr unsigned kDriverVersion = 0x050f00;

template <std::size_t kSize>
void PutText(__u8 (&field)[kSize], const std::string& text) {
  std::memcpy(field, text.c_str(), std::min(text.size() + 1, kSize));
}

class VideoFile : public OpenFile {
 public:
  VideoFile(std::string name, CaptureQueue* queue) : name_(std::move(name)), queue_(queue) {
    queue_->Add(sign_);
  }
  ~VideoFile() override {
    queue_->Closed(this);
    queue_->Remove(sign_);
  }

  int Ioctl(unsigned long request, void* argument) override {
    if (argument == nullptr && IoctlName(request).starts_with("VIDIOC_")) return -EFAULT;
    const bool changes = request == VIDIOC_S_FMT || request == VIDIOC_S_INPUT ||
                         request == VIDIOC_REQBUFS || request == VIDIOC_STREAMON ||
                         request == VIDIOC_STREAMOFF;
    if (changes && !queue_->HasPriority(this)) return -EBUSY;
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
        *static_cast<unsigned*>(argument) = queue_->HighestPriority();
        return 0;
      case VIDIOC_S_PRIORITY:
        return queue_->SetPriority(this, *static_cast<unsigned*>(argument));
      case VIDIOC_G_FMT:
      case VIDIOC_TRY_FMT:
      case VIDIOC_S_FMT:
        return Format(request, static_cast<v4l2_format*>(argument));
      case VIDIOC_REQBUFS:
        return Request(static_cast<v4l2_requestbuffers*>(argument));
      case VIDIOC_QUERYBUF:
        return Query(static_cast<v4l2_buffer*>(argument));
      case VIDIOC_QBUF:
        return Queue(static_cast<v4l2_buffer*>(argument));
      case VIDIOC_DQBUF:
        return Dequeue(static_cast<v4l2_buffer*>(argument));
      case VIDIOC_STREAMON:
      case VIDIOC_STREAMOFF:
        return Stream(request, *static_cast<unsigned*>(argument));
      default:
        Record(name_, fmt::format("ioctl 0x{:08x} failed: ENOTTY", request));
        return -ENOTTY;
    }
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
      return fmt::format("VIDIOC_REQBUFS {} {} -> {}{}",
                         request->memory == V4L2_MEMORY_USERPTR ? "USERPTR" : "MMAP", asked,
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
  PollSign sign_;
};

}  // namespace

VideoNode::VideoNode(BoardMemory& memory, unsigned number)
    : name_("video" + std::to_string(number)),
      queue_(memory, number == 0 ? Seat::kImages : Seat::kStrips) {}

OpenResult VideoNode::Open(const std::string&, int) {
  return {std::make_shared<VideoFile>(name_, &queue_), 0};
}

}  // namespace board
