// Calls the three kinds of capture device with drivers that give any answer. Each call must succeed
// if the driver succeeded, and must log the reason if it did not. A delivered frame must be the
// driver's and lie completely in mapped memory. Nothing outside may be touched, and a closed device
// must leave no descriptor or mapping behind.
#include <errno.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Devices/capture/V4l2Base.h"
#include "Devices/capture/V4l2BufFactory.h"
#include "support/Require.h"
#include "support/VideoDriver.h"
#include "tessaline/log.h"

namespace {

using tessaline_fuzz::Reply;
using tessaline_fuzz::Require;
using tessaline_fuzz::VideoDriver;
using namespace VeltranoSDK;  // NOLINT(google-build-using-namespace)

// The ERROR lines that the library logged in this step.
std::vector<std::string>& Errors() {
  static std::vector<std::string> errors;
  return errors;
}

// Switching the stream on and off has the same text.
constexpr std::pair<unsigned long, std::string_view> kTexts[] = {
    {VIDIOC_TRY_FMT, "v4l2 VIDIOC_TRY_FMT failed: "},
    {VIDIOC_S_FMT, "v4l2 VIDIOC_S_FMT failed: "},
    {VIDIOC_REQBUFS, "v4l2 VIDIOC_REQBUFS failed: "},
    {VIDIOC_QUERYBUF, "v4l2 VIDIOC_QUERYBUF failed: "},
    {VIDIOC_QBUF, "v4l2 VIDIOC_QBUF failed: "},
    {VIDIOC_DQBUF, "v4l2 VIDIOC_DQBUF failed: "},
    {VIDIOC_STREAMON, "v4l2 VIDIOC_STREAMON failed: "},
    {VIDIOC_STREAMOFF, "v4l2 VIDIOC_STREAMON failed: "},
};

std::string Refusal(unsigned long request, int error) {
  for (const auto& [its, text] : kTexts) {
    if (its == request) return std::string(text) + strerror(error);
  }
  Require(false, "a request of a capture device");
  return {};
}

// The application writes this value over a frame that it received.
constexpr std::byte kSeen{0x5A};

// How a call must end: with this ERROR line, or, if there is none, successfully.
using Outcome = std::optional<std::string>;

class Device {
 public:
  Device(SeriesNumber series, FuzzedDataProvider& input, VideoDriver& driver)
      : device_(V4l2BufFactory::CreateV4l2BufBySeries(series)),
        in_dma_area_(series != kSeries21),
        input_(input),
        driver_(driver) {}

  void Step() {
    switch (input_.ConsumeIntegralInRange(0, 12)) {
      case 0:
        return Open();
      case 1:
        return SetFmt(input_.ConsumeIntegralInRange(0u, 80u),
                      input_.ConsumeIntegralInRange(0u, 80u));
      case 2:
        return ReqBufs(input_.ConsumeIntegralInRange(0u, 20u));
      case 3:
      case 4:
        return Take();
      case 5:
      case 6:
        return TakeByIndex();
      case 7:
        return QBuf();
      case 8:
        return QBuf(input_.ConsumeBool() ? last_index_ : input_.ConsumeIntegral<unsigned>());
      case 9:
        return Switch(VIDIOC_STREAMON);
      case 10:
        return Switch(VIDIOC_STREAMOFF);
      case 11:
        return ClearBuf();
      default:
        Close();
    }
  }

  // Opens the device as a capture thread does.
  void SetUp() {
    Open();
    if (!went_well_) return;
    SetFmt(32, 16);
    if (!went_well_) return;
    ReqBufs(input_.ConsumeIntegralInRange(0u, 20u));
    if (went_well_) Switch(VIDIOC_STREAMON);
  }

  void Close() {
    Begin();
    Require(device_->Close(), "closing succeeds");
    Forget();
    open_ = false;
    Require(driver_.Descriptors() == 0, "no descriptor is left");
    Require(driver_.Mappings() == 0, "no mapping is left");
    Require(device_->BufferSize() == 0, "no buffer is left");
  }

 private:
  void Begin() {
    Errors().clear();
    driver_.ForgetReplies();
  }

  // Checks the result. Checks that a refusal is logged in one line and nothing else is.
  void Judge(bool succeeded, const Outcome& refusal) {
    went_well_ = succeeded;
    Require(succeeded == !refusal, "it succeeds where the driver does");
    Require(Errors() == (refusal ? std::vector{*refusal} : std::vector<std::string>{}),
            "who refuses says why, in one line");
  }

