// What calls of the virtual board cost a program: prints "NAME NANOSECONDS" for each. Uses only the
// kernel's interfaces, so any version of the board can be preloaded; see board_calls.py.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "tessaline/register_map.h"

namespace {

namespace fpga = VeltranoSDK::fpga;

constexpr unsigned kWidth = 64;
constexpr unsigned kHeight = 16;

template <typename Value>
Value Need(Value value, bool works, const char* what) {
  if (works) return value;
  std::perror(what);
  std::exit(1);
}

int Open(const char* path) {
  const int fd = open(path, O_RDWR);
  return Need(fd, fd >= 0, path);
}

void Ioctl(int fd, unsigned long request, void* argument) {
  Need(0, ioctl(fd, request, argument) == 0, "ioctl");
}

template <typename Access>
void OnRegister(const fpga::Register& reg, Access access) {
  const int memory = Open("/dev/mem");
  void* const block = mmap(nullptr, 255, PROT_READ | PROT_WRITE, MAP_SHARED, memory,
                           fpga::BaseAddress(reg.block, fpga::kZynqRegions));
  Need(0, block != MAP_FAILED, "mmap");
  access(static_cast<volatile std::uint32_t*>(block)[reg.Index()]);
  munmap(block, 255);
  close(memory);
}

void Write(const fpga::Register& reg, std::uint32_t value) {
  OnRegister(reg, [=](volatile std::uint32_t& word) { word = value; });
}

template <typename Call>
void Measure(const char* name, int calls, Call call) {
  for (int i = 0; i < calls / 10; ++i) call();
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < calls; ++i) call();
  const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - begin;
  std::printf("%s %.0f\n", name, taken.count() / calls);
}

// A frame for every free buffer: small images of a K36.
void StartFrames() {
  const int sensor = Open("/dev/i2c-0");
  Need(0, ioctl(sensor, I2C_SLAVE, 0x36) == 0, "I2C_SLAVE");
  constexpr std::array<std::uint8_t, 3> kOutOfStandby{0x30, 0x00, 0};
  Need(0, write(sensor, kOutOfStandby.data(), kOutOfStandby.size()) == 3, "sensor");
  close(sensor);
  Write(fpga::kReg.STRIP_IMAGE_WIDTH, kWidth);
  Write(fpga::kReg.STRIP_IMAGE_HEIGHT, kHeight);
  Write(fpga::kReg.CMOS_WORK_MODE, 3);
  Write(fpga::kReg.CMOS_TIMING_CTRL,
        fpga::kField.timing_first.Mask() | fpga::kField.timing_second.Mask());
  Write(fpga::kReg.TRI_SPACING, 200000);
  Write(fpga::StreamSwitchPort(fpga::Block::kImage2, 0), fpga::kStreamSwitchPortOff);
  Write(fpga::StreamSwitchPort(fpga::Block::kImage2, 1), 0);
  Write(fpga::StreamSwitchPort(fpga::Block::kImage4, 0), 1);
  Write(fpga::StreamSwitchControl(fpga::Block::kImage2), fpga::kStreamSwitchCommit);
  Write(fpga::StreamSwitchControl(fpga::Block::kImage4), fpga::kStreamSwitchCommit);
  Write(fpga::kReg.TRIGGER_CTRL, fpga::kField.global_control.Mask());
}

v4l2_buffer Buffer(unsigned index) {
  v4l2_buffer buffer{};
  buffer.index = index;
  buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  buffer.memory = V4L2_MEMORY_MMAP;
  return buffer;
}

int StartStream() {
  constexpr unsigned kBuffers = 8;
  const int video = Open("/dev/video0");
  v4l2_format format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  format.fmt.pix.width = kWidth;
  format.fmt.pix.height = kHeight + 1;
  Ioctl(video, VIDIOC_S_FMT, &format);
  v4l2_requestbuffers request{};
  request.count = kBuffers;
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.memory = V4L2_MEMORY_MMAP;
  Ioctl(video, VIDIOC_REQBUFS, &request);
  for (unsigned i = 0; i < kBuffers; ++i) {
    v4l2_buffer buffer = Buffer(i);
    Ioctl(video, VIDIOC_QBUF, &buffer);
  }
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  Ioctl(video, VIDIOC_STREAMON, &type);
  return video;
}

}  // namespace

int main() {
  std::uint32_t seen = 0;
  Measure("register-read", 20000, [&] {
    OnRegister(fpga::kReg.EXP_TIME_1, [&](volatile std::uint32_t& word) { seen = word; });
  });
  Measure("register-change", 20000, [&] {
    OnRegister(fpga::kReg.EXP_TIME_1,
               [](volatile std::uint32_t& word) { word = (word & 0xFF) ^ 1; });
  });
  const int eeprom = Open("/dev/i2c-0");
  Need(0, ioctl(eeprom, I2C_SLAVE, 0x50) == 0, "I2C_SLAVE");
  std::uint8_t byte = 0;
  Measure("i2c-read", 50000, [&] { Need(0, read(eeprom, &byte, 1) == 1, "read"); });
  StartFrames();
  const int video = StartStream();
  Measure("frame", 20000, [&] {
    v4l2_buffer buffer = Buffer(0);
    Ioctl(video, VIDIOC_DQBUF, &buffer);
    Ioctl(video, VIDIOC_QBUF, &buffer);
  });
  return seen == 0 ? 1 : 0;
}
