// The plain capture functions with drivers that answer anything. A set-up step that
// fails ends the process; here the run. Otherwise, whatever the driver said: records
// belong to granted buffers, and a closed channel leaves nothing behind, neither
// descriptor nor mapping nor memory.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <vector>

#include "support/Allocations.h"
#include "support/PrintedText.h"
#include "support/Require.h"
#include "support/VideoDriver.h"
#include "tessaline/video.h"

namespace {

using tessaline_fuzz::Allocations;
using tessaline_fuzz::PrintedText;
using tessaline_fuzz::Require;
using tessaline_fuzz::Returns;
using tessaline_fuzz::VideoDriver;

bool Copied(const tessaline_image_buffer& record, const tessaline_image_buffer& before) {
  return record.width == before.width && record.height == before.height &&
         record.tag == before.tag && record.address == before.address;
}

void CheckNewChannel(const tessaline_video_channel& channel, unsigned width, unsigned height,
                     unsigned tag, const VideoDriver& driver) {
  Require(channel.width == width && channel.height == height && channel.tag == tag, "as asked");
  Require(channel.count == driver.Mappings(), "every record has its frame");
  for (unsigned i = 0; i < channel.count; ++i) {
    const tessaline_image_buffer& record = channel.buffers[i];
    Require(record.width == width && record.height == height && record.tag == tag, "as asked");
    Require(record.descriptor.index == i, "a record knows its buffer");
    Require(record.in_use == 0, "nothing is in use yet");
    Require(driver.Maps(record.address, 1), "the frame is mapped");
  }
}

void TakeImage(tessaline_video_channel& channel, tessaline_image_buffer*& taken) {
  std::vector<tessaline_image_buffer> before;
  {
    const Allocations::NotNow ours;
    before.assign(channel.buffers, channel.buffers + channel.count);
  }
  int result = 1234;
  tessaline_image_buffer* const image = video_request_img_buf(&channel, &result);
  Require(result == 0 || result == -1, "a result in any case");
  Require(image != nullptr || result == -1, "no image, no success");
  if (image != nullptr) {
    const auto index = static_cast<std::size_t>(image - channel.buffers);
    Require(index < channel.count, "one of the records");
    Require(image->descriptor.index == index, "that of its index");
    Require(image->sequence == image->descriptor.sequence && image->in_use == 1, "it is marked");
    Require(Copied(*image, before[index]), "the rest of it is kept");
    before[index] = *image;
    taken = image;
  }
  Require(channel.count == 0 ||
              memcmp(before.data(), channel.buffers, channel.count * sizeof *channel.buffers) == 0,
          "no other record changes");
  const Allocations::NotNow ours;
  before = {};
}

void UseChannel(FuzzedDataProvider& input, VideoDriver& driver) {
  const unsigned width = input.ConsumeIntegralInRange<unsigned>(0, 80);
  const unsigned height = input.ConsumeIntegralInRange<unsigned>(0, 80);
  const auto tag = input.ConsumeIntegral<unsigned>();
  const unsigned count = input.ConsumeIntegralInRange<unsigned>(0, 20);
  driver.ExpectUnmapLength(std::size_t{width} * height);
  tessaline_video_channel* const channel =
      create_video_channel("/dev/video0", 0, width, height, 0, tag, count);
  CheckNewChannel(*channel, width, height, tag, driver);
  tessaline_image_buffer* taken = nullptr;
  for (int steps = input.ConsumeIntegralInRange(0, 12); steps > 0; --steps) {
    switch (input.ConsumeIntegralInRange(0, 5)) {
      case 0:
      case 1:
        TakeImage(*channel, taken);
        break;
      case 2:
        if (taken) video_release_img_buf(channel, taken);
        break;
      case 3:
        if (taken) v4l2_release(channel->fd, taken);
        break;
      case 4:
        video_start_capture(channel);
        break;
      default:
        video_stop_capture(channel);
    }
  }
  Require(close_video_channel(channel) == 0, "closing succeeds");
}

void UseSteps(FuzzedDataProvider& input) {
  const int fd = v4l2_open(input.ConsumeBool() ? "/dev/video0" : nullptr);
  Require(fd == -1 || fd >= VideoDriver::kFirstDescriptor, "a descriptor or -1");
  if (fd == -1) return;
  for (int steps = input.ConsumeIntegralInRange(0, 8); steps > 0; --steps) {
    v4l2_buffer buffer{};
    buffer.index = input.ConsumeIntegral<unsigned>();
    int result = 0;
    switch (input.ConsumeIntegralInRange(0, 4)) {
      case 0:
        result =
            v4l2_setfmt(fd, input.ConsumeIntegral<unsigned>(), input.ConsumeIntegral<unsigned>());
        break;
      case 1:
        result = v4l2_dqbuf(fd, &buffer);
        break;
      case 2:
        result = v4l2_qbuf(fd, &buffer);
        break;
      case 3:
        result = v4l2_streamon(fd);
        break;
      default:
        result = v4l2_streamoff(fd);
    }
    Require(result == 0 || result == -1, "the driver's result");
  }
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
  PrintedText printed;
  Allocations::Begin();
  const bool lived =
      Returns([&] { input.ConsumeBool() ? UseSteps(input) : UseChannel(input, driver); });
  const std::size_t live = Allocations::Live();
  Allocations::End();
  printed.Restore();
  if (lived) {
    Require(live == 0, "no memory is left");
    Require(driver.Descriptors() == 0, "no descriptor is left");
    Require(driver.Mappings() == 0, "no mapping is left");
  } else {
    Require(!printed.Text().empty(), "who ends the process says why");
  }
  return 0;
}
