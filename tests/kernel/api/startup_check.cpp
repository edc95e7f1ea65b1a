// Starts one product of every bus type with the devices that a kernel provides, and checks the
// frames of its capture threads.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/Measured.h"
#include "support/Started.h"

namespace {

using namespace kernel_test;

// What the handlers received. Never destroyed, because they may be called until the process ends.
struct Seen {
  std::mutex mutex;
  std::vector<std::byte> image, strips;  // expected
  unsigned images = 0, right_images = 0, buffers = 0, right_buffers = 0, empty_buffers = 0;
  unsigned width = 0, height = 0;
  std::set<std::uint64_t> image_ids, strip_ids;
};
Seen& seen = *new Seen;

void OnImage(unsigned width, unsigned height, void* data) {
  const std::lock_guard lock(seen.mutex);
  ++seen.images;
  seen.width = width;
  seen.height = height;
  const std::size_t bytes = std::size_t{width} * height;
  seen.right_images +=
      seen.image.size() == bytes && std::memcmp(data, seen.image.data(), bytes) == 0;
  tessaline_image_header header;
  std::memcpy(&header, static_cast<std::byte*>(data) + bytes, sizeof header);
  seen.image_ids.insert(header.frame_id);
}

// Whether all data except the ids and stamps is as it was sent.
bool IsRight(unsigned count, unsigned bytes, const std::byte* data) {
  if (count != Frames::kStrips || bytes != seen.strips.size()) return false;
  const std::size_t strip_bytes = seen.strips.size() / Frames::kStrips;
  std::uint64_t first_id = 0;
  for (unsigned i = 0; i < count; ++i) {
    tessaline_strip_header header;
    std::memcpy(&header, data + i * strip_bytes, sizeof header);
    if (i == 0) first_id = header.frame_id;
    if (header.frame_id != first_id + i || header.time_stamp != header.frame_id * 1000)
      return false;
    if (header.point_count != Frames::kPoints) return false;
    if (std::memcmp(data + i * strip_bytes + sizeof header,
                    seen.strips.data() + i * strip_bytes + sizeof header,
                    strip_bytes - sizeof header) != 0) {
      return false;
    }
    seen.strip_ids.insert(header.frame_id);
  }
  return true;
}

void OnStrips(unsigned count, unsigned bytes, void* data) {
  const std::lock_guard lock(seen.mutex);
  ++seen.buffers;
  if (count == 0 && bytes == 0) {
    ++seen.empty_buffers;
  } else {
    seen.right_buffers += IsRight(count, bytes, static_cast<std::byte*>(data));
  }
}

template <typename Number>
Number Get(Number Seen::*member) {
  const std::lock_guard lock(seen.mutex);
  return seen.*member;
}

// A snapshot, because frames continue to arrive.
unsigned WrongBuffers() {
  const std::lock_guard lock(seen.mutex);
  return seen.buffers - seen.right_buffers - seen.empty_buffers;
}
unsigned WrongImages() {
  const std::lock_guard lock(seen.mutex);
  return seen.images - seen.right_images;
}

int Start(const Product& product) {
  log_set_quiet(true);
  PutOnSpiBus1(product.model);
  GetLibVersion(product.model);
  seen.image = frames::Image(product.width, product.height);
  seen.strips = frames::Strips(Frames::kStrips, Frames::kPoints);
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(OnImage));
  RegisterEventHandler(TESSALINE_EVENT_STRIP, reinterpret_cast<tessaline_event_handler>(OnStrips));
  const auto before = std::chrono::steady_clock::now();
  const int result = RegisterHardwareInit();
  Measured(std::string("start-up of ") + product.model,
           std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count(), "s");
  return result;
}

class EveryBus : public ::testing::TestWithParam<Product> {};

