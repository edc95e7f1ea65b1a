#pragma once

#include <memory>

#include "Devices/SeriesNumber.h"

namespace VeltranoSDK {

namespace DevFOps {
class V4l2Base;
}

// Creates the strip capture device of a product. It is returned closed.
class V4l2BufFactory {
 public:
  static std::shared_ptr<DevFOps::V4l2Base> CreateV4l2BufBySeries(SeriesNumber series);
};

}  // namespace VeltranoSDK