  // Checks that these requests were made, up to the first one that fails.
  Outcome RefusalOf(std::initializer_list<unsigned long> requests) const {
    if (!open_) {
      Require(driver_.Replies().empty(), "nothing is asked of a closed device");
      return Refusal(*requests.begin(), EBADF);
    }
    auto reply = driver_.Replies().begin();
    for (const unsigned long request : requests) {
      Require(reply != driver_.Replies().end() && reply->call == request, "it is asked for");
      const int error = reply++->error;
      Require(error == 0 || reply == driver_.Replies().end(), "no request after a failure");
      if (error != 0) return Refusal(request, error);
    }
    Require(reply == driver_.Replies().end(), "nothing else is asked for");
    return {};
  }

  // Forgets the buffers, including one that was taken.
  void Forget() {
    frames_.clear();
    held_.reset();
    taken_.clear();
    in_hand_ = clearing_ = false;
  }

  void Open() {
    Begin();
    const bool opened = device_->Open("/dev/video1");
    if (open_) Forget();
    const auto& replies = driver_.Replies();
    Require(!replies.empty() && replies[0].call == Reply::kOpen && replies[0].path == "/dev/video1",
            "it is opened");
    open_ = replies[0].error == 0;
    if (!open_) {
      return Judge(opened, std::string("v4l2 open file failed: ") + strerror(replies[0].error));
    }
    // The device stays open even if it turns out to be of the wrong kind.
    Require(replies.size() == 2 && replies[1].call == VIDIOC_QUERYCAP, "it is asked what it can");
    if (replies[1].error != 0) return Judge(opened, "v4l2 VIDIOC_QUERYCAP failed");
    if ((replies[1].capabilities & V4L2_CAP_VIDEO_CAPTURE) == 0) {
      return Judge(opened, "Device is not a video capture device!");
    }
    Judge(opened, {});
  }

  void SetFmt(unsigned width, unsigned height) {
    Begin();
    const bool set = device_->SetFmt(width, height);
    frame_bytes_ = std::size_t{width} * height;
    Outcome refusal = RefusalOf({VIDIOC_TRY_FMT, VIDIOC_S_FMT});
    if (refusal) {
      *refusal += ", width" + std::to_string(width) + ", height" + std::to_string(height);
    }
    Judge(set, refusal);
  }

  void ReqBufs(unsigned count) {
    Begin();
    const bool made = device_->ReqBufs(count);
    went_well_ = made;
    Forget();
    const std::vector<std::string> expected = ExpectedOfBuffers(count, made);
    Require(Errors() == expected, "each failure is reported in one line");
  }

  // Also records the frames.
  std::vector<std::string> ExpectedOfBuffers(unsigned count, bool made) {
    const auto& replies = driver_.Replies();
    std::vector<std::string> errors;
    std::size_t next = 0;
    const std::byte* area = nullptr;
    const auto ends_with = [&](std::string refusal) {
      errors.push_back(std::move(refusal));
      Require(!made, "buffers that were not granted are refused");
      Require(next == replies.size(), "no request after a failure");
      return errors;
    };
    const auto reply = [&](unsigned long call) -> const Reply& {
      Require(next < replies.size() && replies[next].call == call, "it is asked for");
      return replies[next++];
    };
    if (in_dma_area_) {
      const bool opened = reply(Reply::kOpen).error == 0;
      if (!opened) errors.emplace_back("UdmaBuf mmap!");
      if (opened) area = reply(Reply::kMap).map;
      if (area == nullptr) errors.emplace_back("UdmaBuf mmap failed!");
      for (const char* name :
           {"sync_offset", "sync_size", "sync_direction", "sync_for_cpu", "sync_for_device"}) {
        const Reply& attribute = reply(Reply::kOpen);
        Require(attribute.path == std::string("/sys/class/u-dma-buf/udmabuf0/") + name, "this one");
        if (attribute.error != 0) errors.push_back(std::string(name) + " open failed!");
      }
      if (area == nullptr) {
        Require(!made && next == replies.size(), "without the DMA area there are no buffers");
        return errors;
      }
    }
    if (!open_) return ends_with(Refusal(VIDIOC_REQBUFS, EBADF));
    const Reply& request = reply(VIDIOC_REQBUFS);
    if (request.error != 0) return ends_with(Refusal(VIDIOC_REQBUFS, request.error));
    if (request.granted > std::max(count, 32u)) {
      return ends_with(Refusal(VIDIOC_REQBUFS, EOVERFLOW));
    }
    for (unsigned i = 0; i < request.granted; ++i) {
      const Reply& described = reply(VIDIOC_QUERYBUF);
      if (described.error != 0) return ends_with(Refusal(VIDIOC_QUERYBUF, described.error));
      if (in_dma_area_) {
        if (i >= count) {
          return ends_with("v4l2 driver wants more buffers than the DMA area has: " +
                           std::to_string(count));
        }
        frames_.push_back({area + frame_bytes_ * i, frame_bytes_});
      } else {
        const Reply& mapped = reply(Reply::kMap);
        if (mapped.error != 0) return ends_with("v4l2 mmap failed!");
        frames_.push_back({mapped.map, described.buffer.length});
      }
      const Reply& queued = reply(VIDIOC_QBUF);
      if (queued.error != 0) return ends_with(Refusal(VIDIOC_QBUF, queued.error));
    }
    Require(made && next == replies.size(), "buffers that were granted are there");
    return errors;
  }