TEST_P(EveryBus, StartsAndCaptures) {
  const Product& product = GetParam();
  Frames fed(product);
  ASSERT_EQ(Start(product), 0);
  fed.Flow();
  EXPECT_EQ(GetCmosMaxDrive(), product.full_width << 16 | product.full_height);

  constexpr unsigned kEnough = 20;
  const auto start = std::chrono::steady_clock::now();
  const unsigned strips_before = Get(&Seen::buffers);
  if (fed.strips().IsScaled()) {
    constexpr unsigned kEnoughOfLargeOnes = 3;
    ASSERT_TRUE(Eventually([] { return Get(&Seen::empty_buffers) >= kEnoughOfLargeOnes; }));
  } else {
    const unsigned right_before = Get(&Seen::right_buffers);
    ASSERT_TRUE(Eventually([=] { return Get(&Seen::right_buffers) >= right_before + kEnough; }));
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  Measured(std::string("strip buffers of ") + product.model,
           (Get(&Seen::buffers) - strips_before) / took.count(), "per second");
  EXPECT_EQ(WrongBuffers(), 0u);

  // A frame that the driver had to enlarge is dark. Its time stamp is 0, and the library does not
  // deliver such frames.
  if (fed.images().IsScaled()) {
    EXPECT_EQ(Get(&Seen::images), 0u);
    return;
  }
  const unsigned images_before = Get(&Seen::images);
  const auto image_start = std::chrono::steady_clock::now();
  ASSERT_TRUE(Eventually([=] { return Get(&Seen::images) >= images_before + kEnough; }));
  const std::chrono::duration<double> image_time = std::chrono::steady_clock::now() - image_start;
  Measured(std::string("images of ") + product.model,
           (Get(&Seen::images) - images_before) / image_time.count(), "per second");
  EXPECT_EQ(WrongImages(), 0u);
  EXPECT_EQ(Get(&Seen::width), product.width);
  EXPECT_EQ(Get(&Seen::height), product.height);
}

INSTANTIATE_TEST_SUITE_P(Startup, EveryBus,
                         ::testing::Values(kK3610, kK3710, kK3820, kK3920, kK4010),
                         [](const auto& row) { return std::string(row.param.model); });

// The driver rejects a format while its buffers are in use. The image keeps its format, and the
// library reports it once.
TEST(FormatWhileStreaming, IsRefusedAndHarmless) {
  static int refusals;
  log_add_callback(
      [](log_Event* event) {
        char text[256];
        vsnprintf(text, sizeof text, event->fmt, event->ap);
        refusals += std::strstr(text, "VIDIOC_S_FMT failed: Device or resource busy") != nullptr;
      },
      nullptr, TESSALINE_LOG_ERROR);
  Frames fed(kK3610);
  ASSERT_EQ(Start(kK3610), 0);
  EXPECT_EQ(refusals, 1);
  ASSERT_TRUE(Eventually([] { return Get(&Seen::right_images) >= 5; }));
  EXPECT_EQ(SetROI1(128, 256, 1000, 700), 0);
  EXPECT_EQ(refusals, 2);
  EXPECT_TRUE(Eventually([] { return Get(&Seen::width) == 1000 && Get(&Seen::height) == 700; }));
}

TEST(PlainCapture, IsPixelExact) {
  const Product product = kK3610;
  LoopedVideo video(0, product.full_width, product.full_height + 1);
  frames::SendImages(video, product);
  auto* channel =
      create_video_channel("/dev/video0", 0, product.full_width, product.full_height + 1, 0, 42, 6);
  ASSERT_NE(channel, nullptr);
  EXPECT_EQ(channel->count, 6u);
  ASSERT_EQ(video_start_capture(channel), 0);
  const auto image = frames::Image(product.width, product.height);
  const std::size_t quarter = image.size() / 4;
  for (int i = 0; i < 30; ++i) {
    int result = -1;
    auto* buffer = video_request_img_buf(channel, &result);
    ASSERT_EQ(result, 0);
    EXPECT_EQ(buffer->tag, 42u);
    const auto* pixels = static_cast<const std::byte*>(buffer->address);
    for (std::size_t block = 0; block < image.size() / 16; ++block) {
      ASSERT_EQ(
          std::memcmp(pixels + block % 4 * quarter + block / 4 * 16, image.data() + block * 16, 16),
          0)
          << "frame " << i << " block " << block;
    }
    ASSERT_EQ(video_release_img_buf(channel, buffer), 0);
  }
  EXPECT_EQ(video_stop_capture(channel), 0);
  EXPECT_EQ(close_video_channel(channel), 0);
}

}  // namespace
