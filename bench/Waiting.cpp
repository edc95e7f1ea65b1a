// Measures what it costs a capture thread to wait in the kernel for its device and its wake-up
// before each dequeue. Compares passes that make this call with passes that get an immediate
// answer.

#include <linux/videodev2.h>

#include <memory>
#include <string>

#include "CaptureRun.h"
#include "HotPaths.h"
#include "Runnable/CaptureVideoStream.h"
#include "StripBuffers.h"
#include "tessaline/log.h"

namespace bench {

namespace {

// A round has two batches of passes, one of them with the kernel's wait. A pass goes from one
// dequeue to the next.
class WaitRace {
 public:
  WaitRace(int rounds, unsigned passes)
      : rounds_(static_cast<std::size_t>(rounds)), passes_(passes) {}

  const Comparison& times() const { return times_; }
  bool IsOver() const { return times_.ratio.Size() == rounds_; }
  bool InKernel() const { return in_kernel_; }

  // Call before each buffer is handed out.
  void Dequeue() {
    if (pass_ == passes_) EndBatch();
    if (pass_ == 0) start_ = ThreadNanoseconds();
    ++pass_;
  }

 private:
  void EndBatch() {
    took_[in_kernel_ ? 1 : 0] = (ThreadNanoseconds() - start_) / passes_;
    pass_ = 0;
    first_of_round_ = !first_of_round_;
    if (first_of_round_) {
      times_.AddRound(took_[1], took_[0]);  // the next round starts with this way
    } else {
      in_kernel_ = !in_kernel_;
    }
  }

  const std::size_t rounds_;
  const unsigned passes_;
  unsigned pass_ = 0;
  bool in_kernel_ = false;
  bool first_of_round_ = true;
  double start_ = 0;
  double took_[2] = {};
  Comparison times_;
};

class WaitedForStrips final : private StripBuffers, public StripDevice {
 public:
  WaitedForStrips(const Load& load, int rounds, unsigned passes)
      : StripBuffers(load),
        StripDevice(Memory(), static_cast<unsigned>(load.buffers), kStripBufferBytes),
        race_(rounds, passes) {}

  const Comparison& times() const { return race_.times(); }

 private:
  bool HasNext() override { return !race_.IsOver(); }
  bool WaitsInKernel() const override { return race_.InKernel(); }
  unsigned Next() override {
    race_.Dequeue();
    Filled(++turn_);
    return Place(turn_);
  }

  WaitRace race_;
  std::size_t turn_ = 0;
};

// Uses the library's image device. Set-up calls reach the board's device. Once the stream is on,
// its buffers are handed out in turn. No other device is used meanwhile.
class WaitedForImages final : public Driver {
 public:
  WaitedForImages(int rounds, unsigned passes) : race_(rounds, passes) {}

  const Comparison& times() const { return race_.times(); }

  bool Owns(int /*descriptor*/) const override { return true; }
  bool Answer(unsigned long request, void* argument) override {
    constexpr unsigned kBuffers = 10;
    if (request == VIDIOC_STREAMON) streaming_ = true;
    if (request == VIDIOC_STREAMOFF) streaming_ = false;
    if (request == VIDIOC_DQBUF) {
      race_.Dequeue();
      static_cast<v4l2_buffer*>(argument)->index = ++turn_ % kBuffers;
      return true;
    }
    return request == VIDIOC_QBUF && streaming_;
  }

 private:
  bool HasNext() override { return !race_.IsOver(); }
  bool WaitsInKernel() const override { return race_.InKernel(); }

  WaitRace race_;
  bool streaming_ = false;
  unsigned turn_ = 0;
};

void PrintRow(const std::string& pass, const Comparison& times) {
  CompareTimes(pass + ", waiting in poll / not waiting", times).Print();
}

}  // namespace

void PrintWaitingRows(const Options& options) {
  const int rounds = options.quick ? 3 : 200;
  const auto strips = std::make_shared<WaitedForStrips>(Load{10, 1024, kDriverBuffers}, rounds,
                                                        options.quick ? 100 : 2000);
  RunStripThread(strips, [](unsigned, unsigned, void*) {});
  PrintRow("strip pass, 10 strips", strips->times());
  const double waiting = strips->times().library.Median() - strips->times().bare.Median();
  Figure("poll of a device and a wake-up, a frame", Time(waiting)).Print();

  log_set_quiet(true);  // the board rejects the second format, as any driver does
  WaitedForImages images(rounds, options.quick ? 2 : 10);
  RunToTheEnd(*std::make_shared<VeltranoSDK::CaptureVideoStream>(), images);
  log_set_quiet(false);
  PrintRow("image pass 1456 x 1088", images.times());
}

}  // namespace bench
