#include "devices/CaptureQueue.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace board {
namespace {

constexpr unsigned kMaxBuffers = 32;
constexpr std::size_t kAddressable = std::size_t{1} << 32;  // an offset has 32 bits
constexpr unsigned kBufferCapabilities = V4L2_BUF_CAP_SUPPORTS_MMAP |
                                         V4L2_BUF_CAP_SUPPORTS_USERPTR |
                                         V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS;

bool IsSupported(unsigned memory) {
  return memory == V4L2_MEMORY_MMAP || memory == V4L2_MEMORY_USERPTR;
}

timeval MonotonicTime() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return {now.tv_sec, now.tv_nsec / 1000};
}

}  // namespace

CaptureQueue::CaptureQueue(BoardMemory& memory, Seat::Number seat)
    : common_(memory.Place<Common>()), seat_(memory, seat), shared_(memory.IsShared()) {}

int CaptureQueue::TryFormat(v4l2_format* format) {
  if (format->type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
  v4l2_pix_format& pix = format->fmt.pix;
  pix.width = std::clamp(pix.width, kMinWidth, kMaxSide);
  pix.height = std::clamp(pix.height, kMinHeight, kMaxSide);
  pix.pixelformat = V4L2_PIX_FMT_GREY;
  pix.field = V4L2_FIELD_NONE;
  pix.bytesperline = pix.width;
  pix.sizeimage = pix.width * pix.height;
  pix.colorspace = V4L2_COLORSPACE_RAW;
  pix.priv = V4L2_PIX_FMT_PRIV_MAGIC;
  pix.flags = 0;
  pix.ycbcr_enc = V4L2_YCBCR_ENC_DEFAULT;
  pix.quantization = V4L2_QUANTIZATION_DEFAULT;
  pix.xfer_func = V4L2_XFER_FUNC_DEFAULT;
  return 0;
}

int CaptureQueue::SetFormat(v4l2_format* format) {
  const std::lock_guard lock(mutex_);
  if (unplugged_) return -ENODEV;
  if (const int error = TryFormat(format); error != 0) return error;
  // Existing buffers have the size of the current format.
  if (!buffers_.empty() || seat_.TakenElsewhere()) return -EBUSY;
  common_.width = format->fmt.pix.width;
  common_.height = format->fmt.pix.height;
  return 0;
}

int CaptureQueue::GetFormat(v4l2_format* format) const {
  const std::lock_guard lock(mutex_);
  if (format->type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
  format->fmt.pix.width = common_.width;
  format->fmt.pix.height = common_.height;
  return TryFormat(format);
}

int CaptureQueue::Request(v4l2_requestbuffers* request, Owner owner) {
  std::unique_lock lock(mutex_);
  if (unplugged_) return -ENODEV;
  if (request->type != V4L2_BUF_TYPE_VIDEO_CAPTURE || !IsSupported(request->memory)) {
    return -EINVAL;
  }
  if (IsBusy(owner) || streaming_) return -EBUSY;
  StopLocked(lock);
  FreeBuffers();
  Disown();
  request->flags = 0;
  std::fill(std::begin(request->reserved), std::end(request->reserved), 0);
  request->capabilities = kBufferCapabilities;
  if (request->count == 0) return 0;
  if (!seat_.Take()) return -EBUSY;
  memory_type_ = request->memory;
  request->count = Allocate(std::min(request->count, kMaxBuffers), SizeImage());
  if (request->count == 0) {
    if (buffers_.empty()) Disown();
    return -ENOMEM;
  }
  owner_ = owner;
  return 0;
}

int CaptureQueue::Create(v4l2_create_buffers* request, Owner owner) {
  const std::lock_guard lock(mutex_);
  if (unplugged_) return -ENODEV;
  if (request->format.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || !IsSupported(request->memory)) {
    return -EINVAL;
  }
  request->index = static_cast<unsigned>(buffers_.size());
  request->capabilities = kBufferCapabilities;
  request->flags = 0;
  std::fill(std::begin(request->reserved), std::end(request->reserved), 0);
  request->format.fmt.pix.priv = V4L2_PIX_FMT_PRIV_MAGIC;
  if (request->count == 0) return 0;  // only asks
  if (IsBusy(owner)) return -EBUSY;
  if (buffers_.size() == kMaxBuffers) return -ENOBUFS;
  const bool other_memory = !buffers_.empty() && request->memory != memory_type_;
  const std::size_t bytes = request->format.fmt.pix.sizeimage;
  if (other_memory || bytes < SizeImage()) return -EINVAL;
  if (!seat_.Take()) return -EBUSY;
  memory_type_ = request->memory;
  request->count = Allocate(std::min(request->count, kMaxBuffers - request->index), bytes);
  if (request->count == 0) {
    if (buffers_.empty()) Disown();
    return -ENOMEM;
  }
  owner_ = owner;
  return 0;
}

bool CaptureQueue::IsBusy(Owner owner) const {
  return owner_ != nullptr ? owner_ != owner : seat_.TakenElsewhere();
}

void CaptureQueue::Disown() {
  owner_ = nullptr;
  seat_.Leave();
}

unsigned CaptureQueue::Allocate(unsigned count, std::size_t bytes) {
  for (unsigned made = 0; made < count; ++made) {
    const CaptureBuffer& buffer =
        buffers_.emplace_back(bytes, buffers_.empty() ? 0 : buffers_.back().End());
    const bool allocated = memory_type_ != V4L2_MEMORY_MMAP ||
                           (buffer.End() <= kAddressable && buffers_.back().Allocate());
    if (allocated) continue;
    buffers_.pop_back();
    return made;
  }
  return count;
}

void CaptureQueue::FreeBuffers() {
  buffers_.clear();
  queued_.clear();
  done_.clear();
}

void CaptureQueue::Describe(unsigned index, v4l2_buffer* out) const {
  *out = {};
  out->index = index;
  out->type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  buffers_[index].Describe(out);
}

int CaptureQueue::Query(v4l2_buffer* buffer) const {
  const std::lock_guard lock(mutex_);
  if (unplugged_) return -ENODEV;
  if (buffer->type != V4L2_BUF_TYPE_VIDEO_CAPTURE || buffer->index >= buffers_.size()) {
    return -EINVAL;
  }
  Describe(buffer->index, buffer);
  return 0;
}

int CaptureQueue::CheckBuffer(const v4l2_buffer& request, Owner owner) const {
  if (unplugged_) return -ENODEV;
  if (request.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
  if (IsBusy(owner)) return -EBUSY;
  if (request.index >= buffers_.size() || request.memory != memory_type_) return -EINVAL;
  return 0;
}

int CaptureQueue::PrepareLocked(const v4l2_buffer& request) {
  CaptureBuffer& buffer = buffers_[request.index];
  if (buffer.state != State::kDequeued) return -EINVAL;
  if (buffer.prepared) return 0;
  if (memory_type_ == V4L2_MEMORY_USERPTR) {
    if (const int error = buffer.Attach(request, SizeImage()); error != 0) return error;
  }
  buffer.prepared = true;
  buffer.frame.bytes_used = 0;
  buffer.frame.sequence = 0;
  return 0;
}

int CaptureQueue::Prepare(v4l2_buffer* request, Owner owner) {
  const std::lock_guard lock(mutex_);
  if (const int error = CheckBuffer(*request, owner); error != 0) return error;
  const bool of_a_request = (request->flags & V4L2_BUF_FLAG_REQUEST_FD) != 0;
  if (of_a_request || buffers_[request->index].prepared) return -EINVAL;
  if (const int error = PrepareLocked(*request); error != 0) return error;
  Describe(request->index, request);
  return 0;
}

int CaptureQueue::Queue(v4l2_buffer* request, Owner owner) {
  {
    const std::lock_guard lock(mutex_);
    if (const int error = CheckBuffer(*request, owner); error != 0) return error;
    if ((request->flags & V4L2_BUF_FLAG_REQUEST_FD) != 0) return -EBADR;
    if (const int error = PrepareLocked(*request); error != 0) return error;
    buffers_[request->index].state = State::kQueued;
    if (request->index == last_filled_ && last_fate_ == Fate::kTaken) {
      last_fate_ = Fate::kReturned;
    }
    queued_.push_back(request->index);
    if (nothing_queued_yet_) {
      nothing_queued_yet_ = false;
      signs_.Update(IsReady());
    }
    Describe(request->index, request);
  }
  listener_();
  return 0;
}

int CaptureQueue::Dequeue(v4l2_buffer* request, Owner owner) {
  {
    const std::lock_guard lock(mutex_);
    if (unplugged_) return -ENODEV;
    if (request->type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    if (IsBusy(owner)) return -EBUSY;
    if (!streaming_) return -EINVAL;
    if (done_.empty()) return -EAGAIN;
    const unsigned index = done_.front();
    done_.pop_front();
    signs_.Update(IsReady());
    CaptureBuffer& buffer = buffers_[index];
    Describe(index, request);
    request->flags &= ~unsigned{V4L2_BUF_FLAG_DONE};
    buffer.state = State::kDequeued;
    buffer.prepared = false;
    if (index == last_filled_ && last_fate_ == Fate::kWaiting) {
      last_fate_ = buffer.IsCleared() ? Fate::kLost : Fate::kTaken;
    }
  }
  if (taken_listener_) taken_listener_();
  return 0;
}

CaptureQueue::Fate CaptureQueue::LastFate() const {
  const std::lock_guard lock(mutex_);
  return last_fate_;
}

int CaptureQueue::StreamOn(unsigned type, Owner owner) {
  {
    const std::lock_guard lock(mutex_);
    if (unplugged_) return -ENODEV;
    if (IsBusy(owner)) return -EBUSY;
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    if (buffers_.empty()) return -EINVAL;
    if (!streaming_) next_sequence_ = 0;
    streaming_ = true;
    common_.streaming_in = getpid();
    signs_.Update(IsReady());
  }
  listener_();
  return 0;
}

int CaptureQueue::StreamOff(unsigned type, Owner owner) {
  std::unique_lock lock(mutex_);
  if (unplugged_) return -ENODEV;
  if (IsBusy(owner)) return -EBUSY;
  if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
  StopLocked(lock);
  return 0;
}

// All buffers return to software. Waits for one that is being filled.
void CaptureQueue::StopLocked(std::unique_lock<std::mutex>& lock) {
  if (streaming_ && common_.streaming_in == getpid()) common_.streaming_in = 0;
  streaming_ = false;
  queued_.clear();
  done_.clear();
  if (last_fate_ == Fate::kWaiting) last_fate_ = Fate::kLost;
  const auto filling = [this] {
    return std::any_of(buffers_.begin(), buffers_.end(),
                       [](const CaptureBuffer& buffer) { return buffer.state == State::kFilling; });
  };
  fill_ended_.wait(lock, [&] { return !filling(); });
  done_.clear();
  for (CaptureBuffer& buffer : buffers_) {
    buffer.state = State::kDequeued;
    buffer.prepared = false;
  }
  nothing_queued_yet_ = true;
  signs_.Update(IsReady());
  filled_.Ring();
}

std::intptr_t CaptureQueue::Map(void* hint, std::size_t length, int protection, int flags,
                                off_t offset) {
  const std::lock_guard lock(mutex_);
  if (unplugged_) return -ENODEV;
  if (memory_type_ != V4L2_MEMORY_MMAP) return -EINVAL;
  for (const CaptureBuffer& buffer : buffers_) {
    if (offset == static_cast<off_t>(buffer.Offset())) {
      return buffer.Map(hint, length, protection, flags);
    }
  }
  return -EINVAL;
}

int CaptureQueue::Export(v4l2_exportbuffer* request, Owner owner) const {
  constexpr unsigned kFlags = O_CLOEXEC | O_ACCMODE;
  const std::lock_guard lock(mutex_);
  if (unplugged_) return -ENODEV;
  if (IsBusy(owner)) return -EBUSY;
  const bool known = memory_type_ == V4L2_MEMORY_MMAP && (request->flags & ~kFlags) == 0 &&
                     request->type == V4L2_BUF_TYPE_VIDEO_CAPTURE &&
                     request->index < buffers_.size() && request->plane == 0;
  if (!known) return -EINVAL;
  const int fd = buffers_[request->index].Export(static_cast<int>(request->flags));
  if (fd < 0) return fd;
  request->fd = fd;
  std::fill(std::begin(request->reserved), std::end(request->reserved), 0);
  return 0;
}

void CaptureQueue::Closed(Owner owner) {
  std::unique_lock lock(mutex_);
  if (owner_ != owner) return;
  StopLocked(lock);
  FreeBuffers();
  Disown();
}

void CaptureQueue::Add(PollSign& sign) {
  const std::lock_guard lock(mutex_);
  signs_.Add(sign);
}

void CaptureQueue::Remove(PollSign& sign) {
  const std::lock_guard lock(mutex_);
  signs_.Remove(sign);
}

void CaptureQueue::SetPoll(bool implemented) {
  const std::lock_guard lock(mutex_);
  signs_.SetPoll(implemented);
}

short CaptureQueue::Ready(PollSign& sign) {
  const std::lock_guard lock(mutex_);
  if (unplugged_) return signs_.Watch(sign, POLLERR | POLLHUP);
  if (IsIdle()) return signs_.Watch(sign, POLLERR);
  return signs_.Watch(sign, done_.empty() ? 0 : POLLIN | POLLRDNORM);
}

bool CaptureQueue::StreamsElsewhere() const {
  const pid_t where = common_.streaming_in;
  return where != 0 && where != getpid() && seat_.TakenElsewhere();
}

// The child of a fork has its parent's files, but frames come to the parent.
bool CaptureQueue::Streaming() const {
  const std::lock_guard lock(mutex_);
  return streaming_ && (!shared_ || common_.streaming_in == getpid());
}

std::size_t CaptureQueue::FormatBytes() const {
  const std::lock_guard lock(mutex_);
  return SizeImage();
}

bool CaptureQueue::HasFree() const {
  const std::lock_guard lock(mutex_);
  return streaming_ && !queued_.empty();
}

bool CaptureQueue::IsShort() const {
  const std::lock_guard lock(mutex_);
  return streaming_ && queued_.empty();
}

std::optional<CaptureQueue::Fill> CaptureQueue::Begin() {
  const std::lock_guard lock(mutex_);
  if (!streaming_ || queued_.empty()) return std::nullopt;
  const unsigned index = queued_.front();
  queued_.pop_front();
  buffers_[index].state = State::kFilling;
  return Fill{index, {buffers_[index].Memory(), SizeImage()}, common_.width, common_.height};
}

void CaptureQueue::Finish(const Fill& fill, std::size_t bytes_used,
                          std::optional<std::size_t> guard) {
  {
    const std::lock_guard lock(mutex_);
    CaptureBuffer& buffer = buffers_[fill.index];
    buffer.state = State::kDone;
    buffer.frame = {bytes_used, guard, next_sequence_++, MonotonicTime()};
    last_filled_ = fill.index;
    last_fate_ = streaming_ ? Fate::kWaiting : Fate::kLost;
    done_.push_back(fill.index);
    signs_.Update(IsReady());
    fill_ended_.notify_all();
  }
  filled_.Ring();
}

void CaptureQueue::Unplug() {
  std::unique_lock lock(mutex_);
  StopLocked(lock);
  unplugged_ = true;
  filled_.Ring();
}

}  // namespace board
