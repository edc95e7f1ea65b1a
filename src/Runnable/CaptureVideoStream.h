#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "Runnable/CaptureStream.h"
#include "Runnable/ImageReorder.h"

namespace VeltranoSDK {

class CmosSensor;

// The image thread: takes each image, restores the pixel order in place, delivers it and gives the
// buffer back to the driver.
class CaptureVideoStream final : public CaptureStream {
 public:
  // Width, height, first pixel; the 32-byte header follows the last pixel. The memory belongs to
  // the driver again when the callback returns.
  using ImageBufCallback = std::function<Callback>;

  CaptureVideoStream();

  bool RegisterImageBufCallback(ImageBufCallback callback);
  // Called once, when the first image of an IMX252 arrives.
  bool RegisterCmos252SelfTestSuccessfullyCallback(std::function<void()> callback);

  // Zeroes all image buffers, see V4l2Base::ClearBuf.
  bool VideoBufClear();
  bool SetV4l2Fmt(unsigned int width, unsigned int height);

 private:
  bool BeforeRun() override;
  Fate HandOver(std::byte* buffer) override;

  bool SetUp(const CmosSensor& sensor);
  void ReportSelfTest();

  Utility::CallbackSlot<void()> self_test_callback_;
  bool self_test_reported_ = false;
  ReorderScratch scratch_;
};

}  // namespace VeltranoSDK
