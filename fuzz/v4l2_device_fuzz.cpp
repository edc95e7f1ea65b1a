// The three flavours of capture device with drivers that answer anything: what is
// handed out lies in mapped memory from end to end, nothing is touched outside, and a
// closed device leaves neither descriptor nor mapping behind.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <memory>

#include "Devices/V4l2Base.h"
#include "Devices/V4l2BufFactory.h"
#include "support/Require.h"
#include "support/VideoDriver.h"
#include "tessaline/log.h"

namespace {

using tessaline_fuzz::Require;
using tessaline_fuzz::VideoDriver;
using namespace VeltranoSDK;  // NOLINT(google-build-using-namespace)

unsigned errors;

class Device {
 public:
  Device(SeriesNumber series, FuzzedDataProvider& input, const VideoDriver& driver)
      : device_(V4l2BufFactory::CreateV4l2BufBySeries(series)), input_(input), driver_(driver) {}

  void Step() {
    const unsigned before = errors;
    bool refused = false;
    bool in_one_line = true;
    switch (input_.ConsumeIntegralInRange(0, 12)) {
      case 0:
        refused = !device_->Open("/dev/video1");
        break;
      case 1:
        refused = !device_->SetFmt(input_.ConsumeIntegralInRange(0u, 80u),
                                   input_.ConsumeIntegralInRange(0u, 80u));
        break;
      case 2:
        refused = !device_->ReqBufs(input_.ConsumeIntegralInRange(0u, 20u));
        in_one_line = false;  // each file of the DMA area is told
        break;
      case 3:
      case 4:
        refused = !Take(device_->DqBuf());
        break;
      case 5:
      case 6:
        refused = !TakeByIndex();
        break;
      case 7:
        refused = !device_->QBuf();
        break;
      case 8:
        refused =
            !device_->QBuf(input_.ConsumeBool() ? last_index_ : input_.ConsumeIntegral<unsigned>());
        break;
      case 9:
        refused = !device_->StreamOn();
        break;
      case 10:
        refused = !device_->StreamOff();
        break;
      case 11:
        device_->ClearBuf();
        break;
      default:
        Close();
        return;
    }
    Require(!refused || errors > before, "who refuses says why");
    Require(!refused || !in_one_line || errors == before + 1, "in one line");
  }

  // Opens it the way a capture thread does.
  void SetUp() {
    device_->Open("/dev/video1") && device_->SetFmt(32, 16) &&
        device_->ReqBufs(input_.ConsumeIntegralInRange(0u, 20u)) && device_->StreamOn();
  }

  void Close() {
    Require(device_->Close(), "closing succeeds");
    Require(driver_.Descriptors() == 0, "no descriptor is left");
    Require(driver_.Mappings() == 0, "no mapping is left");
    Require(device_->BufferSize() == 0, "no buffer is left");
  }

 private:
  bool Take(std::byte* data) {
    if (data == nullptr) return false;
    const std::size_t size = device_->BufferSize();
    Require(driver_.Maps(data, size), "a buffer lies in mapped memory");
    memset(data, 0x5A, size);
    return true;
  }

  bool TakeByIndex() {
    std::byte* const data = device_->DqBuf(last_index_);
    if (data != nullptr) Require(last_index_ == device_->Index(), "the index is told");
    return Take(data);
  }

  const std::shared_ptr<DevFOps::V4l2Base> device_;
  FuzzedDataProvider& input_;
  const VideoDriver& driver_;
  unsigned last_index_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  log_set_quiet(true);
  log_add_callback([](log_Event*) { ++errors; }, nullptr, TESSALINE_LOG_ERROR);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  VideoDriver driver(input);
  constexpr SeriesNumber kFlavours[] = {kSeries21, kSeries24, kSeries25};
  Device device(input.PickValueInArray(kFlavours), input, driver);
  if (input.ConsumeBool()) device.SetUp();
  for (int steps = input.ConsumeIntegralInRange(0, 30); steps > 0; --steps) device.Step();
  device.Close();
  return 0;
}
