#include "devices/CaptureQueue.h"

#include <errno.h>
#include <poll.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "RealCalls.h"

namespace board {
namespace {

constexpr unsigned kMaxBuffers = 32;
constexpr std::size_t kPageBytes = 4096;
constexpr std::size_t kGuardBytes = 8;

std::size_t PageAligned(std::size_t bytes) { return (bytes + kPageBytes - 1) & ~(kPageBytes - 1); }

timeval MonotonicTime() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return {now.tv_sec, now.tv_nsec / 1000};
}

// Whether all pages of a user's buffer exist.
bool IsMapped(std::uint8_t* address, std::size_t length) {
  const auto first = reinterpret_cast<std::uintptr_t>(address) & ~(kPageBytes - 1);
  const auto end = reinterpret_cast<std::uintptr_t>(address) + length;
  if (address == nullptr || end < first) return false;
  return msync(reinterpret_cast<void*>(first), end - first, MS_ASYNC) == 0;
}

}  // namespace

CaptureQueue::CaptureQueue(BoardMemory& memory, Seat::Number seat)
    : common_(memory.Place<Common>()), seat_(memory, seat) {}

CaptureQueue::~CaptureQueue() { FreeBuffers(); }

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
  const bool known_memory =
      request->memory == V4L2_MEMORY_MMAP || request->memory == V4L2_MEMORY_USERPTR;
  if (request->type != V4L2_BUF_TYPE_VIDEO_CAPTURE || !known_memory) return -EINVAL;
  if (IsBusy(owner) || streaming_) return -EBUSY;
  StopLocked(lock);
  FreeBuffers();
  Disown();
  request->flags = 0;
  std::fill(std::begin(request->reserved), std::end(request->reserved), 0);
  request->capabilities = V4L2_BUF_CAP_SUPPORTS_MMAP | V4L2_BUF_CAP_SUPPORTS_USERPTR;
  if (request->count == 0) return 0;
  if (!seat_.Take()) return -EBUSY;
  request->count = std::min(request->count, kMaxBuffers);
  memory_type_ = request->memory;
  buffer_bytes_ = SizeImage();
  buffer_width_ = common_.width;
  buffer_height_ = common_.height;
  if (!Allocate(request->count)) {
    FreeBuffers();
    Disown();
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

bool CaptureQueue::Allocate(unsigned count) {
  buffers_.resize(count);
  if (memory_type_ != V4L2_MEMORY_MMAP) return true;
  for (Buffer& buffer : buffers_) {
    buffer.memory_fd = NewMemory("board-frame", PageAligned(buffer_bytes_));
    if (buffer.memory_fd.Get() < 0) return false;
    void* address = real::Mmap(nullptr, PageAligned(buffer_bytes_), PROT_READ | PROT_WRITE,
                               MAP_SHARED, buffer.memory_fd.Get(), 0);
    if (address == MAP_FAILED) return false;
    buffer.memory = static_cast<std::uint8_t*>(address);
  }
  return true;
}

void CaptureQueue::FreeBuffers() {
  for (Buffer& buffer : buffers_) {
    if (buffer.memory_fd.Get() < 0 || buffer.memory == nullptr) continue;
    real::Munmap(buffer.memory, PageAligned(buffer_bytes_));
  }
  buffers_.clear();
  queued_.clear();
  done_.clear();
}

std::size_t CaptureQueue::PageOffset(unsigned index) const {
  return index * PageAligned(buffer_bytes_);
}

void CaptureQueue::Describe(unsigned index, v4l2_buffer* out) const {
  const Buffer& buffer = buffers_[index];
  *out = {};
  out->index = index;
  out->type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  out->memory = memory_type_;
  out->field = V4L2_FIELD_NONE;
  out->bytesused = static_cast<unsigned>(buffer.bytes_used);
  out->length = static_cast<unsigned>(buffer_bytes_);
  out->sequence = buffer.sequence;
  out->timestamp = buffer.time;
  out->flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
  if (buffer.state == State::kQueued || buffer.state == State::kFilling) {
    out->flags |= V4L2_BUF_FLAG_QUEUED;
  }
  if (buffer.state == State::kDone) out->flags |= V4L2_BUF_FLAG_DONE;
  if (memory_type_ == V4L2_MEMORY_MMAP) {
    out->m.offset = static_cast<unsigned>(PageOffset(index));
  } else {
    out->m.userptr = reinterpret_cast<unsigned long>(buffer.memory);
  }
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

int CaptureQueue::CheckBuffer(const v4l2_buffer& buffer, Owner owner) const {
  if (unplugged_) return -ENODEV;
  if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
  if (IsBusy(owner)) return -EBUSY;
  if (buffers_.empty() || buffer.memory != memory_type_) return -EINVAL;
  return 0;
}

int CaptureQueue::Queue(v4l2_buffer* request, Owner owner) {
  {
    const std::lock_guard lock(mutex_);
    if (const int error = CheckBuffer(*request, owner); error != 0) return error;
    if (request->index >= buffers_.size()) return -EINVAL;
    Buffer& buffer = buffers_[request->index];
    if (buffer.state != State::kDequeued) return -EINVAL;
    if (memory_type_ == V4L2_MEMORY_USERPTR) {
      auto* memory = reinterpret_cast<std::uint8_t*>(request->m.userptr);
      if (request->length < buffer_bytes_) return -EINVAL;
      if (!IsMapped(memory, buffer_bytes_)) return -EFAULT;
      buffer.memory = memory;
    }
    buffer.state = State::kQueued;
    buffer.bytes_used = 0;
    if (request->index == last_filled_ && last_fate_ == Fate::kTaken) {
      last_fate_ = Fate::kReturned;
    }
    queued_.push_back(request->index);
    Describe(request->index, request);
  }
  listener_();
  return 0;
}

int CaptureQueue::Dequeue(v4l2_buffer* request, Owner owner) {
  {
    const std::lock_guard lock(mutex_);
    if (const int error = CheckBuffer(*request, owner); error != 0) return error;
    if (!streaming_) return -EINVAL;
    if (done_.empty()) return -EAGAIN;
    const unsigned index = done_.front();
    done_.pop_front();
    signs_.Update(IsReady());
    buffers_[index].state = State::kDequeued;
    if (index == last_filled_ && last_fate_ == Fate::kWaiting) {
      last_fate_ = IsWhole(buffers_[index]) ? Fate::kTaken : Fate::kLost;
    }
    Describe(index, request);
  }
  if (taken_listener_) taken_listener_();
  return 0;
}

bool CaptureQueue::IsWhole(const Buffer& buffer) const {
  if (!buffer.guard) return true;
  const std::uint8_t* const at = buffer.memory + *buffer.guard;
  return std::any_of(at, at + kGuardBytes, [](std::uint8_t byte) { return byte != 0; });
}

CaptureQueue::Fate CaptureQueue::LastFate() const {
  const std::lock_guard lock(mutex_);
  return last_fate_;
}

unsigned CaptureQueue::HighestPriority() const {
  const std::lock_guard lock(mutex_);
  unsigned highest = V4L2_PRIORITY_DEFAULT;
  for (const auto& [owner, priority] : priorities_) highest = std::max(highest, priority);
  return highest;
}

int CaptureQueue::SetPriority(Owner owner, unsigned priority) {
  if (priority < V4L2_PRIORITY_BACKGROUND || priority > V4L2_PRIORITY_RECORD) return -EINVAL;
  if (!HasPriority(owner)) return -EBUSY;
  const std::lock_guard lock(mutex_);
  priorities_[owner] = priority;
  return 0;
}

bool CaptureQueue::HasPriority(Owner owner) const {
  const std::lock_guard lock(mutex_);
  const auto own = priorities_.find(owner);
  const unsigned mine = own == priorities_.end() ? unsigned{V4L2_PRIORITY_DEFAULT} : own->second;
  for (const auto& [other, priority] : priorities_) {
    if (other != owner && priority > mine) return false;
  }
  return true;
}

int CaptureQueue::StreamOn(unsigned type, Owner owner) {
  {
    const std::lock_guard lock(mutex_);
    if (unplugged_) return -ENODEV;
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    if (IsBusy(owner)) return -EBUSY;
    if (buffers_.empty()) return -EINVAL;
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
  if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
  if (IsBusy(owner)) return -EBUSY;
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
                       [](const Buffer& buffer) { return buffer.state == State::kFilling; });
  };
  fill_ended_.wait(lock, [&] { return !filling(); });
  done_.clear();
  for (Buffer& buffer : buffers_) buffer.state = State::kDequeued;
  signs_.Update(IsReady());
  filled_.Ring();
}

std::intptr_t CaptureQueue::Map(void* hint, std::size_t length, int protection, int flags,
                                off_t offset) {
  const std::lock_guard lock(mutex_);
  if (unplugged_) return -ENODEV;
  if (memory_type_ != V4L2_MEMORY_MMAP) return -EINVAL;
  for (unsigned index = 0; index < buffers_.size(); ++index) {
    if (offset != static_cast<off_t>(PageOffset(index))) continue;
    if (PageAligned(length) > PageAligned(buffer_bytes_) || (flags & MAP_SHARED) == 0) {
      return -EINVAL;
    }
    void* address = real::Mmap(hint, length, protection, flags, buffers_[index].memory_fd.Get(), 0);
    return address == MAP_FAILED ? -errno : reinterpret_cast<std::intptr_t>(address);
  }
  return -EINVAL;
}

void CaptureQueue::Closed(Owner owner) {
  std::unique_lock lock(mutex_);
  priorities_.erase(owner);
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
  if (!streaming_) return signs_.Watch(sign, POLLERR);
  return signs_.Watch(sign, done_.empty() ? 0 : POLLIN | POLLRDNORM);
}

bool CaptureQueue::StreamsElsewhere() const {
  const pid_t where = common_.streaming_in;
  return where != 0 && where != getpid() && seat_.TakenElsewhere();
}

bool CaptureQueue::Streaming() const {
  const std::lock_guard lock(mutex_);
  return streaming_;
}

std::size_t CaptureQueue::FormatBytes() const {
  const std::lock_guard lock(mutex_);
  return buffers_.empty() ? SizeImage() : buffer_bytes_;
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
  return Fill{index, {buffers_[index].memory, buffer_bytes_}, buffer_width_, buffer_height_};
}

void CaptureQueue::Finish(const Fill& fill, std::size_t bytes_used, std::uint32_t sequence,
                          std::optional<std::size_t> guard) {
  {
    const std::lock_guard lock(mutex_);
    Buffer& buffer = buffers_[fill.index];
    buffer.state = State::kDone;
    buffer.bytes_used = bytes_used;
    buffer.sequence = sequence;
    buffer.guard = guard;
    last_filled_ = fill.index;
    last_fate_ = streaming_ ? Fate::kWaiting : Fate::kLost;
    buffer.time = MonotonicTime();
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
