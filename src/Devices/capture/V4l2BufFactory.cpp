#include "Devices/capture/V4l2BufFactory.h"

#include "Devices/capture/V4l2Fd.h"
#include "Devices/capture/V4l2FdUserPtr.h"
#include "Devices/capture/V4l2FdUserPtrSync.h"
#include "log/Log.h"

namespace VeltranoSDK {

std::shared_ptr<DevFOps::V4l2Base> V4l2BufFactory::CreateV4l2BufBySeries(SeriesNumber series) {
  LogTrace()(" - - - - %d", static_cast<int>(series));
  switch (series) {
    case kSeries24:
      return std::make_shared<DevFOps::V4l2FdUserPtrSync>();
    case kSeries25:
      return std::make_shared<DevFOps::V4l2FdUserPtr>();
    default:
      return std::make_shared<DevFOps::V4l2Fd>();
  }
}

}  // namespace VeltranoSDK
