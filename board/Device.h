#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "PollSign.h"

namespace board {

// One open file description of a device. Every operation returns the system call's result, or the
// negative errno. Calls come from any thread, with the caller's cancellation off. Only a wait (see
// Caller.h) allows cancellation.
class OpenFile {
 public:
  OpenFile() = default;
  virtual ~OpenFile() = default;  // closes the file
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  // The status flags, as fcntl gets and sets them.
  int Flags() const { return flags_; }
  void SetFlags(int flags) { flags_ = flags; }

  virtual ssize_t Read(void* buffer, std::size_t size);         // default: EINVAL
  virtual ssize_t Write(const void* buffer, std::size_t size);  // default: EINVAL
  // The same at a position of the file. Most drivers do not look at the position; default: as
  // Read and Write.
  virtual ssize_t ReadAt(void* buffer, std::size_t size, off_t offset);
  virtual ssize_t WriteAt(const void* buffer, std::size_t size, off_t offset);
  virtual off_t Seek(off_t offset, int whence);              // default: ESPIPE
  virtual int Ioctl(unsigned long request, void* argument);  // default: ENOTTY
  // Returns the address, or the negative errno as a pointer value; default: ENODEV.
  virtual std::intptr_t Mmap(void* hint, std::size_t length, int protection, int flags,
                             off_t offset);
  // Returns which of `events` are true now (POLLIN, POLLOUT...); default: readable and writable.
  virtual short Ready(short events);
  // The sign of a file that is not always ready; default: null.
  virtual PollSign* Sign() { return nullptr; }

 protected:
  bool Nonblocking() const { return (flags_ & O_NONBLOCK) != 0; }

 private:
  std::atomic<int> flags_{0};
};

class FileTree;

using OpenResult = std::pair<std::shared_ptr<OpenFile>, int>;  // file, or null and errno

// One device of the board. It claims paths and opens them.
class Device {
 public:
  Device() = default;
  virtual ~Device() = default;
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // The name in the transcript and in faults: "video0", "i2c-1", "gpio".
  virtual std::string Name() const = 0;
  virtual bool Claims(const std::string& path) const = 0;
  virtual OpenResult Open(const std::string& path, int flags) = 0;
  // Adds the files that it has now, other than its node; default: none.
  virtual void List(FileTree& /*tree*/) const {}
  // If its driver does not implement poll, a device is always ready for everything.
  virtual void SetPoll(bool /*implemented*/) {}
  // Called when the board is unplugged. Calls that wait in the device's files return.
  virtual void Unplug() {}
};

// Makes an ioctl transfer only half of the messages (I2C_RDWR), or half of the bytes of each
// transfer (SPI_IOC_MESSAGE). Any other ioctl is made in full.
int IoctlCutShort(OpenFile& file, unsigned long request, void* argument);

// The printable name of an ioctl request, such as "VIDIOC_DQBUF", or "ioctl" if unknown.
std::string IoctlName(unsigned long request);

}  // namespace board
