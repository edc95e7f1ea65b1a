#include "Devices/bus/I2cDev.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <utility>

#include "thread/SystemCalls.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned long kAdapterRetries = 10;

}  // namespace

I2cDev::I2cDev(std::string path, std::uint8_t address)
    : path_(std::move(path)), address_(address) {}

I2cDev::~I2cDev() {
  if (fd_ >= 0) Close();
}

bool I2cDev::Open() {
  if (fd_ >= 0) Close();
  fd_ = OpenBus();
  return fd_ >= 0;
}

int I2cDev::Close() { return close(std::exchange(fd_, -1)); }

bool I2cDev::I2cRdWr(std::vector<std::uint8_t> write, std::vector<std::uint8_t>& read) const {
  std::vector<std::uint8_t> received(read.size());
  std::array messages{MessageOf(write, 0), MessageOf(received, I2C_M_RD)};
  if (!Transfer(messages)) return false;
  read = std::move(received);
  return true;
}

bool I2cDev::I2cRdWr(std::vector<std::uint8_t> write) const {
  std::array messages{MessageOf(write, 0)};
  return Transfer(messages);
}

int I2cDev::OpenBus() const {
  const int fd = OpenDevice(path_.c_str(), O_RDWR);
  if (fd < 0) perror("I2cDev::Open() Unable to open i2c control file");
  return fd;
}

bool I2cDev::Transfer(std::span<i2c_msg> messages) const {
  const int fd = OpenBus();
  if (fd < 0) return false;
  i2c_rdwr_ioctl_data request{messages.data(), static_cast<std::uint32_t>(messages.size())};
  // An adapter that stops early returns the number of messages it completed.
  const bool done = Ioctl(fd, I2C_RETRIES, kAdapterRetries) >= 0 &&
                    Ioctl(fd, I2C_RDWR, &request) == static_cast<int>(messages.size());
  close(fd);
  return done;
}

i2c_msg I2cDev::MessageOf(std::vector<std::uint8_t>& bytes, unsigned short flags) const {
  return {address_, flags, static_cast<std::uint16_t>(bytes.size()), bytes.data()};
}

}  // namespace VeltranoSDK
