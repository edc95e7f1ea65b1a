#include "devices/I2cSmbus.h"

#include <errno.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

namespace board {
namespace {

// What stands in the union of a request.
enum class Payload { kNone, kByte, kWord, kCounted, kBlock };

struct Command {
  std::uint32_t size;  // its name in a request
  Payload written;
  Payload read;
  bool calls;  // writes and then reads, whatever the request says
  bool may_be_checked;
};

// A command of its own: the byte that a plain write sends is the command byte.
constexpr std::array kCommands{
    Command{I2C_SMBUS_QUICK, Payload::kNone, Payload::kNone, false, false},
    Command{I2C_SMBUS_BYTE, Payload::kNone, Payload::kByte, false, true},
    Command{I2C_SMBUS_BYTE_DATA, Payload::kByte, Payload::kByte, false, true},
    Command{I2C_SMBUS_WORD_DATA, Payload::kWord, Payload::kWord, false, true},
    Command{I2C_SMBUS_PROC_CALL, Payload::kWord, Payload::kWord, true, true},
    Command{I2C_SMBUS_BLOCK_DATA, Payload::kCounted, Payload::kCounted, false, true},
    Command{I2C_SMBUS_BLOCK_PROC_CALL, Payload::kCounted, Payload::kCounted, true, true},
    Command{I2C_SMBUS_I2C_BLOCK_BROKEN, Payload::kBlock, Payload::kBlock, false, false},
    Command{I2C_SMBUS_I2C_BLOCK_DATA, Payload::kBlock, Payload::kBlock, false, false},
};

constexpr std::uint8_t High(std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8); }
constexpr std::uint8_t Low(std::uint16_t word) { return static_cast<std::uint8_t>(word); }

// The polynomial is x^8 + x^2 + x + 1.
std::uint8_t Crc8(std::uint8_t crc, std::span<const std::uint8_t> bytes) {
  constexpr unsigned kPolynomial = 0x107;
  for (const std::uint8_t byte : bytes) {
    unsigned rest = crc ^ byte;
    for (int bit = 0; bit < 8; ++bit) {
      rest <<= 1;
      if ((rest & 0x100) != 0) rest ^= kPolynomial;
    }
    crc = static_cast<std::uint8_t>(rest);
  }
  return crc;
}

// The address byte counts, too.
std::uint8_t CheckByte(std::uint8_t crc, const I2cTransfer& message) {
  const std::array address{
      static_cast<std::uint8_t>(message.address << 1 | (message.read ? 1 : 0))};
  return Crc8(Crc8(crc, address), message.bytes);
}

// Returns 0 or the negative errno.
int AppendPayload(Payload payload, const i2c_smbus_data& data, std::vector<std::uint8_t>& bytes) {
  const std::size_t count = data.block[0];
  switch (payload) {
    case Payload::kNone:
      return 0;
    case Payload::kByte:
      bytes.push_back(data.byte);
      return 0;
    case Payload::kWord:
      bytes.insert(bytes.end(), {Low(data.word), High(data.word)});
      return 0;
    case Payload::kCounted:
    case Payload::kBlock:
      if (count > I2C_SMBUS_BLOCK_MAX) return -EINVAL;
      if (payload == Payload::kCounted) bytes.push_back(data.block[0]);
      bytes.insert(bytes.end(), data.block + 1, data.block + 1 + count);
      return 0;
  }
  return -EINVAL;
}

// Returns the number of bytes to read, or the negative errno.
int LengthToRead(Payload payload, const i2c_smbus_data& data) {
  switch (payload) {
    case Payload::kNone:
      return 0;
    case Payload::kByte:
      return 1;
    case Payload::kWord:
      return 2;
    case Payload::kCounted:
      return -EOPNOTSUPP;  // the controllers cannot take a length from the chip
    case Payload::kBlock:
      return data.block[0] > I2C_SMBUS_BLOCK_MAX ? -EINVAL : data.block[0];
  }
  return -EINVAL;
}

void CopyOut(Payload payload, std::span<const std::uint8_t> bytes, i2c_smbus_data& data) {
  switch (payload) {
    case Payload::kByte:
      data.byte = bytes[0];
      return;
    case Payload::kWord:
      data.word = static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
      return;
    case Payload::kBlock:
      std::ranges::copy(bytes, data.block + 1);
      return;
    case Payload::kNone:
    case Payload::kCounted:
      return;
  }
}

// The messages of a command. Returns 0 or the negative errno.
int Compose(const Command& command, unsigned address, const i2c_smbus_ioctl_data& request,
            const i2c_smbus_data& data, std::vector<I2cTransfer>& messages) {
  const bool reads = command.calls || request.read_write == I2C_SMBUS_READ;
  const bool writes = command.calls || !reads;
  if (command.size == I2C_SMBUS_QUICK) {
    messages.push_back({address, reads, {}});
    return 0;
  }
  // A plain byte is read without a command byte before it.
  if (!reads || command.size != I2C_SMBUS_BYTE) {
    messages.push_back({address, false, {request.command}});
  }
  if (writes) {
    const int error = AppendPayload(command.written, data, messages.back().bytes);
    if (error != 0) return error;
  }
  if (!reads) return 0;
  const int length = LengthToRead(command.read, data);
  if (length < 0) return length;
  messages.push_back({address, true, std::vector<std::uint8_t>(static_cast<std::size_t>(length))});
  return 0;
}

// Makes the messages with the check byte at their end.
int RunChecked(std::vector<I2cTransfer>& messages,
               const std::function<int(std::vector<I2cTransfer>&)>& run) {
  I2cTransfer& last = messages.back();
  const std::uint8_t before = messages.size() > 1 ? CheckByte(0, messages.front()) : 0;
  last.bytes.push_back(last.read ? 0 : CheckByte(before, last));
  const int result = run(messages);
  if (result != 0 || !last.read) return result;
  const std::uint8_t received = last.bytes.back();
  last.bytes.pop_back();
  return received == CheckByte(before, last) ? 0 : -EBADMSG;
}

}  // namespace

int RunSmbus(SmbusClient client, const i2c_smbus_ioctl_data* request,
             const std::function<int(std::vector<I2cTransfer>&)>& run) {
  if (request == nullptr) return -EFAULT;
  const auto command = std::ranges::find(kCommands, request->size, &Command::size);
  if (command == kCommands.end()) return -EINVAL;
  if (request->read_write != I2C_SMBUS_READ && request->read_write != I2C_SMBUS_WRITE) {
    return -EINVAL;
  }
  const bool reads = command->calls || request->read_write == I2C_SMBUS_READ;
  const Payload used = reads ? command->read : command->written;
  if (request->data == nullptr && used != Payload::kNone) return -EINVAL;

  i2c_smbus_data data{};
  if (request->data != nullptr) data = *request->data;
  // Old programs do not say how much they want.
  if (command->size == I2C_SMBUS_I2C_BLOCK_BROKEN && reads) data.block[0] = I2C_SMBUS_BLOCK_MAX;

  std::vector<I2cTransfer> messages;
  const int error = Compose(*command, client.address, *request, data, messages);
  if (error != 0) return error;
  const bool checked = client.checked && command->may_be_checked;
  const int result = checked ? RunChecked(messages, run) : run(messages);
  if (result != 0 || !reads || used == Payload::kNone) return result;
  CopyOut(used, messages.back().bytes, data);
  *request->data = data;
  return 0;
}

}  // namespace board
