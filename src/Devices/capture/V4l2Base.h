#pragma once

#include <cstddef>
#include <string>

namespace VeltranoSDK::DevFOps {

// A V4L2 capture device for 8-bit greyscale frames and the buffers it fills.
//
// One capture thread drives it. Other threads may change the format, queue a
// buffer by index and clear the buffers meanwhile.
class V4l2Base {
 public:
  virtual ~V4l2Base() = default;

  // Each returns false, after one ERROR line, when the driver refuses.
  virtual bool Open(std::string path) = 0;
  virtual bool SetFmt(unsigned int width, unsigned int height) = 0;
  virtual bool ReqBufs(unsigned int count) = 0;  // maps and queues them all

  // Blocks until a buffer is filled; its data, or null.
  virtual std::byte* DqBuf() = 0;
  virtual std::byte* DqBuf(unsigned int& index) = 0;  // no cache maintenance

  // Gives back the buffer last taken by DqBuf().
  virtual bool QBuf() = 0;
  // Clears the completion marker of a buffer taken by DqBuf(index) and gives it
  // back. False for any other buffer: it is the driver's.
  virtual bool QBuf(unsigned int index) = 0;

  virtual bool StreamOn() = 0;
  virtual bool StreamOff() = 0;

  // Unmaps the buffers and closes the device; the destructor does neither.
  virtual bool Close() = 0;

  // Zeroes all buffer memory: at once where no buffer is in the capture thread's hands;
  // otherwise that thread does it when it gives its buffer back, and is waited for, up to a
  // second, unless it is the one that asks.
  virtual void ClearBuf() = 0;
  virtual unsigned int Index() = 0;      // of the buffer last dequeued
  virtual std::size_t BufferSize() = 0;  // mapped bytes of the buffer last dequeued
  virtual int Descriptor() const = 0;    // for poll(); -1 while closed
};

// The last bytes of a buffer, zero while the FPGA has not completed it.
inline constexpr std::size_t kCompletionMarkerBytes = 8;

}  // namespace VeltranoSDK::DevFOps
