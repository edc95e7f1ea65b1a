// Frames per second and heap allocations per frame of the library, beside a bare
// dequeue loop on the same virtual device. Each measurement is a process of its
// own, because a device has one owner and the library starts once.

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <tessaline/board.h>
#include <tessaline/register_map.h>
#include <tessaline/tessaline.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/LibraryAllocations.h"

namespace {

using Clock = std::chrono::steady_clock;
namespace fpga = VeltranoSDK::fpga;

constexpr auto kWarmUp = std::chrono::milliseconds(500);
constexpr auto kMeasured = std::chrono::seconds(2);
constexpr int kRounds = 3;

std::atomic<std::uint64_t> frames{0};

struct Measurement {
  double frames_per_second;
  double allocations_per_frame;
};

void SetRegister(const fpga::Register& reg, std::uint32_t value) {
  tessaline_board_register_set(static_cast<unsigned>(reg.block), reg.offset, value);
}

void PlugIn() {
  tessaline_board_select("K3610");
  tessaline_board_transcript_enable(0);
  tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
}

Measurement Measure() {
  std::this_thread::sleep_for(kWarmUp);
  const auto start = Clock::now();
  const std::uint64_t first = frames;
  const std::uint64_t allocations = LibraryAllocations();
  std::this_thread::sleep_for(kMeasured);
  const auto delivered = static_cast<double>(frames - first);
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  return {delivered / seconds, static_cast<double>(LibraryAllocations() - allocations) / delivered};
}

void OnImage(unsigned, unsigned, void*) { ++frames; }
void OnStrips(unsigned strips, unsigned, void*) { frames += strips; }

Measurement Library(bool images) {
  PlugIn();
  tessaline_board_set_sleep_factor(0);
  GetLibVersion("K3610");
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(OnImage));
  RegisterEventHandler(TESSALINE_EVENT_STRIP, reinterpret_cast<tessaline_event_handler>(OnStrips));
  if (RegisterHardwareInit() != 0) std::exit(1);
  OpenLaser();
  SetCollectMode(images ? 1 : 0);
  tessaline_board_set_sleep_factor(1);
  SetGlobalControl(1);
  return Measure();
}

// The same board set-up through its registers, and the shortest loop that takes
// every frame.
void BareLoop(bool images) {
  const int fd = open(images ? "/dev/video0" : "/dev/video1", O_RDWR);
  v4l2_format format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  format.fmt.pix.width = images ? 1456 : 1024;
  format.fmt.pix.height = images ? 1089 : 640;
  format.fmt.pix.pixelformat = V4L2_PIX_FMT_GREY;
  ioctl(fd, VIDIOC_S_FMT, &format);
  v4l2_requestbuffers request{};
  request.count = images ? 10 : 18;
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.memory = V4L2_MEMORY_MMAP;
  ioctl(fd, VIDIOC_REQBUFS, &request);
  std::vector<const std::uint8_t*> memory;
  for (unsigned i = 0; i < request.count; ++i) {
    v4l2_buffer buffer{};
    buffer.index = i;
    buffer.type = request.type;
    buffer.memory = request.memory;
    ioctl(fd, VIDIOC_QUERYBUF, &buffer);
    memory.push_back(static_cast<const std::uint8_t*>(
        mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, buffer.m.offset)));
    ioctl(fd, VIDIOC_QBUF, &buffer);
  }
  ioctl(fd, VIDIOC_STREAMON, &request.type);
  for (;;) {
    v4l2_buffer buffer{};
    buffer.type = request.type;
    buffer.memory = request.memory;
    if (ioctl(fd, VIDIOC_DQBUF, &buffer) != 0) return;
    std::uint32_t strips = 1;
    if (!images) __builtin_memcpy(&strips, memory[buffer.index] + buffer.length - 8, 4);
    frames += strips;
    ioctl(fd, VIDIOC_QBUF, &buffer);
  }
}

void WriteText(const std::string& path, std::string_view text) {
  const int fd = open(path.c_str(), O_WRONLY);
  if (write(fd, text.data(), text.size()) < 0) std::perror(path.c_str());
  close(fd);
}

void WriteRegister(const fpga::Register& reg, std::uint32_t value) {
  fpga_write_addr(fpga::BaseAddress(reg.block, fpga::kZynqRegions), reg.Index(), value);
}

Measurement Bare(bool images) {
  PlugIn();
  log_set_level(TESSALINE_LOG_ERROR);
  for (const char* line : {"907", "934"}) {
    const std::string base = std::string("/sys/class/gpio/gpio") + line;
    WriteText("/sys/class/gpio/export", line);
    WriteText(base + "/direction", "out");
    WriteText(base + "/value", "1");
  }
  tessaline_board_chip_set("sensor", 0x3000, 0);
  SetRegister(fpga::CMOS_WORK_MODE, 3);
  SetRegister(fpga::CMOS_TIMING_CTRL, 5);
  SetRegister(fpga::STRIP_IMAGE_WIDTH, 1456);
  SetRegister(fpga::STRIP_IMAGE_HEIGHT, 1088);
  SetRegister(fpga::TRI_SPACING, 200000);
  using fpga::Block;
  WriteRegister(fpga::StreamSwitchPort(Block::kImage2, 0), images ? fpga::kStreamSwitchPortOff : 0);
  WriteRegister(fpga::StreamSwitchPort(Block::kImage2, 1), images ? 0 : fpga::kStreamSwitchPortOff);
  WriteRegister(fpga::StreamSwitchPort(Block::kImage4, 0), images ? 1 : 0);
  WriteRegister(fpga::StreamSwitchControl(Block::kImage2), fpga::kStreamSwitchCommit);
  WriteRegister(fpga::StreamSwitchControl(Block::kImage4), fpga::kStreamSwitchCommit);
  WriteRegister(fpga::TRIGGER_CTRL, fpga::kGlobalControl.Mask());
  std::thread(BareLoop, images).detach();
  return Measure();
}

Measurement InOwnProcess(Measurement (*measure)(bool), bool images) {
  int ends[2];
  if (pipe(ends) != 0) std::exit(1);
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    std::freopen("/dev/null", "w", stdout);
    std::freopen("/dev/null", "w", stderr);
    const Measurement result = measure(images);
    if (write(ends[1], &result, sizeof result) != sizeof result) _exit(1);
    _exit(0);
  }
  close(ends[1]);
  Measurement result{};
  const bool read_all = read(ends[0], &result, sizeof result) == sizeof result;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (!read_all) {
    std::fprintf(stderr, "a measuring process failed\n");
    std::exit(1);
  }
  return result;
}

void Compare(const char* what, bool images) {
  Measurement library{};
  Measurement bare{};
  for (int round = 0; round < kRounds; ++round) {
    const Measurement one = InOwnProcess(Library, images);
    const Measurement other = InOwnProcess(Bare, images);
    library.frames_per_second = std::max(library.frames_per_second, one.frames_per_second);
    library.allocations_per_frame =
        std::max(library.allocations_per_frame, one.allocations_per_frame);
    bare.frames_per_second = std::max(bare.frames_per_second, other.frames_per_second);
  }
  std::printf(
      "%-8s library %9.0f /s   bare loop %9.0f /s   ratio %.2f   "
      "allocations per frame %.3f\n",
      what, library.frames_per_second, bare.frames_per_second,
      library.frames_per_second / bare.frames_per_second, library.allocations_per_frame);
}

}  // namespace

int main() {
  if (!FindLibraryCode()) {
    std::fprintf(stderr, "libtessaline.so is not loaded\n");
    return 1;
  }
  Compare("images", true);
  Compare("strips", false);
  return 0;
}
