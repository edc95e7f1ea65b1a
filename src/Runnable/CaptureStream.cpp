#include "Runnable/CaptureStream.h"

#include "Devices/capture/V4l2Base.h"
#include "thread/SignalMask.h"

namespace VeltranoSDK {

namespace {

// Long enough for a thread that is not in a callback, short enough after Ctrl-C.
constexpr unsigned kGoneMs = 1000;

}  // namespace

bool CaptureStream::ReleaseResource() {
  Enter(__func__);
  const auto device = Device();
  if (!device) return false;
  device->StreamOff();  // also ends a blocked dequeue
  if (WaitUntilGone(kGoneMs)) {
    device->Close();
  } else {
    Tell()("the %s thread is still at work, its buffers stay mapped", what_);
  }
  return true;
}

void CaptureStream::SetMinTimeStamp(std::uint64_t time_stamp) {
  Enter(__func__);
  min_time_stamp_ = time_stamp;
}

void CaptureStream::SetTimeStampHold(bool hold) {
  Enter(__func__);
  time_stamp_hold_ = hold;
}

void CaptureStream::SetDevice(std::shared_ptr<DevFOps::V4l2Base> device) {
  const SignalsBlocked no_handler_here;
  const std::lock_guard lock(device_mutex_);
  device_.swap(device);
}

std::shared_ptr<DevFOps::V4l2Base> CaptureStream::Device() const {
  std::shared_ptr<DevFOps::V4l2Base> device;
  {
    const SignalsBlocked no_handler_here;
    const std::lock_guard lock(device_mutex_);
    device = device_;
  }
  if (!device) Tell()("the %s device is not open", what_);
  return device;
}

bool CaptureStream::OpenDevice(const char* path, unsigned int width, unsigned int height,
                               unsigned int count) {
  return device_->Open(path) && device_->SetFmt(width, height) && device_->ReqBufs(count) &&
         device_->StreamOn();
}

bool CaptureStream::TellReady(bool ready) const {
  if (ready) {
    LogInfo{file_}("initialize v4l2 succeffully");
  } else {
    Tell()("initialize v4l2 error!");
  }
  return ready;
}

void CaptureStream::LoopRun() {
  Enter(__func__);
  if (!WaitFor(device_ ? device_->Descriptor() : -1)) return;
  std::byte* buffer = Ready() ? device_->DqBuf() : nullptr;
  if (buffer == nullptr) {
    statistics_.DequeueFailed();
    Rest(backoff_.Next());
    return;
  }
  backoff_.Reset();
  statistics_.Dequeued();
  statistics_.Done(HandOver(buffer));
  device_->QBuf();
}

Fate CaptureStream::Offer(unsigned int first, unsigned int second, std::byte* buffer) {
  Fate fate = Fate::kSuppressed;  // when the thread is being ended
  Deliver([&] {
    const auto callback = callback_.Get();
    if (callback) statistics_.Time([&] { (*callback)(first, second, buffer); });
    fate = callback ? Fate::kDelivered : Fate::kReleased;
  });
  return fate;
}

}  // namespace VeltranoSDK
