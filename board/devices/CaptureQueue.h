// The buffers of one capture device. Software queues them, the FPGA fills them, and software
// dequeues them.
//
// A buffer belongs to one side at a time. Begin() gives the FPGA the buffer that has been queued
// the longest. The FPGA writes it without the lock and returns it with Finish(). Calls that take
// buffers away (StreamOff, Closed, Unplug) first wait for the buffer being written, so the FPGA
// never writes to freed memory. The queue rejects everything that the kernel's buffer queue
// rejects, with its errors.
#pragma once

#include <linux/videodev2.h>
#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <span>

#include "Doorbell.h"
#include "PollSign.h"
#include "devices/CaptureBuffer.h"
#include "memory/Seat.h"

namespace board {

// Results are 0 or the negative errno.
class CaptureQueue {
 public:
  CaptureQueue(BoardMemory& memory, Seat::Number seat);
  CaptureQueue(const CaptureQueue&) = delete;
  CaptureQueue& operator=(const CaptureQueue&) = delete;

  static constexpr unsigned kMinWidth = 16;
  static constexpr unsigned kMinHeight = 1;
  static constexpr unsigned kMaxSide = 16384;

  // Software's side. `owner` identifies the open file. The file that requested the buffers owns the
  // stream.
  using Owner = const void*;
  static int TryFormat(v4l2_format* format);
  int SetFormat(v4l2_format* format);
  int GetFormat(v4l2_format* format) const;
  int Request(v4l2_requestbuffers* request, Owner owner);
  int Create(v4l2_create_buffers* request, Owner owner);
  int Query(v4l2_buffer* buffer) const;
  int Prepare(v4l2_buffer* buffer, Owner owner);
  int Queue(v4l2_buffer* buffer, Owner owner);
  int Dequeue(v4l2_buffer* buffer, Owner owner);  // -EAGAIN: none filled yet
  // Gives the file a descriptor of a buffer's memory.
  int Export(v4l2_exportbuffer* request, Owner owner) const;
  int StreamOn(unsigned type, Owner owner);
  int StreamOff(unsigned type, Owner owner);
  // Returns the address, or the negative errno.
  std::intptr_t Map(void* hint, std::size_t length, int protection, int flags, off_t offset);
  void Closed(Owner owner);  // ends the owner's stream and frees its buffers
  // For poll. Each open file has a sign while it is open.
  short Ready(PollSign& sign);
  void SetPoll(bool implemented);
  void Add(PollSign& sign);
  void Remove(PollSign& sign);
  Doorbell& Filled() { return filled_; }  // rung when Dequeue may find something

  // The FPGA's side.
  struct Fill {
    unsigned index;
    std::span<std::uint8_t> memory;  // as much as a frame of the format needs
    unsigned width;
    unsigned height;
  };
  // Called without a lock after a buffer was queued or the stream started.
  void SetListener(std::function<void()> listener) { listener_ = std::move(listener); }
  bool Streaming() const;
  bool StreamsElsewhere() const;  // in another process that shares the board
  std::size_t FormatBytes() const;
  bool HasFree() const;
  bool IsShort() const;  // streaming, and no buffer is queued
  // Takes the buffer queued the longest for the FPGA, until Finish().
  std::optional<Fill> Begin();
  // No bytes used: the frame did not fit. `guard`: where eight bytes of the frame are not all zero.
  void Finish(const Fill& fill, std::size_t bytes_used, std::optional<std::size_t> guard = {});

  // What became of the buffer that was filled last. kLost: the stream was stopped before software
  // took it, or software had cleared it by then (zeros at the guard).
  enum class Fate { kWaiting, kLost, kTaken, kReturned };
  Fate LastFate() const;
  // Called without a lock after a buffer was taken. Set before software runs.
  void SetTakenListener(std::function<void()> listener) { taken_listener_ = std::move(listener); }

  // Called when the board is unplugged. All calls then fail with ENODEV, and blocked calls return.
  void Unplug();

 private:
  using State = CaptureBuffer::State;
  // What the processes that share the board agree about.
  struct Common {
    static constexpr unsigned kFirstWidth = 640, kFirstHeight = 480;  // before a format is set
    std::atomic<unsigned> width{kFirstWidth}, height{kFirstHeight};   // the current format
    std::atomic<pid_t> streaming_in{0};
  };

  bool IsBusy(Owner owner) const;
  // Nothing would ever arrive: poll reports an error.
  bool IsIdle() const { return !streaming_ || nothing_queued_yet_; }
  bool IsReady() const { return unplugged_ || IsIdle() || !done_.empty(); }
  std::size_t SizeImage() const { return std::size_t{common_.width} * common_.height; }
  // Returns how many there was memory for.
  unsigned Allocate(unsigned count, std::size_t bytes);
  void FreeBuffers();
  void Disown();
  void StopLocked(std::unique_lock<std::mutex>& lock);
  void Describe(unsigned index, v4l2_buffer* buffer) const;
  // The checks of QBUF and PREPARE_BUF, and those of the buffer's memory.
  int CheckBuffer(const v4l2_buffer& request, Owner owner) const;
  int PrepareLocked(const v4l2_buffer& request);

  Common& common_;
  Seat seat_;
  const bool shared_;
  mutable std::mutex mutex_;
  std::condition_variable fill_ended_;
  Doorbell filled_;
  std::function<void()> listener_ = [] {};
  std::function<void()> taken_listener_;
  unsigned last_filled_ = 0;
  Fate last_fate_ = Fate::kLost;
  bool unplugged_ = false;
  bool streaming_ = false;
  Owner owner_ = nullptr;
  bool nothing_queued_yet_ = true;  // since there are buffers, or the stream was stopped
  std::uint32_t next_sequence_ = 0;
  unsigned memory_type_ = 0;  // of the buffers
  std::deque<CaptureBuffer> buffers_;
  std::deque<unsigned> queued_;
  std::deque<unsigned> done_;
  PollSigns signs_;
};

}  // namespace board
