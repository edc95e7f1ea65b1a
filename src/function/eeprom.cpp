#include "tessaline/eeprom.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "thread/NotCancellable.h"
#include "thread/Pause.h"
#include "thread/SystemCalls.h"

namespace {

using VeltranoSDK::Ioctl;
using VeltranoSDK::NotCancellable;
using VeltranoSDK::OpenDevice;
using VeltranoSDK::Pause;

constexpr const char* kBusDevice = "/dev/i2c-0";
constexpr unsigned long kBusTimeout = 4;  // of 10 ms
constexpr unsigned long kBusRetries = 2;

constexpr unsigned char kLowerHalf = 0x50;
constexpr unsigned char kUpperHalf = 0x51;
constexpr int kHalfBytes = 256;
constexpr int kBlockBytes = 2 * kHalfBytes;
constexpr int kPageBytes = 16;
constexpr std::size_t kMessageBytes = 1 + kPageBytes;  // a word address and a page
constexpr unsigned int kPageWriteTime = 10'000;

struct Free {
  void operator()(void* memory) const { free(memory); }
};

template <typename T>
using Allocated = std::unique_ptr<T, Free>;

template <typename T>
bool Allocate(Allocated<T>& memory, std::size_t count, const char* failed) {
  memory.reset(static_cast<T*>(calloc(count, sizeof(T))));
  if (memory == nullptr) perror(failed);
  return memory != nullptr;
}

// One transaction on the bus: messages with repeated starts and one stop.
class Transaction {
 public:
  // False, and reported, when there is no memory for this many messages (at most two).
  bool Allocate(std::size_t messages) {
    constexpr std::array kBufferFailed{"malloc iocs->msgs[0].buf", "malloc iocs->msgs[1].buf"};
    if (!::Allocate(request_, 1, "malloc iocs:")) return false;
    if (!::Allocate(messages_, messages, "malloc iocs->msgs")) return false;
    for (std::size_t i = 0; i < messages; ++i) {
      if (!::Allocate(buffers_[i], kMessageBytes, kBufferFailed[i])) return false;
    }
    request_->msgs = messages_.get();
    request_->nmsgs = static_cast<__u32>(messages);
    return true;
  }

  // Describes a message and returns its buffer.
  std::uint8_t* Message(std::size_t index, unsigned char device, __u16 flags, std::size_t bytes) {
    messages_.get()[index] = {device, flags, static_cast<__u16>(bytes), buffers_[index].get()};
    return buffers_[index].get();
  }

  // The transfer's result; -1, and reported, when it failed.
  int Run(int open_flags, const char* failed) {
    const int bus = OpenDevice(kBusDevice, open_flags);
    if (bus < 0) {
      perror("open eeprom");
      return -1;
    }
    Ioctl(bus, I2C_TIMEOUT, kBusTimeout);
    Ioctl(bus, I2C_RETRIES, kBusRetries);
    int result = Ioctl(bus, I2C_RDWR, request_.get());
    if (result >= 0 && static_cast<__u32>(result) < request_->nmsgs) {
      errno = EIO;  // the adapter stopped early
      result = -1;
    }
    if (result < 0) {
      perror("ioctl");
      puts(failed);
    }
    close(bus);
    return result;
  }

 private:
  Allocated<i2c_rdwr_ioctl_data> request_;
  Allocated<i2c_msg> messages_;
  std::array<Allocated<std::uint8_t>, 2> buffers_;
};

// Refuses what cannot be transferred at all and prints the reason.
bool Transferable(const void* memory, std::size_t message_bytes, const char* function,
                  const char* failed) {
  if (memory != nullptr && message_bytes <= kMessageBytes) return true;
  errno = memory == nullptr ? EFAULT : EINVAL;
  perror(function);
  puts(failed);
  return false;
}

struct BlockTexts {
  const char* size_error;
  const char* page_error;
  const char* success;
};

constexpr BlockTexts kSaveTexts{"ConfigSave size error!", "ConfigSave error!",
                                "ConfigSave successful!"};
constexpr BlockTexts kReadTexts{"ConfigRead size error!", "ConfigRead error!",
                                "ConfigRead successful!"};

bool IsBlockSize(int size, const BlockTexts& texts) {
  const bool fits = size >= 1 && size <= kBlockBytes;
  if (!fits) puts(texts.size_error);
  return fits;
}

// Calls transfer(word address, offset, bytes, device) page by page; the last page may be short.
template <typename Transfer>
int EachPage(int size, const BlockTexts& texts, Transfer transfer) {
  for (int offset = 0; offset < size; offset += kPageBytes) {
    const unsigned char device = offset < kHalfBytes ? kLowerHalf : kUpperHalf;
    const auto word = static_cast<unsigned char>(offset % kHalfBytes);
    const auto bytes = static_cast<unsigned char>(std::min(size - offset, kPageBytes));
    if (transfer(word, offset, bytes, device) < 0) {
      puts(texts.page_error);
      return -1;
    }
    Pause(kPageWriteTime);
  }
  puts(texts.success);
  return 0;
}

// Reading whole pages of both halves has always reported with the texts of saving; hosts look for
// them.
const BlockTexts& ReadTexts(int size) {
  return size > kHalfBytes && size % kPageBytes == 0 ? kSaveTexts : kReadTexts;
}

}  // namespace

extern "C" {

int eeprom_page_read(unsigned char wordAddress, void* out, unsigned int length,
                     unsigned char deviceAddress) {
  const NotCancellable whole;
  constexpr const char* kFailed = "page_read error";
  const std::size_t bytes = length & 0xFF;
  if (!Transferable(out, bytes, __func__, kFailed)) return -1;
  Transaction transaction;
  if (!transaction.Allocate(2)) return -1;
  *transaction.Message(0, deviceAddress, 0, 1) = wordAddress;
  const std::uint8_t* answer = transaction.Message(1, deviceAddress, I2C_M_RD, bytes);
  if (transaction.Run(O_RDONLY, kFailed) < 0) return -1;
  memcpy(out, answer, bytes);
  return static_cast<int>(length);
}

int eeprom_page_write(unsigned char wordAddress, const void* data, unsigned char length,
                      unsigned char deviceAddress) {
  const NotCancellable whole;
  constexpr const char* kFailed = "page_write error";
  const std::size_t bytes = 1u + length;
  if (!Transferable(data, bytes, __func__, kFailed)) return -1;
  Transaction transaction;
  if (!transaction.Allocate(1)) return -1;
  std::uint8_t* message = transaction.Message(0, deviceAddress, 0, bytes);
  message[0] = wordAddress;
  memcpy(message + 1, data, length);
  const int result = transaction.Run(O_WRONLY, kFailed);
  if (result < 0) return -1;
  printf("write byte ioctl ret = %d\n", result);
  return 0;
}

int ConfigSave(unsigned char* data, int size) {
  const NotCancellable whole;
  if (!IsBlockSize(size, kSaveTexts)) return -1;
  return EachPage(
      size, kSaveTexts,
      [data](unsigned char word, int offset, unsigned char bytes, unsigned char device) {
        return eeprom_page_write(word, data + offset, bytes, device);
      });
}

int ConfigRead(unsigned char* out, int size) {
  const NotCancellable whole;
  if (!IsBlockSize(size, kReadTexts)) return -1;
  return EachPage(size, ReadTexts(size),
                  [out](unsigned char word, int offset, unsigned char bytes, unsigned char device) {
                    return eeprom_page_read(word, out + offset, bytes, device);
                  });
}

}  // extern "C"
