#pragma once

#include <string>

#include "Device.h"
#include "devices/CaptureQueue.h"
#include "devices/UserPriorities.h"

namespace board {

// One V4L2 capture device, "/dev/video0": 8-bit grey frames.
class VideoNode : public Device {
 public:
  VideoNode(BoardMemory& memory, unsigned number);

  std::string Name() const override { return name_; }
  bool Claims(const std::string& path) const override { return path == "/dev/" + name_; }
  OpenResult Open(const std::string& path, int flags) override;
  void SetPoll(bool implemented) override { queue_.SetPoll(implemented); }
  void Unplug() override { queue_.Unplug(); }

  CaptureQueue& Buffers() { return queue_; }

 private:
  std::string name_;
  CaptureQueue queue_;
  UserPriorities priorities_;
};

}  // namespace board
