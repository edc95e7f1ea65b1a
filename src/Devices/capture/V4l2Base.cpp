#include "Devices/capture/V4l2Base.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "thread/InterruptibleWait.h"
#include "thread/SignalMask.h"
#include "thread/SystemCalls.h"

namespace VeltranoSDK::DevFOps {

namespace {

// How long ClearBuf() waits for a handler that holds a buffer.
constexpr std::chrono::seconds kHandlerTime{1};

}  // namespace

V4l2Base::V4l2Base(v4l2_memory memory, const char* file) : memory_(memory), file_(file) {}

void V4l2Base::AfterDequeue(unsigned int, std::size_t) {}

void V4l2Base::BeforeQueue(unsigned int, std::size_t) {}

bool V4l2Base::Open(std::string path) {
  Enter(__func__);
  if (fd_ >= 0) Close();
  fd_ = OpenDevice(path.c_str(), O_RDWR);
  if (fd_ < 0) {
    Tell()("v4l2 open file failed: %s", strerror(errno));
    return false;
  }
  v4l2_capability capability{};
  if (Ioctl(fd_, VIDIOC_QUERYCAP, &capability) < 0) {
    Tell()("v4l2 VIDIOC_QUERYCAP failed");
    return false;
  }
  if ((capability.capabilities & V4L2_CAP_VIDEO_CAPTURE) == 0) {
    Tell()("Device is not a video capture device!");
    return false;
  }
  return true;
}

bool V4l2Base::SetFmt(unsigned int width, unsigned int height) {
  Enter(__func__);
  v4l2_format format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  format.fmt.pix.width = width;
  format.fmt.pix.height = height;
  format.fmt.pix.pixelformat = V4L2_PIX_FMT_GREY;
  format.fmt.pix.field = V4L2_FIELD_NONE;
  if (Ioctl(fd_, VIDIOC_TRY_FMT, &format) < 0) {
    Tell()("v4l2 VIDIOC_TRY_FMT failed: %s, width%d, height%d", strerror(errno), width, height);
    return false;
  }
  if (Ioctl(fd_, VIDIOC_S_FMT, &format) < 0) {
    Tell()("v4l2 VIDIOC_S_FMT failed: %s, width%d, height%d", strerror(errno), width, height);
    return false;
  }
  return true;
}

bool V4l2Base::ReqBufs(unsigned int count) {
  Enter(__func__);
  const SignalsBlocked no_handler_here;
  const std::lock_guard lock(memory_mutex_);
  const bool prepared = PrepareMemory(count);
  // Buffers of an earlier request are gone, whether this one succeeds or not.
  buffers_.clear();
  ForgetLocked();
  if (!prepared) return false;
  v4l2_requestbuffers request{};
  request.count = count;
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.memory = memory_;
  if (Ioctl(fd_, VIDIOC_REQBUFS, &request) < 0) {
    Tell()("v4l2 VIDIOC_REQBUFS failed: %s", strerror(errno));
    return false;
  }
  // A driver may grant fewer, or more for its own needs, but never more than this.
  if (request.count > std::max<unsigned int>(count, VIDEO_MAX_FRAME)) {
    Tell()("v4l2 VIDIOC_REQBUFS failed: %s", strerror(EOVERFLOW));
    return false;
  }
  buffers_.assign(std::max(count, request.count), Buffer{});
  for (unsigned int index = 0; index < request.count; ++index) {
    if (!SetUpBuffer(index)) return false;
  }
  return true;
}

v4l2_buffer V4l2Base::BufferDescriptor(unsigned int index) const {
  v4l2_buffer descriptor{};
  descriptor.index = index;
  descriptor.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  descriptor.memory = memory_;
  return descriptor;
}

bool V4l2Base::SetUpBuffer(unsigned int index) {
  v4l2_buffer descriptor = BufferDescriptor(index);
  if (Ioctl(fd_, VIDIOC_QUERYBUF, &descriptor) < 0) {
    Tell()("v4l2 VIDIOC_QUERYBUF failed: %s", strerror(errno));
    return false;
  }
  descriptor.index = index;  // the driver may have changed it
  return Provide(descriptor, buffers_[index]) && QueueOrTell(descriptor);
}

std::byte* V4l2Base::DqBuf() {
  Enter(__func__);
  const Buffer* buffer = Dequeue(By::kOrder);
  if (buffer == nullptr) return nullptr;
  AfterDequeue(last_index_, buffer->size);
  return buffer->data;
}

std::byte* V4l2Base::DqBuf(unsigned int& index) {
  Enter(__func__);
  const Buffer* buffer = Dequeue(By::kIndex);
  if (buffer == nullptr) return nullptr;
  index = last_index_;
  return buffer->data;
}

// Called with the lock, between two frames: carries out a pending request to clear the buffers.
void V4l2Base::LetGo() {
  holder_ = {};
  if (clearings_granted_ == clearings_wanted_) return;
  ClearMemory();
  clearings_granted_ = clearings_wanted_;
  granted_.notify_all();
}

void V4l2Base::Forget() {
  const std::lock_guard lock(memory_mutex_);
  ForgetLocked();
}

void V4l2Base::ForgetLocked() {
  current_.reset();
  last_index_ = 0;
  LetGo();
  in_hand_ = false;
}

const V4l2Base::Buffer* V4l2Base::Dequeue(By by) {
  if (in_hand_) Forget();
  v4l2_buffer dequeued = BufferDescriptor(0);
  int error = Ioctl(fd_, VIDIOC_DQBUF, &dequeued) < 0 ? errno : 0;
  if (error == 0) {
    const std::lock_guard lock(memory_mutex_);
    if (dequeued.index < buffers_.size() && buffers_[dequeued.index].data != nullptr) {
      Buffer& buffer = buffers_[dequeued.index];
      if (by == By::kIndex) buffer.taken = dequeued;
      current_ = dequeued;
      last_index_ = dequeued.index;
      holder_ = std::this_thread::get_id();
      in_hand_ = true;
      return &buffer;
    }
    error = EBADSLT;  // a buffer that was never queued
  }
  Forget();
  Tell()("v4l2 VIDIOC_DQBUF failed: %s", strerror(error));
  return nullptr;
}

bool V4l2Base::QBuf() {
  Enter(__func__);
  int error = EINVAL;
  {
    const std::lock_guard lock(memory_mutex_);
    if (current_) {
      Buffer& buffer = buffers_[current_->index];
      BeforeQueue(current_->index, buffer.size);
      error = Queue(*current_);
      LetGo();
      if (error == 0) {
        current_.reset();
        buffer.taken.reset();
        in_hand_ = false;
        return true;
      }
    }
  }
  return NotQueued(error);
}

bool V4l2Base::QBuf(unsigned int index) {
  Enter(__func__);
  int error = EINVAL;
  {
    const SignalsBlocked no_handler_here;
    const std::lock_guard lock(memory_mutex_);
    if (index < buffers_.size() && buffers_[index].taken) {
      Buffer& buffer = buffers_[index];
      if (buffer.size >= kCompletionMarkerBytes) {
        memset(buffer.data + buffer.size - kCompletionMarkerBytes, 0, kCompletionMarkerBytes);
      }
      error = Queue(*buffer.taken);
      if (error == 0) {
        buffer.taken.reset();
        if (current_ && current_->index == index) {
          current_.reset();
          LetGo();
        }
        return true;
      }
    }
  }
  return NotQueued(error);
}

bool V4l2Base::NotQueued(int error) const {
  Tell()("v4l2 VIDIOC_QBUF failed: %s", strerror(error));
  return false;
}

bool V4l2Base::QueueOrTell(const v4l2_buffer& descriptor) {
  const int error = Queue(descriptor);
  return error == 0 || NotQueued(error);
}

int V4l2Base::Queue(v4l2_buffer descriptor) {
  return Ioctl(fd_, VIDIOC_QBUF, &descriptor) < 0 ? errno : 0;
}

bool V4l2Base::StreamOn() {
  Enter(__func__);
  return Switch(VIDIOC_STREAMON);
}

bool V4l2Base::StreamOff() {
  Enter(__func__);
  return Switch(VIDIOC_STREAMOFF);
}

// One text for both directions.
bool V4l2Base::Switch(unsigned long request) {
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  if (Ioctl(fd_, request, &type) < 0) {
    Tell()("v4l2 VIDIOC_STREAMON failed: %s", strerror(errno));
    return false;
  }
  return true;
}

void V4l2Base::ClearBuf() {
  Enter(__func__);
  std::uint64_t wanted;
  {
    const SignalsBlocked no_handler_here;
    const std::lock_guard lock(memory_mutex_);
    wanted = ++clearings_wanted_;
    if (holder_ == std::thread::id()) LetGo();
  }
  // A handler holds a buffer; its thread clears when it gives that back. Do not wait if the caller
  // is that handler.
  WaitInterruptibly(memory_mutex_, granted_, {kHandlerTime}, [this, wanted] {
    return clearings_granted_ >= wanted || holder_ == std::this_thread::get_id();
  });
}

bool V4l2Base::Close() {
  Enter(__func__);
  const SignalsBlocked no_handler_here;
  const std::lock_guard lock(memory_mutex_);
  ReleaseMemory();
  // Keeps its capacity: the SIGINT handler runs this and should not need the heap.
  buffers_.clear();
  ForgetLocked();
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  return true;
}

unsigned int V4l2Base::Index() {
  Enter(__func__);
  return last_index_;
}

std::size_t V4l2Base::BufferSize() {
  return last_index_ < buffers_.size() ? buffers_[last_index_].size : 0;
}

}  // namespace VeltranoSDK::DevFOps
