#include "Device.h"

#include <errno.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <linux/videodev2.h>
#include <linux/watchdog.h>
#include <poll.h>

#include <array>
#include <string_view>
#include <vector>

namespace board {
namespace {

struct NamedRequest {
  unsigned long request;
  std::string_view name;
};

constexpr std::array kRequests{
    NamedRequest{VIDIOC_QUERYCAP, "VIDIOC_QUERYCAP"},
    NamedRequest{VIDIOC_ENUM_FMT, "VIDIOC_ENUM_FMT"},
    NamedRequest{VIDIOC_G_FMT, "VIDIOC_G_FMT"},
    NamedRequest{VIDIOC_S_FMT, "VIDIOC_S_FMT"},
    NamedRequest{VIDIOC_TRY_FMT, "VIDIOC_TRY_FMT"},
    NamedRequest{VIDIOC_REQBUFS, "VIDIOC_REQBUFS"},
    NamedRequest{VIDIOC_QUERYBUF, "VIDIOC_QUERYBUF"},
    NamedRequest{VIDIOC_QBUF, "VIDIOC_QBUF"},
    NamedRequest{VIDIOC_DQBUF, "VIDIOC_DQBUF"},
    NamedRequest{VIDIOC_CREATE_BUFS, "VIDIOC_CREATE_BUFS"},
    NamedRequest{VIDIOC_PREPARE_BUF, "VIDIOC_PREPARE_BUF"},
    NamedRequest{VIDIOC_EXPBUF, "VIDIOC_EXPBUF"},
    NamedRequest{VIDIOC_STREAMON, "VIDIOC_STREAMON"},
    NamedRequest{VIDIOC_STREAMOFF, "VIDIOC_STREAMOFF"},
    NamedRequest{I2C_RDWR, "I2C_RDWR"},
    NamedRequest{I2C_RETRIES, "I2C_RETRIES"},
    NamedRequest{I2C_TIMEOUT, "I2C_TIMEOUT"},
    NamedRequest{I2C_SLAVE, "I2C_SLAVE"},
    NamedRequest{I2C_SLAVE_FORCE, "I2C_SLAVE_FORCE"},
    NamedRequest{I2C_TENBIT, "I2C_TENBIT"},
    NamedRequest{I2C_PEC, "I2C_PEC"},
    NamedRequest{I2C_SMBUS, "I2C_SMBUS"},
    NamedRequest{I2C_FUNCS, "I2C_FUNCS"},
    NamedRequest{SPI_IOC_RD_MODE, "SPI_IOC_RD_MODE"},
    NamedRequest{SPI_IOC_WR_MODE, "SPI_IOC_WR_MODE"},
    NamedRequest{SPI_IOC_RD_MODE32, "SPI_IOC_RD_MODE32"},
    NamedRequest{SPI_IOC_WR_MODE32, "SPI_IOC_WR_MODE32"},
    NamedRequest{SPI_IOC_RD_LSB_FIRST, "SPI_IOC_RD_LSB_FIRST"},
    NamedRequest{SPI_IOC_WR_LSB_FIRST, "SPI_IOC_WR_LSB_FIRST"},
    NamedRequest{SPI_IOC_RD_BITS_PER_WORD, "SPI_IOC_RD_BITS_PER_WORD"},
    NamedRequest{SPI_IOC_WR_BITS_PER_WORD, "SPI_IOC_WR_BITS_PER_WORD"},
    NamedRequest{SPI_IOC_RD_MAX_SPEED_HZ, "SPI_IOC_RD_MAX_SPEED_HZ"},
    NamedRequest{SPI_IOC_WR_MAX_SPEED_HZ, "SPI_IOC_WR_MAX_SPEED_HZ"},
    NamedRequest{WDIOC_SETTIMEOUT, "WDIOC_SETTIMEOUT"},
    NamedRequest{WDIOC_GETTIMEOUT, "WDIOC_GETTIMEOUT"},
    NamedRequest{WDIOC_KEEPALIVE, "WDIOC_KEEPALIVE"},
    NamedRequest{WDIOC_GETSUPPORT, "WDIOC_GETSUPPORT"},
    NamedRequest{WDIOC_GETTIMELEFT, "WDIOC_GETTIMELEFT"},
};

// The request contains the message length, so there is no single number for it.
bool IsSpiMessage(unsigned long request) {
  return (request & ~(static_cast<unsigned long>(_IOC_SIZEMASK) << _IOC_SIZESHIFT)) ==
         _IOC(_IOC_WRITE, SPI_IOC_MAGIC, 0, 0);
}

}  // namespace

ssize_t OpenFile::Read(void*, std::size_t) { return -EINVAL; }
ssize_t OpenFile::Write(const void*, std::size_t) { return -EINVAL; }
ssize_t OpenFile::ReadAt(void* buffer, std::size_t size, off_t) { return Read(buffer, size); }
ssize_t OpenFile::WriteAt(const void* buffer, std::size_t size, off_t) {
  return Write(buffer, size);
}
off_t OpenFile::Seek(off_t, int) { return -ESPIPE; }
int OpenFile::Ioctl(unsigned long, void*) { return -ENOTTY; }
std::intptr_t OpenFile::Mmap(void*, std::size_t, int, int, off_t) { return -ENODEV; }
short OpenFile::Ready(short events) {
  return static_cast<short>(events & (POLLIN | POLLRDNORM | POLLOUT | POLLWRNORM));
}

int IoctlCutShort(OpenFile& file, unsigned long request, void* argument) {
  if (request == I2C_RDWR && argument != nullptr) {
    auto half = *static_cast<const i2c_rdwr_ioctl_data*>(argument);
    half.nmsgs /= 2;
    return half.nmsgs == 0 ? 0 : file.Ioctl(request, &half);
  }
  if (IsSpiMessage(request) && argument != nullptr) {
    const auto* const transfers = static_cast<const spi_ioc_transfer*>(argument);
    std::vector<spi_ioc_transfer> halves(transfers,
                                         transfers + _IOC_SIZE(request) / sizeof(spi_ioc_transfer));
    for (spi_ioc_transfer& half : halves) half.len /= 2;
    return file.Ioctl(request, halves.data());
  }
  return file.Ioctl(request, argument);
}

std::string IoctlName(unsigned long request) {
  for (const NamedRequest& known : kRequests) {
    if (known.request == request) return std::string(known.name);
  }
  return IsSpiMessage(request) ? "SPI_IOC_MESSAGE" : "ioctl";
}

}  // namespace board
