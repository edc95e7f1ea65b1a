#include "Nodes.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tool {

std::vector<Node> NodesOf(const Family& family) {
  std::vector<Node> nodes{
      {"/dev/mem", O_RDWR | O_NONBLOCK, "FPGA registers",
       "the kernel needs CONFIG_DEVMEM without CONFIG_STRICT_DEVMEM"},
      {"/dev/i2c-0", O_RDWR, "bus of the EEPROM",
       "enable the I2C controller in the device tree and load i2c-dev"},
  };
  const auto add_bus = [&](std::string_view path, const char* purpose) {
    const bool known = std::any_of(nodes.begin(), nodes.end(),
                                   [&](const Node& node) { return node.path == path; });
    if (known) return;
    const bool spi = path.find("spi") != std::string_view::npos;
    nodes.push_back({std::string(path), O_RDWR, purpose,
                     spi ? "enable the SPI controller in the device tree and load spidev"
                         : "enable the I2C controller in the device tree and load i2c-dev"});
  };
  add_bus(family.board.sensor_bus.path, "bus of the image sensor");
  add_bus(family.board.laser_bus.path, "bus of laser power and DA converter");
  nodes.push_back({"/sys/class/gpio/export", O_WRONLY, "laser and status light",
                   "the kernel needs CONFIG_GPIO_SYSFS"});
  nodes.push_back({family.board.processor.thermometer.file, O_RDONLY, "processor temperature",
                   "load the system monitor's driver (xilinx-xadc, ams)"});
  nodes.push_back({"/dev/video0", O_RDWR, "images", "load the capture driver for images"});
  nodes.push_back({"/dev/video1", O_RDWR, "strips", "load the capture driver for strips"});
  nodes.push_back({"/dev/uio0", O_RDWR, "external-trigger interrupt",
                   "load uio_pdrv_genirq and name the interrupt in the device tree"});
  nodes.push_back({"/dev/uio1", O_RDWR, "DA interrupt",
                   "load uio_pdrv_genirq and name the interrupt in the device tree"});
  if (family.has_dma_buffer) {
    nodes.push_back({"/dev/udmabuf0", O_RDWR, "memory for captured frames",
                     "load u-dma-buf with a buffer as large as the product needs"});
  }
  return nodes;
}

int TryToOpen(const Node& node) {
  const int fd = open(node.path.c_str(), node.open_flags);
  if (fd < 0) return errno;
  close(fd);
  return 0;
}

std::string AdviceFor(const Node& node, int error) {
  switch (error) {
    case EACCES:
    case EPERM:
      return fmt::format("run as root, or give your user access with a udev rule (ls -l {})",
                         node.path);
    case EBUSY:
      return fmt::format("another program is using it: find it with \"fuser -v {}\" and end it",
                         node.path);
    default:
      return node.advice;
  }
}

bool IsABoard(const Family& family) {
  const auto there = [](const std::string& path) {
    return TryToOpen({path, O_RDONLY | O_NONBLOCK, "", ""}) != ENOENT;
  };
  return there(family.board.processor.thermometer.file) || there("/dev/uio1");
}

}  // namespace tool
