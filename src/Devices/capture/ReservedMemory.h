#pragma once

namespace VeltranoSDK {

// A physical range that the kernel does not use, mapped for the object's life: the alternative to
// UdmaBuf on a board whose capture area is such a range.
class ReservedMemory {
 public:
  ReservedMemory(unsigned long physical_address, unsigned long size);
  virtual ~ReservedMemory();
  ReservedMemory(const ReservedMemory&) = delete;
  ReservedMemory& operator=(const ReservedMemory&) = delete;

  void* GetMappAddr() const { return address_; }  // MAP_FAILED when there is none

 private:
  unsigned long physical_address_;
  unsigned long size_;
  int fd_ = -1;
  void* address_;
};

}  // namespace VeltranoSDK
