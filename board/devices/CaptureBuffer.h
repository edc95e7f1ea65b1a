#pragma once

#include <linux/videodev2.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#include "PrivateDescriptor.h"

namespace board {

// One buffer of a capture device: its memory, and what is known about the frame in it. An MMAP
// buffer is shared memory that both the board and software map. It lives until the last mapping or
// exported descriptor of it is gone.
class CaptureBuffer {
 public:
  enum class State { kDequeued, kQueued, kFilling, kDone };
  struct Frame {
    std::size_t bytes_used = 0;
    std::optional<std::size_t> guard;  // where eight bytes are not all zero
    std::uint32_t sequence = 0;
    timeval time{};
  };

  // `offset`: where software finds an MMAP buffer in the device.
  CaptureBuffer(std::size_t length, std::size_t offset) : length_(length), offset_(offset) {}
  ~CaptureBuffer();
  CaptureBuffer(const CaptureBuffer&) = delete;
  CaptureBuffer& operator=(const CaptureBuffer&) = delete;

  static std::size_t PageAligned(std::size_t bytes);

  // The memory of an MMAP buffer. False: there is none left.
  bool Allocate();
  // The memory of a USERPTR buffer. Returns 0 or the negative errno.
  int Attach(const v4l2_buffer& user, std::size_t least);

  // Both for an MMAP buffer, and as the kernel's calls: the address, the descriptor, or the
  // negative errno.
  std::intptr_t Map(void* hint, std::size_t length, int protection, int flags) const;
  int Export(int flags) const;

  std::size_t Offset() const { return offset_; }
  std::size_t End() const { return offset_ + PageAligned(length_); }
  std::uint8_t* Memory() const { return memory_; }
  // Software has cleared the frame by now.
  bool IsCleared() const;

  // All that software is told, except index and type.
  void Describe(v4l2_buffer* out) const;

  State state = State::kDequeued;
  bool prepared = false;  // the next QBUF has nothing more to check
  Frame frame;

 private:
  std::size_t length_;
  const std::size_t offset_;
  PrivateDescriptor memory_fd_;     // MMAP
  std::uint8_t* memory_ = nullptr;  // the board's own mapping, or the user's pointer
};

}  // namespace board
