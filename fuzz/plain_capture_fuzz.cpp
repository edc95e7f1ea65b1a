// Calls the plain capture functions with drivers that give any answer. A failed set-up step ends
// the process; here it ends the run. The result, the exit status and every text must match the
// driver's answer. Records must belong to granted buffers, and a closed channel must leave no
// descriptor, mapping or memory behind.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <optional>
#include <vector>

#include "support/Allocations.h"
#include "support/CaptureOutcome.h"
#include "support/PrintedText.h"
#include "support/Require.h"
#include "support/VideoDriver.h"
#include "tessaline/video.h"

namespace {

using tessaline_fuzz::Allocations;
using tessaline_fuzz::CaptureOutcome;
using tessaline_fuzz::CreateOutcome;
using tessaline_fuzz::ExitStatus;
using tessaline_fuzz::OpenOutcome;
using tessaline_fuzz::PrintedText;
using tessaline_fuzz::Reply;
using tessaline_fuzz::Require;
using tessaline_fuzz::StepOutcome;
using tessaline_fuzz::SwitchOutcome;
using tessaline_fuzz::VideoDriver;

// A driver, and the text that each call of the functions prints.
class Run {
 public:
  Run(FuzzedDataProvider& input, VideoDriver& driver, PrintedText& printed)
      : input_(input), driver_(driver), printed_(printed) {}

  void UseChannel();
  void UseSteps();

  // Checks exactly what the last call printed, and whether it returned.
  void JudgeEnd(std::optional<int> status) const {
    const Allocations::NotNow ours;
    CaptureOutcome expected;
    switch (calling_) {
      case kCreate:
        expected = CreateOutcome(driver_.Replies());
        break;
      case kStart:
        expected = SwitchOutcome(driver_.Replies(), "v4l2_streamon");
        break;
      case kStop:
        expected = SwitchOutcome(driver_.Replies(), "v4l2_streamoff");
        break;
      case kElse:
        break;
    }
    Require(status == expected.status, "it ends the process with the status of its failure");
    const std::string text(printed_.Text().substr(told_));
    Require(tessaline_fuzz::WithoutPlace(text) == expected.text, "and reports that failure");
  }

 private:
  enum Calling { kCreate, kStart, kStop, kElse };

  void Begin(Calling calling) {
    calling_ = calling;
    told_ = printed_.Text().size();
    driver_.ForgetReplies();
  }

  // Checks a function that has returned.
  void Judge(int result, unsigned long request) const {
    const Allocations::NotNow ours;
    Require(driver_.Replies().size() == 1 && driver_.Replies()[0].call == request, "one request");
    const CaptureOutcome expected = StepOutcome(driver_.Replies());
    Require(result == expected.result, "the driver's result");
    Require(printed_.Text().substr(told_) == expected.text,
            "a failure is reported, and nothing else");
  }

  void JudgeFormat(int result) const {
    const Allocations::NotNow ours;
    const std::vector<Reply>& replies = driver_.Replies();
    Require(
        replies.size() == 2 && replies[0].call == VIDIOC_TRY_FMT && replies[1].call == VIDIOC_S_FMT,
        "tried and set");
    const CaptureOutcome expected = StepOutcome(replies);
    Require(result == expected.result, "the driver's result of setting it");
    Require(printed_.Text().substr(told_) == expected.text,
            "a failure is reported, and nothing else");
  }

  void CheckNewChannel(const tessaline_video_channel& channel, unsigned width, unsigned height,
                       unsigned tag) const;
  void TakeImage(tessaline_video_channel& channel, tessaline_image_buffer*& taken);

