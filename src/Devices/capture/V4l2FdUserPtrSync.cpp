#include "Devices/capture/V4l2FdUserPtrSync.h"

#include "Devices/capture/UdmaBuf.h"

namespace VeltranoSDK::DevFOps {

V4l2FdUserPtrSync::V4l2FdUserPtrSync() : V4l2FdUserPtr(__builtin_FILE()) {}

void V4l2FdUserPtrSync::AfterDequeue(unsigned int index, std::size_t size) {
  udma_buf()->Sync(size, size * index, UdmaBuf::kFromDevice);
}

void V4l2FdUserPtrSync::BeforeQueue(unsigned int index, std::size_t size) {
  if (size < kCompletionMarkerBytes) return;  // this format has no room for a marker
  udma_buf()->Sync(kCompletionMarkerBytes, size * index + size - kCompletionMarkerBytes,
                   UdmaBuf::kToDevice);
}

}  // namespace VeltranoSDK::DevFOps