  // Checks that the frame is the one that the driver returned, or none.
  void JudgeTaken(std::byte* data) {
    PutBack();
    Outcome refusal = RefusalOf({VIDIOC_DQBUF});
    const unsigned index = refusal ? 0 : driver_.Replies()[0].buffer.index;
    if (!refusal && index >= frames_.size()) refusal = Refusal(VIDIOC_DQBUF, EBADSLT);
    Judge(data != nullptr, refusal);
    if (refusal) return;
    held_ = index;
    in_hand_ = true;
    Require(data == frames_[index].first, "the frame of its index");
    Require(device_->BufferSize() == frames_[index].second, "and its size");
    Require(device_->Index() == index, "the index is reported");
    Require(driver_.Maps(data, device_->BufferSize()), "a buffer lies in mapped memory");
    std::fill_n(data, device_->BufferSize(), kSeen);
  }

  void RequireCleared() const {
    for (const auto& [data, size] : frames_) {
      Require(std::all_of(data, data + size, [](std::byte byte) { return byte == std::byte{0}; }),
              "all frames are cleared");
    }
  }

  // A taken frame must not be changed until it is returned. Then it is cleared too.
  void ClearBuf() {
    Begin();
    device_->ClearBuf();
    Judge(true, {});
    if (!in_hand_) return RequireCleared();
    clearing_ = true;
    const auto [data, size] = frames_[*held_];
    // The marker at its end is cleared when the frame is returned, even if the driver rejects it.
    const std::size_t seen = size - std::min(size, DevFOps::kCompletionMarkerBytes);
    Require(std::all_of(data, data + seen, [](std::byte byte) { return byte == kSeen; }),
            "a frame in hand is left alone");
  }

  // The application has given up the last frame, even if the driver rejects it.
  void LetGo() {
    in_hand_ = false;
    if (std::exchange(clearing_, false)) RequireCleared();
  }

  // The last frame is no longer taken.
  void PutBack() {
    held_.reset();
    LetGo();
  }

  void Take() {
    Begin();
    JudgeTaken(device_->DqBuf());
  }

  void TakeByIndex() {
    Begin();
    const unsigned before = last_index_;
    JudgeTaken(device_->DqBuf(last_index_));
    Require(last_index_ == held_.value_or(before), "the index is reported");
    if (held_) taken_.insert(*held_);
  }

  Outcome RefusalToQueue(bool ours) const {
    if (ours) return RefusalOf({VIDIOC_QBUF});
    Require(driver_.Replies().empty(), "the driver keeps what is its own");
    return Refusal(VIDIOC_QBUF, EINVAL);
  }

  void QBuf() {
    Begin();
    const bool queued = device_->QBuf();
    Judge(queued, RefusalToQueue(held_.has_value()));
    if (held_) LetGo();
    if (!queued) return;
    taken_.erase(*held_);
    PutBack();
  }

  void QBuf(unsigned index) {
    Begin();
    const bool queued = device_->QBuf(index);
    Judge(queued, RefusalToQueue(taken_.count(index) == 1));
    if (!queued) return;
    taken_.erase(index);
    if (held_ == index) PutBack();
  }

  void Switch(unsigned long request) {
    Begin();
    const bool on = request == VIDIOC_STREAMON;
    const bool switched = on ? device_->StreamOn() : device_->StreamOff();
    Judge(switched, RefusalOf({request}));
  }

  const std::shared_ptr<DevFOps::V4l2Base> device_;
  const bool in_dma_area_;
  FuzzedDataProvider& input_;
  VideoDriver& driver_;

  // The state that a device must have after the same calls and answers.
  bool open_ = false;
  std::size_t frame_bytes_ = 0;
  std::vector<std::pair<const std::byte*, std::size_t>> frames_;
  std::optional<unsigned> held_;  // the frame taken last
  bool in_hand_ = false;          // and no attempt was made to return it
  bool clearing_ = false;         // will be cleared when it is no longer in hand
  std::set<unsigned> taken_;      // by index
  unsigned last_index_ = 0;
  bool went_well_ = false;
};

void NoteError(log_Event* event) {
  char text[512];
  vsnprintf(text, sizeof text, event->fmt, event->ap);
  Errors().emplace_back(text);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  log_set_quiet(true);
  log_add_callback(NoteError, nullptr, TESSALINE_LOG_ERROR);
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
