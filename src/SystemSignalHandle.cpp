#include "SystemSignalHandle.h"

#include <cstdlib>

#include "DeviceManager.h"
#include "Devices/FpgaLogic.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "Runnable/RunnableObjectManager.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned int kPatience = 1000;  // milliseconds for a cancelled thread to go

// A thread that is still there may hold a buffer: then its device is left to the
// end of the process, which is near.
template <typename Stream>
void Release(Stream& stream, bool thread_gone) {
  if (thread_gone) {
    stream.ReleaseResource();
  } else {
    LogError("a capture thread does not end, its device is not released");
  }
}

}  // namespace

void SystemSignalHandle(int /*signal*/) {
  const auto video = RunnableObjectManagerHolder::Instance()->video_;
  const auto strip = RunnableObjectManagerHolder::Instance()->strip_;
  const auto fpga = DeviceManagerHolder::Instance()->fpga_logic_;

  // The FPGA first, so that no further frames are produced.
  if (fpga != nullptr) fpga->IntSignalOper();
  video->Cancel();
  strip->Cancel();
  const bool video_gone = video->WaitUntilGone(kPatience);
  const bool strip_gone = strip->WaitUntilGone(kPatience);
  Release(*video, video_gone);
  Release(*strip, strip_gone);
  exit(0);
}

}  // namespace VeltranoSDK
