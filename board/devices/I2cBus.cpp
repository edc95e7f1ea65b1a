#include "devices/I2cBus.h"

#include <errno.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "devices/I2cSmbus.h"
#include "devices/I2cTransfer.h"
#include "devices/Outcome.h"
#include "memory/BoardMemory.h"
#include "memory/SharedMutex.h"

namespace board {
namespace {

constexpr std::size_t kMaxMessageBytes = 8192;
constexpr unsigned long kMaxSevenBitAddress = 0x7F;
constexpr unsigned long kMaxTenBitAddress = 0x3FF;
// No chip has a 10-bit address, so use an address that no chip acknowledges.
constexpr unsigned kNobody = UINT_MAX;

using Transfer = I2cTransfer;

std::string Hex(unsigned value) {
  constexpr char kDigits[] = "0123456789abcdef";
  return {kDigits[value >> 4 & 0xF], kDigits[value & 0xF]};
}

// "w 0x36 30 1d; r 0x36 5a"; a failed read shows no bytes.
std::string Describe(const std::vector<Transfer>& transfers, long result) {
  std::string text;
  for (const Transfer& transfer : transfers) {
    if (!text.empty()) text += "; ";
    text += transfer.read ? "r 0x" : "w 0x";
    text += Hex(transfer.address);
    if (transfer.read && result < 0) continue;
    for (const std::uint8_t byte : transfer.bytes) text += ' ' + Hex(byte);
  }
  return text + Outcome(result);
}

// Makes the same checks as i2c-dev, and copies the bytes.
int CopyIn(const i2c_rdwr_ioctl_data& request, std::vector<Transfer>& transfers) {
  if (request.msgs == nullptr || request.nmsgs == 0) return -EINVAL;
  if (request.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) return -EINVAL;
  for (const i2c_msg& message : std::span(request.msgs, request.nmsgs)) {
    if (message.len > kMaxMessageBytes) return -EINVAL;
    if ((message.flags & I2C_M_RECV_LEN) != 0) return -EOPNOTSUPP;
    if (message.buf == nullptr && message.len > 0) return -EFAULT;
    const bool read = (message.flags & I2C_M_RD) != 0;
    const bool ten_bits = (message.flags & I2C_M_TEN) != 0;
    Transfer& transfer = transfers.emplace_back(
        Transfer{ten_bits ? kNobody : message.addr, read, std::vector<std::uint8_t>(message.len)});
    if (!read) std::copy_n(message.buf, message.len, transfer.bytes.begin());
  }
  return 0;
}

void CopyOut(const std::vector<Transfer>& transfers, const i2c_rdwr_ioctl_data& request) {
  for (std::size_t i = 0; i < transfers.size(); ++i) {
    if (transfers[i].read) std::ranges::copy(transfers[i].bytes, request.msgs[i].buf);
  }
}

}  // namespace

struct I2cBus::Adapter {
  // One transaction on the wire. The controllers of both processors report a missing acknowledge in
  // the same way for address and data.
  int Run(std::vector<Transfer>& transfers) {
    const std::lock_guard lock(mutex);
    std::vector<I2cChip*> addressed;
    int result = 0;
    for (Transfer& transfer : transfers) {
      I2cChip* chip = Find(transfer.address);
      if (chip == nullptr) {
        result = -ENXIO;
        break;
      }
      if (std::ranges::find(addressed, chip) == addressed.end()) addressed.push_back(chip);
      if (!chip->Message(
              {static_cast<std::uint8_t>(transfer.address), transfer.read, transfer.bytes})) {
        result = -ENXIO;
        break;
      }
    }
    for (I2cChip* chip : addressed) chip->Stop();
    return result;
  }

  I2cChip* Find(unsigned address) const {
    if (address > kMaxSevenBitAddress) return nullptr;
    const auto found = std::ranges::find_if(chips, [=](const auto& chip) {
      return chip->Acknowledges(static_cast<std::uint8_t>(address));
    });
    return found == chips.end() ? nullptr : found->get();
  }

  const std::string name;
  SharedMutex& mutex;  // the wire is free
  std::vector<std::shared_ptr<I2cChip>> chips;
};

class I2cBus::File : public OpenFile {
 public:
  File(std::shared_ptr<Adapter> adapter, OpenToken token)
      : adapter_(std::move(adapter)), token_(std::move(token)) {}

  ssize_t Read(void* buffer, std::size_t size) override {
    std::vector<Transfer> transfers{{Slave(), true, std::vector<std::uint8_t>(Limited(size))}};
    const int result = Run("read ", transfers);
    if (result < 0) return result;
    std::ranges::copy(transfers[0].bytes, static_cast<std::uint8_t*>(buffer));
    return static_cast<ssize_t>(transfers[0].bytes.size());
  }

