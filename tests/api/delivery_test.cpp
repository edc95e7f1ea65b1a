// Compares what the handlers receive, byte for byte, with what the driver had in its buffers. This
// program intercepts the library's system calls to the board and keeps a copy of every buffer that
// leaves the driver.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "api/StartedBoard.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Watched {
  std::uint8_t* address;
  std::size_t length;
};

// Ordered by device and buffer index. Image frames have one more line than their format requests;
// strips are 1024 wide.
struct Tap {
  std::mutex mutex;
  std::map<int, std::map<unsigned, Watched>> buffers;  // by descriptor
  std::map<std::uint8_t*, Bytes> dequeued;             // the raw frame, by buffer
  std::vector<std::uint64_t> markers;  // the last 8 bytes each time a buffer is queued again
};

Tap& TheTap() {
  static Tap* tap = new Tap;
  return *tap;
}

volatile bool tapping = false;

const Watched* Find(int fd, unsigned index) {
  const auto device = TheTap().buffers.find(fd);
  if (device == TheTap().buffers.end()) return nullptr;
  const auto buffer = device->second.find(index);
  return buffer == device->second.end() ? nullptr : &buffer->second;
}

void NoteDequeue(int fd, const v4l2_buffer& buffer) {
  const std::lock_guard lock(TheTap().mutex);
  if (const Watched* watched = Find(fd, buffer.index)) {
    TheTap().dequeued[watched->address].assign(watched->address,
                                               watched->address + watched->length);
  }
}

void NoteQueue(int fd, const v4l2_buffer& buffer) {
  const std::lock_guard lock(TheTap().mutex);
  if (const Watched* watched = Find(fd, buffer.index)) {
    std::uint64_t marker = 0;
    std::memcpy(&marker, watched->address + watched->length - sizeof marker, sizeof marker);
    TheTap().markers.push_back(marker);
  }
}

}  // namespace

#pragma GCC visibility push(default)
// The header declares that ioctl does not throw, but a thread that is cancelled in it unwinds. So
// it has a different name here.
extern "C" int TappedIoctl(int fd, unsigned long request, ...) __asm__("ioctl");

extern "C" int TappedIoctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  static int (*const next)(int, unsigned long, ...) =
      reinterpret_cast<int (*)(int, unsigned long, ...)>(dlsym(RTLD_NEXT, "ioctl"));
  if (tapping && request == VIDIOC_QBUF) NoteQueue(fd, *static_cast<v4l2_buffer*>(argument));
  const int result = next(fd, request, argument);
  if (tapping && request == VIDIOC_DQBUF && result == 0) {
    NoteDequeue(fd, *static_cast<v4l2_buffer*>(argument));
  }
  return result;
}

// It must work before anything is set up, because a sanitizer's runtime maps its memory through it.
extern "C" __attribute__((no_sanitize("thread", "address", "undefined"))) void* mmap(
    void* hint, size_t length, int protection, int flags, int fd, off_t offset) {
  if (!tapping) {
    return reinterpret_cast<void*>(syscall(SYS_mmap, hint, length, protection, flags, fd, offset));
  }
  static const auto next =
      reinterpret_cast<void* (*)(void*, size_t, int, int, int, off_t)>(dlsym(RTLD_NEXT, "mmap"));
  void* address = next(hint, length, protection, flags, fd, offset);
  if (fd >= 0 && length > 4096 && address != MAP_FAILED) {
    const std::lock_guard lock(TheTap().mutex);
    auto& device = TheTap().buffers[fd];
    device[static_cast<unsigned>(device.size())] = {static_cast<std::uint8_t*>(address), length};
  }
  return address;
}
#pragma GCC visibility pop

