#pragma once

#include <array>
#include <cstddef>

namespace VeltranoSDK {

// A contiguous DMA area from the u-dma-buf driver, mapped for the object's life.
class UdmaBuf {
 public:
  // The DMA directions of the kernel.
  static constexpr unsigned int kToDevice = 1;
  static constexpr unsigned int kFromDevice = 2;

  UdmaBuf(unsigned long offset, unsigned long size);
  virtual ~UdmaBuf();
  UdmaBuf(const UdmaBuf&) = delete;
  UdmaBuf& operator=(const UdmaBuf&) = delete;

  void* GetMappAddr() const { return address_; }  // MAP_FAILED when there is none
  bool IsMapped() const;

  void ClearBuf();

  // Unmaps and closes like the destructor, without the heap.
  void Release();

  // How the driver maps the area for the processor, see its documentation.
  void SetSyncMode(unsigned char mode);

  // Makes a range coherent for the processor (kFromDevice) or for the device.
  void Sync(unsigned long size, unsigned long offset, unsigned int direction);

 private:
  enum Attribute { kSyncOffset, kSyncSize, kSyncDirection, kSyncForCpu, kSyncForDevice, kCount };

  unsigned long offset_;
  unsigned long size_;
  int fd_ = -1;
  void* address_;
  std::array<int, kCount> attributes_;
};

}  // namespace VeltranoSDK
