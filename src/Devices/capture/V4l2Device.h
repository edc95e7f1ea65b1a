#pragma once

#include <linux/videodev2.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "Devices/capture/V4l2Base.h"
#include "log/Log.h"
#include "thread/Relaxed.h"

namespace VeltranoSDK::DevFOps {

// What every flavour of capture device does in the same way. A flavour says where
// the buffers live, and what happens to their cache lines. It reports under its
// own source file: flavour_here is a Message written there.
class V4l2Device : public V4l2Base {
 public:
  bool Open(std::string path) override;
  bool SetFmt(unsigned int width, unsigned int height) override;
  bool ReqBufs(unsigned int count) override;
  std::byte* DqBuf() override;
  std::byte* DqBuf(unsigned int& index) override;
  bool QBuf() override;
  bool QBuf(unsigned int index) override;
  bool StreamOn() override;
  bool StreamOff() override;
  bool Close() override;
  void ClearBuf() override;
  unsigned int Index() override;
  std::size_t BufferSize() override;
  int Descriptor() const override { return fd_; }

 protected:
  struct Buffer {
    std::byte* data = nullptr;  // null: not granted by the driver
    std::size_t size = 0;
    v4l2_buffer taken{};  // as DqBuf(index) got it
    bool is_taken = false;
  };

  V4l2Device(v4l2_memory memory, Message flavour_here);

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

  // A message of this flavour, from the calling line.
  Message Tell(const char* format, int line = __builtin_LINE()) const {
    return {format, flavour_.file, line};
  }
  void Enter(const char* function, int line = __builtin_LINE()) const {
    Trace(function, flavour_.file, line);
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
  const Message flavour_;
  Relaxed<int> fd_ = -1;
  std::vector<Buffer> buffers_;
  v4l2_buffer current_{};
  bool has_current_ = false;
  // Of the thread that dequeues alone: it has not given the last buffer back itself.
  bool in_hand_ = false;
};

}  // namespace VeltranoSDK::DevFOps
