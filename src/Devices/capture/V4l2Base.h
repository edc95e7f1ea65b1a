#pragma once

#include <linux/videodev2.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "log/Log.h"
#include "thread/Relaxed.h"

namespace VeltranoSDK::DevFOps {

// The last bytes of a buffer, zero while the FPGA has not completed it.
inline constexpr std::size_t kCompletionMarkerBytes = 8;

// A V4L2 capture device for 8-bit greyscale frames and the buffers it fills. A flavour says
// where the buffers live, and what happens to their cache lines; it reports under its own
// source file.
//
// One capture thread drives it. Other threads may change the format, queue a
// buffer by index and clear the buffers meanwhile.
class V4l2Base {
 public:
  virtual ~V4l2Base() = default;

  // Each returns false, after one ERROR line, when the driver refuses.
  bool Open(std::string path);
  virtual bool SetFmt(unsigned int width, unsigned int height);
  bool ReqBufs(unsigned int count);  // maps and queues them all

  // Blocks until a buffer is filled; its data, or null.
  std::byte* DqBuf();
  std::byte* DqBuf(unsigned int& index);  // no cache maintenance

  // Gives back the buffer last taken by DqBuf().
  bool QBuf();
  // Clears the completion marker of a buffer taken by DqBuf(index) and gives it
  // back. False for any other buffer: it is the driver's.
  bool QBuf(unsigned int index);

  bool StreamOn();
  bool StreamOff();

  // Unmaps the buffers and closes the device; the destructor does neither.
  bool Close();

  // Zeroes all buffer memory: at once where no buffer is in the capture thread's hands;
  // otherwise that thread does it when it gives its buffer back, and is waited for, up to a
  // second, unless it is the one that asks.
  void ClearBuf();
  unsigned int Index();                   // of the buffer last dequeued
  std::size_t BufferSize();               // mapped bytes of the buffer last dequeued
  int Descriptor() const { return fd_; }  // for poll(); -1 while closed

 protected:
  struct Buffer {
    std::byte* data = nullptr;  // null: not granted by the driver
    std::size_t size = 0;
    std::optional<v4l2_buffer> taken;  // as DqBuf(index) got it, until it goes back
  };

  // file: of the flavour, for the log.
  V4l2Base(v4l2_memory memory, const char* file);

  // Makes the memory of so many buffers, where that is not the driver's business, and
  // lets go of an earlier request's.
  virtual bool PrepareMemory(unsigned int count) = 0;
  // Gives a buffer of the driver its memory: fills in data and size, and the
  // descriptor where the driver must know.
  virtual bool Provide(v4l2_buffer& descriptor, Buffer& buffer) = 0;
  virtual void ReleaseMemory() = 0;
  virtual void ClearMemory() = 0;

  // Around DqBuf() and QBuf() without an index.
  virtual void AfterDequeue(unsigned int index, std::size_t size);
  virtual void BeforeQueue(unsigned int index, std::size_t size);

  int fd() const { return fd_; }
  std::vector<Buffer>& buffers() { return buffers_; }

  // A line of the log from the calling line of this flavour: Tell()("failed: %s", why).
  LogError Tell(int line = __builtin_LINE()) const { return LogError(file_, line); }
  void Enter(const char* function, int line = __builtin_LINE()) const {
    Trace(function, file_, line);
  }

 private:
  v4l2_buffer BufferDescriptor(unsigned int index) const;
  bool SetUpBuffer(unsigned int index);
  enum class By { kOrder, kIndex };
  const Buffer* Dequeue(By by);
  // No buffer is the current one.
  void Forget();
  void ForgetLocked();
  // With the lock: the current buffer is in nobody's hands any more.
  void LetGo();
  // An errno or 0. A copy: the driver writes into it.
  int Queue(v4l2_buffer descriptor);
  bool QueueOrTell(const v4l2_buffer& descriptor);
  bool NotQueued(int error) const;  // tells, and is false
  bool Switch(unsigned long request);

  // Held while the buffers are touched from outside the capture thread, so that the
  // SIGINT handler does not unmap them under somebody's hands; and while it is noted
  // whose a buffer is: two threads may give buffers back. A running stream logs nothing
  // under it: a sink may call the library.
  std::mutex memory_mutex_;
  // Whose hands the buffer last taken is in: nobody's once it went back.
  std::thread::id holder_;
  std::uint64_t clearings_wanted_ = 0;
  std::uint64_t clearings_granted_ = 0;
  std::condition_variable granted_;

  const v4l2_memory memory_;
  const char* const file_;
  Relaxed<int> fd_ = -1;
  std::vector<Buffer> buffers_;
  std::optional<v4l2_buffer> current_;  // the buffer last dequeued, until it goes back
  unsigned int last_index_ = 0;         // and its index, also afterwards
  // Of the thread that dequeues alone: it has not given the last buffer back itself.
  bool in_hand_ = false;
};

}  // namespace VeltranoSDK::DevFOps
