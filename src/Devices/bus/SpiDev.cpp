#include "Devices/bus/SpiDev.h"

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <utility>

#include "thread/SystemCalls.h"

namespace VeltranoSDK::DevFOps {

SpiDev::~SpiDev() { Close(); }

bool SpiDev::Open(const std::string& name) {
  if (fd_ >= 0) {
    puts("SpiDev::Open is up");
    return false;
  }
  const int fd = OpenDevice(name.c_str(), O_RDWR);
  if (fd < 0) {
    printf("SpiDev::Open error! spidev_name:%s\n", name.c_str());
    return false;
  }
  fd_ = fd;
  return true;
}

bool SpiDev::Close() {
  if (fd_ >= 0) close(std::exchange(fd_, -1));
  return true;
}

bool SpiDev::SetOpt(SpiMode mode, bool lsb_first, std::uint8_t bits_per_word,
                    std::uint32_t max_speed_hz) {
  std::uint8_t mode_byte = mode;
  std::uint8_t lsb_byte = lsb_first ? 1 : 0;
  struct Step {
    unsigned long request;
    void* value;
    const char* failure;
  };
  const std::array steps{
      Step{SPI_IOC_WR_MODE, &mode_byte, "SpiDev::SetOpt wr_mode"},
      Step{SPI_IOC_RD_MODE, &mode_byte, "SpiDev::SetOpt rd_mode"},
      Step{SPI_IOC_WR_LSB_FIRST, &lsb_byte, "SpiDev::SetOpt wr_lsb_fist"},
      Step{SPI_IOC_RD_LSB_FIRST, &lsb_byte, "SpiDev::SetOpt rd_lsb_fist"},
      Step{SPI_IOC_WR_BITS_PER_WORD, &bits_per_word, "SpiDev::SetOpt wr bits_per_word"},
      Step{SPI_IOC_RD_BITS_PER_WORD, &bits_per_word, "SpiDev::SetOpt rd bits_per_word"},
      Step{SPI_IOC_WR_MAX_SPEED_HZ, &max_speed_hz, "SpiDev::SetOpt wr max_speed_hz"},
      Step{SPI_IOC_RD_MAX_SPEED_HZ, &max_speed_hz, "SpiDev::SetOpt rd max_speed_hz"},
  };
  for (const Step& step : steps) {
    if (Ioctl(fd_, step.request, step.value) < 0) {
      puts(step.failure);
      return false;
    }
  }
  return true;
}

bool SpiDev::DoMsg(std::uint8_t* tx, std::uint8_t* rx, std::uint32_t len) {
  spi_ioc_transfer transfer{};
  transfer.tx_buf = reinterpret_cast<std::uintptr_t>(tx);
  transfer.rx_buf = reinterpret_cast<std::uintptr_t>(rx);
  transfer.len = len;
  transfer.delay_usecs = delay_us_;
  if (Ioctl(fd_, SPI_IOC_MESSAGE(1), &transfer) <= 0) {
    puts("SpiDev::DoMsg error");
    return false;
  }
  return true;
}

bool SpiDev::DoWrite(std::uint8_t* buf, std::uint32_t len) {
  // spidev sends a write completely or not at all, so a short one did not arrive.
  if (Uninterrupted([=, this] { return write(fd_, buf, len); }) != static_cast<ssize_t>(len)) {
    puts("SpiDev::DoWrite error");
    return false;
  }
  return true;
}

}  // namespace VeltranoSDK::DevFOps
