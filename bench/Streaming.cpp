#include "Streaming.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "InvertInPlace.h"
#include "tessaline/board.h"
#include "tessaline/register_map.h"
#include "tessaline/tessaline.h"

namespace bench {

namespace {

namespace fpga = VeltranoSDK::fpga;

void PlugIn(Pace pace) {
  tessaline_board_select("K3610");
  tessaline_board_transcript_enable(0);
  tessaline_board_set_pace(pace == Pace::kFreeRun ? TESSALINE_BOARD_FREE_RUN
                                                  : TESSALINE_BOARD_REAL_TIME);
}

void Take(Stream stream, Touch touch) {
  const bool images = stream == Stream::kImages;
  const int fd = open(images ? "/dev/video0" : "/dev/video1", O_RDWR);
  v4l2_format format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  format.fmt.pix.width = images ? kFullColumns : 1024;
  format.fmt.pix.height = images ? kFullRows + 1 : 640;
  format.fmt.pix.pixelformat = V4L2_PIX_FMT_GREY;
  ioctl(fd, VIDIOC_S_FMT, &format);
  v4l2_requestbuffers request{};
  request.count = images ? 10 : 18;
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.memory = V4L2_MEMORY_MMAP;
  ioctl(fd, VIDIOC_REQBUFS, &request);
  std::vector<std::byte*> memory;
  for (unsigned i = 0; i < request.count; ++i) {
    v4l2_buffer buffer{};
    buffer.index = i;
    buffer.type = request.type;
    buffer.memory = request.memory;
    ioctl(fd, VIDIOC_QUERYBUF, &buffer);
    memory.push_back(static_cast<std::byte*>(
        mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, buffer.m.offset)));
    ioctl(fd, VIDIOC_QBUF, &buffer);
  }
  ioctl(fd, VIDIOC_STREAMON, &request.type);
  for (;;) {
    v4l2_buffer buffer{};
    buffer.type = request.type;
    buffer.memory = request.memory;
    if (ioctl(fd, VIDIOC_DQBUF, &buffer) != 0) return;
    std::uint32_t count = 1;
    if (!images) std::memcpy(&count, memory[buffer.index] + buffer.length - 8, sizeof count);
    if (touch == Touch::kEveryByte) InvertInPlace(memory[buffer.index], buffer.length);
    frames += count;
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

void SetRegister(const fpga::Register& reg, std::uint32_t value) {
  tessaline_board_register_set(static_cast<unsigned>(reg.block), reg.offset, value);
}

}  // namespace

void CountImage(unsigned, unsigned, void*) { ++frames; }
void CountStrips(unsigned strips, unsigned, void*) { frames += strips; }

void StreamThroughLibrary(const Scene& scene, FrameHandler handler) {
  const bool images = scene.stream == Stream::kImages;
  PlugIn(scene.pace);
  tessaline_board_set_sleep_factor(0);
  GetLibVersion("K3610");
  log_set_quiet(true);
  RegisterEventHandler(images ? TESSALINE_EVENT_IMAGE : TESSALINE_EVENT_STRIP,
                       reinterpret_cast<tessaline_event_handler>(handler));
  if (RegisterHardwareInit() != 0) std::exit(1);
  OpenLaser();
  SetCollectMode(images ? 1 : 0);
  if (scene.rows != kFullRows && SetROI1(0, 0, kFullColumns, scene.rows) != 0) std::exit(1);
  tessaline_board_set_sleep_factor(1);
  SetGlobalControl(1);
}

void StreamBare(const Scene& scene, Touch touch) {
  const bool images = scene.stream == Stream::kImages;
  PlugIn(scene.pace);
  log_set_level(TESSALINE_LOG_ERROR);
  for (const char* line : {"907", "934"}) {
    const std::string base = std::string("/sys/class/gpio/gpio") + line;
    WriteText("/sys/class/gpio/export", line);
    WriteText(base + "/direction", "out");
    WriteText(base + "/value", "1");
  }
  tessaline_board_chip_set("sensor", 0x3000, 0);
  SetRegister(fpga::kReg.CMOS_WORK_MODE, 3);
  SetRegister(fpga::kReg.CMOS_TIMING_CTRL, 5);
  SetRegister(fpga::kReg.STRIP_IMAGE_WIDTH, kFullColumns);
  SetRegister(fpga::kReg.STRIP_IMAGE_HEIGHT, scene.rows);
  SetRegister(fpga::kReg.TRI_SPACING, 200000);
  using fpga::Block;
  WriteRegister(fpga::StreamSwitchPort(Block::kImage2, 0), images ? fpga::kStreamSwitchPortOff : 0);
  WriteRegister(fpga::StreamSwitchPort(Block::kImage2, 1), images ? 0 : fpga::kStreamSwitchPortOff);
  WriteRegister(fpga::StreamSwitchPort(Block::kImage4, 0), images ? 1 : 0);
  WriteRegister(fpga::StreamSwitchControl(Block::kImage2), fpga::kStreamSwitchCommit);
  WriteRegister(fpga::StreamSwitchControl(Block::kImage4), fpga::kStreamSwitchCommit);
  WriteRegister(fpga::kReg.TRIGGER_CTRL, fpga::kField.global_control.Mask());
  std::thread(Take, scene.stream, touch).detach();
}

}  // namespace bench
