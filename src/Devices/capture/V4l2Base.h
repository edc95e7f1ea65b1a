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

// The last bytes of a buffer. They are zero until the FPGA has completed it.
inline constexpr std::size_t kCompletionMarkerBytes = 8;

// A V4L2 capture device for 8-bit greyscale frames and the buffers it fills. A subclass decides
// where the buffers live and how their cache lines are maintained; it reports under its own source
// file.
//
// One capture thread drives it. Meanwhile other threads may change the format, queue a buffer by
// index and clear the buffers.
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

  // Gives back the buffer that DqBuf() took last.
  bool QBuf();
  // Clears the completion marker of a buffer taken by DqBuf(index) and gives it back. Returns false
  // for any other buffer, which belongs to the driver.
  bool QBuf(unsigned int index);

  bool StreamOn();
  bool StreamOff();

  // Unmaps the buffers and closes the device; the destructor does neither.
  bool Close();

  // Zeroes all buffer memory: at once when the capture thread holds no buffer. Otherwise that
  // thread does it when it gives its buffer back, and the caller waits for up to a second unless it
  // is that thread.
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

  // file: the subclass's source file, for the log.
  V4l2Base(v4l2_memory memory, const char* file);

  // Allocates memory for `count` buffers unless the driver does, and releases that of an earlier
  // request.
  virtual bool PrepareMemory(unsigned int count) = 0;
  // Gives a buffer of the driver its memory: fills in data and size, and the descriptor where the
  // driver needs it.
  virtual bool Provide(v4l2_buffer& descriptor, Buffer& buffer) = 0;
  virtual void ReleaseMemory() = 0;
  virtual void ClearMemory() = 0;

  // Called by DqBuf() and QBuf() without an index.
  virtual void AfterDequeue(unsigned int index, std::size_t size);
  virtual void BeforeQueue(unsigned int index, std::size_t size);

  int fd() const { return fd_; }
  std::vector<Buffer>& buffers() { return buffers_; }

  // An ERROR line with the subclass's file and the calling line: Tell()("failed: %s", why).
  LogError Tell(int line = __builtin_LINE()) const { return LogError(file_, line); }
  void Enter(const char* function, int line = __builtin_LINE()) const {
    Trace(function, file_, line);
  }

 private:
  v4l2_buffer BufferDescriptor(unsigned int index) const;
  bool SetUpBuffer(unsigned int index);
  enum class By { kOrder, kIndex };
  const Buffer* Dequeue(By by);
  // After this no buffer is the current one.
  void Forget();
  void ForgetLocked();
  // With the lock: nobody holds the current buffer any more.
  void LetGo();
  // An errno or 0. A copy: the driver writes into it.
  int Queue(v4l2_buffer descriptor);
  bool QueueOrTell(const v4l2_buffer& descriptor);
  bool NotQueued(int error) const;  // logs it and returns false
  bool Switch(unsigned long request);

  // Held by other threads while they touch buffers, so that the SIGINT handler cannot unmap them,
  // and by any thread that records a buffer's holder. Nothing is logged under it while streaming: a
  // sink may call the library.
  std::mutex memory_mutex_;
  // The thread that holds the last buffer; none after it went back.
  std::thread::id holder_;
  std::uint64_t clearings_wanted_ = 0;
  std::uint64_t clearings_granted_ = 0;
  std::condition_variable granted_;

  const v4l2_memory memory_;
  const char* const file_;
  Relaxed<int> fd_ = -1;
  std::vector<Buffer> buffers_;
  std::optional<v4l2_buffer> current_;  // the buffer last dequeued, until it goes back
  unsigned int last_index_ = 0;         // its index, also afterwards
  // Used by the dequeuing thread only: it has not given the last buffer back itself.
  bool in_hand_ = false;
};

}  // namespace VeltranoSDK::DevFOps
