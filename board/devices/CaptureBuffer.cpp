#include "devices/CaptureBuffer.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <string>

#include "RealCalls.h"
#include "devices/UserMemory.h"

namespace board {
namespace {

constexpr std::size_t kPageBytes = 4096;
constexpr std::size_t kGuardBytes = 8;

}  // namespace

CaptureBuffer::~CaptureBuffer() {
  if (memory_fd_.Get() >= 0 && memory_ != nullptr) real::Munmap(memory_, PageAligned(length_));
}

std::size_t CaptureBuffer::PageAligned(std::size_t bytes) {
  return (bytes + kPageBytes - 1) & ~(kPageBytes - 1);
}

bool CaptureBuffer::Allocate() {
  memory_fd_ = NewMemory("board-frame", PageAligned(length_));
  if (memory_fd_.Get() < 0) return false;
  void* address = real::Mmap(nullptr, PageAligned(length_), PROT_READ | PROT_WRITE, MAP_SHARED,
                             memory_fd_.Get(), 0);
  if (address == MAP_FAILED) return false;
  memory_ = static_cast<std::uint8_t*>(address);
  return true;
}

int CaptureBuffer::Attach(const v4l2_buffer& user, std::size_t least) {
  if (user.length < least) return -EINVAL;
  auto* const memory = reinterpret_cast<std::uint8_t*>(user.m.userptr);
  if (!IsMapped(memory, user.length)) return -EFAULT;
  const bool known = memory == memory_ && user.length == length_;
  if (!known && !IsWritable(memory, user.length)) return -EFAULT;
  memory_ = memory;
  length_ = user.length;
  return 0;
}

std::intptr_t CaptureBuffer::Map(void* hint, std::size_t length, int protection, int flags) const {
  const bool readable = (protection & PROT_READ) != 0;
  if (!readable || (flags & MAP_SHARED) == 0 || PageAligned(length) > PageAligned(length_)) {
    return -EINVAL;
  }
  void* address = real::Mmap(hint, length, protection, flags, memory_fd_.Get(), 0);
  return address == MAP_FAILED ? -errno : reinterpret_cast<std::intptr_t>(address);
}

// Opened anew, because a duplicate would have the access rights of the board's own descriptor.
int CaptureBuffer::Export(int flags) const {
  const std::string path = "/proc/self/fd/" + std::to_string(memory_fd_.Get());
  const int fd = real::Open(AT_FDCWD, path.c_str(), flags, 0);
  return fd < 0 ? -errno : fd;
}

bool CaptureBuffer::IsCleared() const {
  if (!frame.guard) return false;
  const std::uint8_t* const at = memory_ + *frame.guard;
  return std::all_of(at, at + kGuardBytes, [](std::uint8_t byte) { return byte == 0; });
}

void CaptureBuffer::Describe(v4l2_buffer* out) const {
  out->field = V4L2_FIELD_NONE;
  out->bytesused = static_cast<unsigned>(frame.bytes_used);
  out->length = static_cast<unsigned>(length_);
  out->sequence = frame.sequence;
  out->timestamp = frame.time;
  out->flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
  if (state == State::kQueued || state == State::kFilling) out->flags |= V4L2_BUF_FLAG_QUEUED;
  if (state == State::kDone) {
    out->flags |= V4L2_BUF_FLAG_DONE | (frame.bytes_used == 0 ? V4L2_BUF_FLAG_ERROR : 0);
  }
  if (state == State::kDequeued && prepared) out->flags |= V4L2_BUF_FLAG_PREPARED;
  if (memory_fd_.Get() >= 0) {
    out->memory = V4L2_MEMORY_MMAP;
    out->m.offset = static_cast<unsigned>(offset_);
  } else {
    out->memory = V4L2_MEMORY_USERPTR;
    out->m.userptr = reinterpret_cast<unsigned long>(memory_);
  }
}

}  // namespace board
