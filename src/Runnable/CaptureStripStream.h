#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "Runnable/CaptureStream.h"

namespace VeltranoSDK {

class CmosSensor;
class SeriesLogic;
struct StripWalk;

// The strip thread: takes each buffer of packed strips, walks their headers, delivers the buffer in
// place and gives it back to the driver.
class CaptureStripStream final : public CaptureStream {
 public:
  // Number of strips, their bytes, first strip. The memory belongs to the driver again when the
  // callback returns.
  using StripBufCallback = std::function<Callback>;

  CaptureStripStream();

  bool RegisterStripBufCallback(StripBufCallback callback);

  bool ResetStripReleaseCount();
  bool ResetCallbackLostCount();
  bool ResetLastFrameId();
  // Zeroes all strip buffers (see V4l2Base::ClearBuf) and the last frame id.
  bool StripBufClear();
  bool QV4l2Buf(unsigned int index);

  // The strip layout: in mode 1 points have 4 bytes and the count is narrow.
  void SetWriteMemMode(unsigned int mode);

  // Strips for which no callback was registered.
  std::uint64_t StripReleaseCount() const { return strip_release_count_; }
  std::uint64_t CallbackLostCount() const { return callback_lost_count_; }
  std::uint64_t LastFrameId() const { return last_frame_id_; }

 private:
  struct Layout;

  bool BeforeRun() override;
  bool Ready() const override { return device_ && sensor_ && series_logic_; }
  Fate HandOver(std::byte* buffer) override;

  bool SetUp();
  Layout CurrentLayout() const;
  StripWalk Walk(const std::byte* buffer, const Layout& layout);

  std::atomic<std::uint64_t> strip_release_count_{0};
  std::atomic<std::uint64_t> callback_lost_count_{0};
  Relaxed<std::uint64_t> last_frame_id_ = 0;
  Relaxed<unsigned int> write_mem_mode_ = 0;
  std::shared_ptr<CmosSensor> sensor_;
  std::shared_ptr<SeriesLogic> series_logic_;
};

}  // namespace VeltranoSDK