namespace {

using tessaline_test::BoardFixture;
using tessaline_test::Eventually;
namespace fpga = VeltranoSDK::fpga;

struct Frame {
  unsigned first, second;
  Bytes raw;        // as the driver had it
  Bytes delivered;  // as the handler saw it
  bool in_place;
};

// Never destroyed, because the threads deliver until the process ends.
std::mutex& frames_mutex = *new std::mutex;
std::vector<Frame>& frames = *new std::vector<Frame>;

std::size_t Frames() {
  const std::lock_guard lock(frames_mutex);
  return frames.size();
}

void Keep(unsigned first, unsigned second, void* data, std::size_t bytes) {
  auto* address = static_cast<std::uint8_t*>(data);
  Frame frame{first, second, {}, Bytes(address, address + bytes), false};
  {
    const std::lock_guard lock(TheTap().mutex);
    const auto raw = TheTap().dequeued.find(address);
    frame.in_place = raw != TheTap().dequeued.end();
    if (frame.in_place) frame.raw = raw->second;
  }
  const std::lock_guard lock(frames_mutex);
  frames.push_back(std::move(frame));
}

void OnImage(unsigned width, unsigned height, void* pixels) {
  Keep(width, height, pixels, std::size_t{width} * height + 32);
}

void OnStrips(unsigned strips, unsigned bytes, void* data) { Keep(strips, bytes, data, bytes); }

class Delivery : public BoardFixture {
 protected:
  Delivery() : BoardFixture("K3610") {}

  void SetUp() override {
    BoardFixture::SetUp();
    tapping = true;
    tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
    ASSERT_EQ(GetLibVersion("K3610"), 41915);
    log_set_quiet(true);
    RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(OnImage));
    RegisterEventHandler(TESSALINE_EVENT_STRIP,
                         reinterpret_cast<tessaline_event_handler>(OnStrips));
    ASSERT_EQ(RegisterHardwareInit(), 0);
    OpenLaser();
  }

  static void Collect(unsigned mode, std::size_t wanted) {
    ASSERT_EQ(SetCollectMode(mode), 0);
    ASSERT_EQ(SetGlobalControl(1), 0);
    ASSERT_TRUE(Eventually([=] { return Frames() >= wanted; }));
    ASSERT_EQ(SetGlobalControl(0), 0);
  }
};

// The plain way copies every 16-byte block from its plane to a new image.
Bytes InOrder(const Bytes& raw, unsigned full_width, unsigned full_height, unsigned width,
              unsigned height) {
  const std::size_t quarter = std::size_t{full_width} * full_height / 4;
  const std::size_t pixels = std::size_t{width} * height;
  Bytes image(pixels + 32);
  for (std::size_t block = 0; block < pixels / 64 * 4; ++block) {
    std::memcpy(&image[16 * block], &raw[block % 4 * quarter + block / 4 * 16], 16);
  }
  std::memcpy(&image[pixels], &raw[3 * quarter + pixels / 4], 32);
  return image;
}

TEST_F(Delivery, ImagesAreTheDriversBytesInNaturalOrderAndInPlace) {
  Collect(1, 5);
  const std::lock_guard lock(frames_mutex);
  std::uint64_t last_id = 0;
  for (const Frame& frame : frames) {
    ASSERT_TRUE(frame.in_place);
    EXPECT_EQ(frame.first, 1456u);
    EXPECT_EQ(frame.second, 1088u);
    EXPECT_TRUE(frame.delivered == InOrder(frame.raw, 1456, 1088, 1456, 1088));
    std::uint64_t id = 0;
    std::memcpy(&id, &frame.delivered[std::size_t{1456} * 1088], sizeof id);
    EXPECT_GT(id, last_id);
    last_id = id;
  }
}

TEST_F(Delivery, ARegionOfInterestIsDeliveredInItsOwnSize) {
  ASSERT_EQ(SetROI1(128, 256, 1000, 601), 0);  // not a multiple of 64 pixels
  Collect(1, 3);
  const std::lock_guard lock(frames_mutex);
  for (const Frame& frame : frames) {
    ASSERT_TRUE(frame.in_place);
    EXPECT_EQ(frame.first, 1000u);
    EXPECT_EQ(frame.second, 601u);
    EXPECT_TRUE(frame.delivered == InOrder(frame.raw, 1456, 1088, 1000, 601));
  }
}

