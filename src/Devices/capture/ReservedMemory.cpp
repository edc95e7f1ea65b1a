#include "Devices/capture/ReservedMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "log/Log.h"
#include "thread/SystemCalls.h"

namespace VeltranoSDK {

ReservedMemory::ReservedMemory(unsigned long physical_address, unsigned long size)
    : physical_address_(physical_address), size_(size) {
  Trace(__func__);
  fd_ = OpenDevice("/dev/mem", O_RDWR | O_NONBLOCK);
  if (fd_ < 0) LogError()("ReservedMemory mmap!");
  address_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_,
                  static_cast<off_t>(physical_address_));
  if (address_ == MAP_FAILED) {
    LogError()("ReservedMemory mmap failed!");
  } else {
    LogInfo()("ReservedMemory mmap succuffully!");
  }
}

ReservedMemory::~ReservedMemory() {
  if (fd_ >= 0) close(fd_);
  if (address_ != MAP_FAILED) munmap(address_, size_);
}

}  // namespace VeltranoSDK