  FuzzedDataProvider& input_;
  VideoDriver& driver_;
  PrintedText& printed_;
  Calling calling_ = kElse;
  std::size_t told_ = 0;  // length of the text that earlier calls printed
};

bool Copied(const tessaline_image_buffer& record, const tessaline_image_buffer& before) {
  return record.width == before.width && record.height == before.height &&
         record.tag == before.tag && record.address == before.address;
}

void Run::CheckNewChannel(const tessaline_video_channel& channel, unsigned width, unsigned height,
                          unsigned tag) const {
  Require(channel.width == width && channel.height == height && channel.tag == tag, "as asked");
  Require(channel.count == driver_.Mappings(), "every record has its frame");
  for (unsigned i = 0; i < channel.count; ++i) {
    const tessaline_image_buffer& record = channel.buffers[i];
    Require(record.width == width && record.height == height && record.tag == tag, "as asked");
    Require(record.descriptor.index == i, "a record knows its buffer");
    Require(record.in_use == 0, "nothing is in use yet");
    Require(driver_.Maps(record.address, 1), "the frame is mapped");
  }
}

void Run::TakeImage(tessaline_video_channel& channel, tessaline_image_buffer*& taken) {
  std::vector<tessaline_image_buffer> before;
  {
    const Allocations::NotNow ours;
    before.assign(channel.buffers, channel.buffers + channel.count);
  }
  Begin(kElse);
  int result = 1234;
  tessaline_image_buffer* const image = video_request_img_buf(&channel, &result);
  const v4l2_buffer& answered = driver_.Replies().at(0).buffer;
  // A driver that has no frame does not change the index, so it is the first record's index.
  const bool known = answered.index < channel.count;
  Require(image == (known ? channel.buffers + answered.index : nullptr), "the frame's record");
  if (known) {
    Judge(result, VIDIOC_DQBUF);
    const auto index = static_cast<std::size_t>(image - channel.buffers);
    Require(memcmp(&image->descriptor, &answered, sizeof answered) == 0, "the driver's descriptor");
    Require(image->sequence == answered.sequence && image->in_use == 1, "it is marked");
    Require(Copied(*image, before[index]), "the rest of it is kept");
    before[index] = *image;
    taken = image;
  } else {
    Judge(driver_.Replies()[0].error == 0 ? 0 : -1, VIDIOC_DQBUF);
    Require(result == -1, "no record, no success");
  }
  Require(channel.count == 0 ||
              memcmp(before.data(), channel.buffers, channel.count * sizeof *channel.buffers) == 0,
          "no other record changes");
  const Allocations::NotNow ours;
  before = {};
}

void Run::UseChannel() {
  const unsigned width = input_.ConsumeIntegralInRange<unsigned>(0, 80);
  const unsigned height = input_.ConsumeIntegralInRange<unsigned>(0, 80);
  const auto tag = input_.ConsumeIntegral<unsigned>();
  const unsigned count = input_.ConsumeIntegralInRange<unsigned>(0, 20);
  driver_.ExpectUnmapLength(std::size_t{width} * height);
  Begin(kCreate);
  tessaline_video_channel* const channel =
      create_video_channel("/dev/video0", 0, width, height, 0, tag, count);
  JudgeEnd(std::nullopt);
  CheckNewChannel(*channel, width, height, tag);
  tessaline_image_buffer* taken = nullptr;
  for (int steps = input_.ConsumeIntegralInRange(0, 12); steps > 0; --steps) {
    switch (input_.ConsumeIntegralInRange(0, 5)) {
      case 0:
      case 1:
        TakeImage(*channel, taken);
        break;
      case 2:
        if (taken == nullptr) break;
        Begin(kElse);
        Judge(video_release_img_buf(channel, taken), VIDIOC_QBUF);
        break;
      case 3:
        if (taken == nullptr) break;
        Begin(kElse);
        Judge(v4l2_release(channel->fd, taken), VIDIOC_QBUF);
        break;
      case 4:
        Begin(kStart);
        Judge(video_start_capture(channel), VIDIOC_STREAMON);
        break;
      default:
        Begin(kStop);
        Judge(video_stop_capture(channel), VIDIOC_STREAMOFF);
    }
  }
  Begin(kElse);
  Require(close_video_channel(channel) == 0, "closing succeeds");
}

void Run::UseSteps() {
  const bool path = input_.ConsumeBool();
  Begin(kElse);
  const int fd = v4l2_open(path ? "/dev/video0" : nullptr);
  {
    const Allocations::NotNow ours;
    const CaptureOutcome expected = OpenOutcome(driver_.Replies(), path);
    Require(expected.result == 0 ? fd >= VideoDriver::kFirstDescriptor : fd == -1,
            "a descriptor or -1");
    Require(printed_.Text().substr(told_) == expected.text,
            "a failure is reported, and nothing else");
  }
  Begin(kElse);
  if (fd == -1) return;
  for (int steps = input_.ConsumeIntegralInRange(0, 8); steps > 0; --steps) {
    v4l2_buffer buffer{};
    buffer.index = input_.ConsumeIntegral<unsigned>();
    Begin(kElse);
    switch (input_.ConsumeIntegralInRange(0, 4)) {
      case 0: {
        const auto width = input_.ConsumeIntegral<unsigned>();
        JudgeFormat(v4l2_setfmt(fd, width, input_.ConsumeIntegral<unsigned>()));
        break;
      }
      case 1:
        Judge(v4l2_dqbuf(fd, &buffer), VIDIOC_DQBUF);
        break;
      case 2:
        Judge(v4l2_qbuf(fd, &buffer), VIDIOC_QBUF);
        break;
      case 3:
        Judge(v4l2_streamon(fd), VIDIOC_STREAMON);
        break;
      default:
        Judge(v4l2_streamoff(fd), VIDIOC_STREAMOFF);
    }
  }
  Begin(kElse);
  Require(v4l2_close(fd) == 0, "closing succeeds");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Allocations::Install();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  VideoDriver driver(input);
  driver.TellInterruptedDequeue();
  PrintedText printed;
  Run run(input, driver, printed);
  Allocations::Begin();
  const std::optional<int> status =
      ExitStatus([&] { input.ConsumeBool() ? run.UseSteps() : run.UseChannel(); });
  const std::size_t live = Allocations::Live();
  Allocations::End();
  printed.Restore();
  run.JudgeEnd(status);
  if (!status) {
    Require(live == 0, "no memory is left");
    Require(driver.Descriptors() == 0, "no descriptor is left");
    Require(driver.Mappings() == 0, "no mapping is left");
  }
  return 0;
}