  ssize_t Write(const void* buffer, std::size_t size) override {
    const std::span bytes(static_cast<const std::uint8_t*>(buffer), Limited(size));
    std::vector<Transfer> transfers{{Slave(), false, {bytes.begin(), bytes.end()}}};
    const int result = Run("write ", transfers);
    return result < 0 ? result : static_cast<ssize_t>(bytes.size());
  }

  int Ioctl(unsigned long request, void* argument) override {
    const auto value = reinterpret_cast<unsigned long>(argument);
    switch (request) {
      case I2C_RDWR:
        return ReadWrite(static_cast<const i2c_rdwr_ioctl_data*>(argument));
      case I2C_RETRIES:
        return Setting("I2C_RETRIES", value, INT_MAX);
      case I2C_TIMEOUT:
        return Setting("I2C_TIMEOUT", value, INT_MAX);
      case I2C_SMBUS:
        return Smbus(static_cast<const i2c_smbus_ioctl_data*>(argument));
      case I2C_SLAVE:
      case I2C_SLAVE_FORCE: {
        // No driver of the kernel has a chip of these buses, so the two requests are the same.
        const int result =
            Setting("I2C_SLAVE", value, ten_bits_ ? kMaxTenBitAddress : kMaxSevenBitAddress);
        if (result == 0) slave_ = static_cast<unsigned>(value);
        return result;
      }
      case I2C_TENBIT:
        ten_bits_ = value != 0;
        return Setting("I2C_TENBIT", value, ULONG_MAX);
      case I2C_PEC:
        checked_ = value != 0;
        return Setting("I2C_PEC", value, ULONG_MAX);
      case I2C_FUNCS:
        if (argument == nullptr) return -EFAULT;
        *static_cast<unsigned long*>(argument) = kI2cFunctions;
        return Setting("I2C_FUNCS", kI2cFunctions, ULONG_MAX);
      default:
        return -ENOTTY;
    }
  }

 private:
  // Longer plain transfers are shortened, not rejected.
  static std::size_t Limited(std::size_t size) { return std::min(size, kMaxMessageBytes); }

  int ReadWrite(const i2c_rdwr_ioctl_data* request) {
    if (request == nullptr) return -EFAULT;
    std::vector<Transfer> transfers;
    if (const int error = CopyIn(*request, transfers); error != 0) {
      RecordAs(adapter_->name, [&] { return "I2C_RDWR" + Outcome(error); });
      return error;
    }
    const int result = Run("I2C_RDWR ", transfers);
    if (result < 0) return result;
    CopyOut(transfers, *request);
    return static_cast<int>(transfers.size());
  }

  int Smbus(const i2c_smbus_ioctl_data* request) {
    bool on_the_wire = false;
    const int result = RunSmbus({Slave(), checked_}, request, [&](std::vector<Transfer>& messages) {
      on_the_wire = true;
      return Run("I2C_SMBUS ", messages);
    });
    if (!on_the_wire) RecordAs(adapter_->name, [&] { return "I2C_SMBUS" + Outcome(result); });
    return result;
  }

  unsigned Slave() const { return ten_bits_ ? kNobody : slave_.load(); }

  int Run(const char* operation, std::vector<Transfer>& transfers) {
    const int result = adapter_->Run(transfers);
    RecordAs(adapter_->name, [&] { return operation + Describe(transfers, result); });
    return result;
  }

  // Retries and time-out have no effect, because no arbitration is lost and no chip holds the
  // clock.
  int Setting(const char* name, unsigned long value, unsigned long maximum) const {
    const int result = value > maximum ? -EINVAL : 0;
    RecordAs(adapter_->name,
             [&] { return name + (' ' + std::to_string(value)) + Outcome(result); });
    return result;
  }

  const std::shared_ptr<Adapter> adapter_;
  const OpenToken token_;
  std::atomic<unsigned> slave_{0};
  std::atomic<bool> ten_bits_{false};
  std::atomic<bool> checked_{false};
};

I2cBus::I2cBus(BoardMemory& memory, unsigned number)
    : adapter_(new Adapter{.name = "i2c-" + std::to_string(number),
                           .mutex = memory.Place<SharedMutex>(),
                           .chips = {}}) {}

void I2cBus::Attach(std::shared_ptr<I2cChip> chip) {
  const std::lock_guard lock(adapter_->mutex);
  adapter_->chips.push_back(std::move(chip));
}

std::string I2cBus::Name() const { return adapter_->name; }

bool I2cBus::Claims(const std::string& path) const { return path == "/dev/" + adapter_->name; }

OpenResult I2cBus::Open(const std::string&, int) {
  return {std::make_shared<File>(adapter_, CountOpen()), 0};
}

}  // namespace board
