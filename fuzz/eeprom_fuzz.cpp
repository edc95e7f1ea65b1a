// The configuration store with any sizes and addresses, on a bus whose chip answers or
// fails as the input says: no byte outside the caller's block is touched, no message
// is longer than a page, and no descriptor and no memory is left.
#include <errno.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/mman.h>

#include <cstring>
#include <map>
#include <memory>

#include "support/Allocations.h"
#include "support/PrintedText.h"
#include "support/Require.h"
#include "support/SystemCalls.h"
#include "tessaline/eeprom.h"

namespace {

using tessaline_fuzz::Allocations;
using tessaline_fuzz::PrintedText;
using tessaline_fuzz::Require;

// A chip that keeps every byte of every device address.
class Bus final : public tessaline_fuzz::SystemCalls {
 public:
  explicit Bus(FuzzedDataProvider& answers) : answers_(answers) {}

  bool failed() const { return failed_; }
  bool open() const { return open_; }
  std::uint8_t& At(unsigned device, unsigned word) { return memory_[device & 0xFF][word & 0xFF]; }

  int Open(const char* path) override {
    Require(std::string_view(path) == "/dev/i2c-0", "the bus of the store");
    Require(!open_, "it is open once");
    if (Fails()) return -1;
    open_ = true;
    return kFirstDescriptor;
  }
  int Close(int) override {
    Require(open_, "what is closed is open");
    open_ = false;
    return 0;
  }
  int Ioctl(int, unsigned long request, void* argument) override {
    Require(open_, "a request goes to an open bus");
    if (request != I2C_RDWR) return 0;
    const auto& transfer = *static_cast<i2c_rdwr_ioctl_data*>(argument);
    Require(transfer.nmsgs == 1 || transfer.nmsgs == 2, "one message or two");
    const i2c_msg& first = transfer.msgs[0];
    Require(first.flags == 0 && first.len >= 1 && first.len <= 17, "a word address and a page");
    if (Fails()) return -1;
    if (transfer.nmsgs == 1) {
      for (unsigned i = 1; i < first.len; ++i) At(first.addr, first.buf[0] + i - 1) = first.buf[i];
    } else {
      const i2c_msg& second = transfer.msgs[1];
      Require(second.flags == I2C_M_RD && second.addr == first.addr, "then the answer");
      Require(second.len <= 17, "of a page");
      for (unsigned i = 0; i < second.len; ++i) second.buf[i] = At(first.addr, first.buf[0] + i);
    }
    return static_cast<int>(transfer.nmsgs);
  }
  void* Map(std::size_t, int, off_t) override { return MAP_FAILED; }
  int Unmap(void*, std::size_t) override { return -1; }
  ssize_t Write(int, const void*, std::size_t) override { return -1; }

 private:
  bool Fails() {
    const bool fails = answers_.ConsumeIntegralInRange(0, 31) == 31;
    failed_ |= fails;
    if (fails) errno = EIO;
    return fails;
  }

  FuzzedDataProvider& answers_;
  std::array<std::array<std::uint8_t, 256>, 256> memory_{};
  bool open_ = false;
  bool failed_ = false;
};

std::uint8_t Content(unsigned i) { return static_cast<std::uint8_t>(i * 7 + 3); }

void Block(FuzzedDataProvider& input, Bus& bus) {
  const int size =
      input.ConsumeBool() ? input.ConsumeIntegralInRange(-1, 520) : input.ConsumeIntegral<int>();
  const bool valid = size >= 1 && size <= 512;
  // Exactly as large: the ends are watched. A size out of range must not be believed.
  const std::size_t bytes = valid ? static_cast<std::size_t>(size) : 0;
  const auto block = std::make_unique<unsigned char[]>(bytes);
  for (unsigned i = 0; i < bytes; ++i) block[i] = Content(i);
  const int saved = ConfigSave(block.get(), size);
  Require(saved == (valid && !bus.failed() ? 0 : -1), "saving succeeds where it can");
  if (saved != 0) return;
  memset(block.get(), 0, bytes);
  const int read = ConfigRead(block.get(), size);
  Require(read == (bus.failed() ? -1 : 0), "reading succeeds where it can");
  for (unsigned i = 0; read == 0 && i < bytes; ++i) {
    Require(block[i] == Content(i), "what was saved is read");
    Require(bus.At(0x50 + i / 256, i % 256) == Content(i), "each byte is at its place");
  }
}

void Page(FuzzedDataProvider& input, Bus& bus) {
  const auto word = input.ConsumeIntegral<unsigned char>();
  const auto device = input.ConsumeIntegral<unsigned char>();
  const auto length = input.ConsumeBool() ? input.ConsumeIntegralInRange<unsigned>(0, 18)
                                          : input.ConsumeIntegral<unsigned>();
  const unsigned bytes = length & 0xFF;
  const auto page = std::make_unique<unsigned char[]>(bytes);
  for (unsigned i = 0; i < bytes; ++i) page[i] = Content(i);
  const int written =
      eeprom_page_write(word, page.get(), static_cast<unsigned char>(bytes), device);
  Require(written == (bytes <= 16 && !bus.failed() ? 0 : -1), "writing succeeds where it can");
  const auto out = std::make_unique<unsigned char[]>(bytes);
  const int read = eeprom_page_read(word, out.get(), length, device);
  if (bytes > 17 || bus.failed()) {
    // A write that failed may be followed by a read that does not.
    Require(bytes <= 17 || read == -1, "what is too long is refused");
    return;
  }
  Require(read == static_cast<int>(length), "reading succeeds where it can");
  Require(written != 0 || memcmp(page.get(), out.get(), bytes) == 0, "what was written is read");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Allocations::Install();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  Bus bus(input);
  const PrintedText printed;
  Allocations::Begin();
  input.ConsumeBool() ? Page(input, bus) : Block(input, bus);
  const std::size_t live = Allocations::Live();
  Allocations::End();
  Require(live == 0, "no memory is left");
  Require(!bus.open(), "no descriptor is left");
  Require(!printed.Text().empty() || size == 0 || !bus.failed(), "a failure is told");
  return 0;
}
