#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "DeviceManager.h"
#include "Runnable/CaptureStripStream.h"
#include "StripDevice.h"

namespace bench {

// Runs a capture thread until its driver has no more buffers.
template <typename Thread>
void RunToTheEnd(Thread& thread, const Driver& driver) {
  thread.Start();
  thread.Detach();
  while (!driver.IsDone()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  thread.Cancel();
  if (thread.WaitUntilGone(0) && thread.ReleaseResource()) return;
  std::fprintf(stderr, "a capture thread did not end\n");
  std::exit(1);
}

inline void RunStripThread(const std::shared_ptr<StripDevice>& device,
                           VeltranoSDK::CaptureStripStream::StripBufCallback callback) {
  VeltranoSDK::DeviceManagerHolder::Instance()->v4l2_buf_ = device;
  const auto thread = std::make_shared<VeltranoSDK::CaptureStripStream>();
  thread->RegisterStripBufCallback(std::move(callback));
  RunToTheEnd(*thread, *device);
}

}  // namespace bench