TEST_F(Delivery, StripsAreTheDriversBytesAndTheMarkerIsClearedBeforeRequeueing) {
  {
    const std::lock_guard lock(TheTap().mutex);
    TheTap().markers.clear();
  }
  Collect(0, 10);
  {
    const std::lock_guard lock(frames_mutex);
    for (const Frame& frame : frames) {
      ASSERT_TRUE(frame.in_place);
      std::uint32_t count = 0;
      std::memcpy(&count, &frame.raw[frame.raw.size() - 8], sizeof count);
      EXPECT_EQ(frame.first, count);
      ASSERT_LE(frame.second, frame.raw.size());
      EXPECT_TRUE(std::equal(frame.delivered.begin(), frame.delivered.end(), frame.raw.begin()));
      // The bytes are exactly those of the strips.
      std::size_t at = 0;
      for (std::uint32_t strip = 0; strip < count; ++strip) {
        tessaline_strip_header header;
        std::memcpy(&header, &frame.raw[at], sizeof header);
        at += sizeof header + sizeof(tessaline_full_point) * header.point_count;
      }
      EXPECT_EQ(at, frame.second);
    }
  }
  const std::lock_guard lock(TheTap().mutex);
  ASSERT_GE(TheTap().markers.size(), 10u);
  for (const std::uint64_t marker : TheTap().markers) EXPECT_EQ(marker, 0u);
}

TEST_F(Delivery, InWriteMemoryModeOneTheCountIsNarrowAndPointsHaveFourBytes) {
  ASSERT_EQ(SetStripWriteMemMode(1), 0);
  Collect(0, 5);
  const std::lock_guard lock(frames_mutex);
  const Frame& frame = frames.back();
  std::uint32_t count = 0;
  std::memcpy(&count, &frame.raw[frame.raw.size() - 4], sizeof count);
  EXPECT_EQ(frame.first, count);
  EXPECT_GT(count, 0u);
  EXPECT_EQ(frame.second, count * (32 + 4 * 1456));
}

TEST_F(Delivery, ACorruptStripIsOneErrorAndWhatWasWholeArrives) {
  FILE* log = std::tmpfile();
  ASSERT_EQ(log_add_fp(log, TESSALINE_LOG_ERROR), 0);
  tessaline_board_frame_fault(1, TESSALINE_BOARD_FRAME_CORRUPT, 0, 1);
  Collect(0, 3);
  const std::lock_guard lock(frames_mutex);
  std::uint32_t count = 0;
  std::memcpy(&count, &frames[0].raw[frames[0].raw.size() - 8], sizeof count);
  EXPECT_EQ(frames[0].first, count - 1);
  EXPECT_EQ(frames[0].second, (count - 1) * (32 + 8 * 1456));
  EXPECT_GT(frames[1].first, 0u) << "the next buffer is whole again";
  std::rewind(log);
  char line[512];
  int errors = 0;
  while (std::fgets(line, sizeof line, log) != nullptr) {
    ++errors;
    EXPECT_NE(std::string(line).find("does not fit into the buffer"), std::string::npos) << line;
  }
  EXPECT_EQ(errors, 1);
}

TEST_F(Delivery, ResettingTheFrameIdZeroesTheBuffersOfBothDevices) {
  std::vector<Watched> all;
  std::vector<std::size_t> counts;
  {
    const std::lock_guard lock(TheTap().mutex);
    for (const auto& [fd, buffers] : TheTap().buffers) {
      counts.push_back(buffers.size());
      for (const auto& [index, buffer] : buffers) all.push_back(buffer);
    }
  }
  EXPECT_THAT(counts, ::testing::UnorderedElementsAre(10u, 18u));
  for (const Watched& buffer : all) std::memset(buffer.address, 0xA5, buffer.length);

  EXPECT_EQ(ResetFrameID(), 0);
  for (const Watched& buffer : all) {
    const Bytes zeroes(buffer.length);
    EXPECT_EQ(std::memcmp(buffer.address, zeroes.data(), buffer.length), 0);
  }
}

}  // namespace
