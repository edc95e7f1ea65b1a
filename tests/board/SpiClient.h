#pragma once

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <vector>

#include "BoardFixture.h"

namespace board_test {

using Bytes = std::vector<std::uint8_t>;

// A plain spidev program.
class SpiClient {
 public:
  explicit SpiClient(const char* path) : file_(path, O_RDWR) {}

  int fd() const { return file_.Get(); }
  bool IsOpen() const { return file_.IsOpen(); }

  static spi_ioc_transfer Transfer(const std::uint8_t* tx, std::uint8_t* rx, std::size_t size) {
    spi_ioc_transfer transfer{};
    transfer.tx_buf = reinterpret_cast<std::uintptr_t>(tx);
    transfer.rx_buf = reinterpret_cast<std::uintptr_t>(rx);
    transfer.len = static_cast<std::uint32_t>(size);
    return transfer;
  }

  // The bytes received while `tx` is sent.
  Bytes Exchange(const Bytes& tx) const {
    Bytes rx(tx.size(), 0xEE);
    spi_ioc_transfer transfer = Transfer(tx.data(), rx.data(), tx.size());
    EXPECT_EQ(::ioctl(fd(), SPI_IOC_MESSAGE(1), &transfer), static_cast<int>(tx.size()));
    return rx;
  }

  long Write(const Bytes& bytes) const {
    return Outcome(::write(fd(), bytes.data(), bytes.size()));
  }

  // A setting of 8 or 32 bits, set or read in place; 0 or -errno.
  template <typename Value>
  long Setting(unsigned long request, Value&& value) const {
    return Outcome(::ioctl(fd(), request, &value));
  }

 private:
  Descriptor file_;
};

}  // namespace board_test
