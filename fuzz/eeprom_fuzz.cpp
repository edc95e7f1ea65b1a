// Calls the configuration store with any sizes and addresses. The input determines whether the chip
// on the bus answers or fails. Every result and text must match what the bus did. No byte outside
// the caller's block may be touched, no message may be longer than a page, and no descriptor or
// memory may leak.
#include <errno.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/mman.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/Allocations.h"
#include "support/PrintedText.h"
#include "support/Require.h"
#include "support/SystemCalls.h"
#include "tessaline/eeprom.h"

namespace {

using tessaline_fuzz::Allocations;
using tessaline_fuzz::PrintedText;
using tessaline_fuzz::Require;

// A chip that stores every byte of every device address.
class Bus final : public tessaline_fuzz::SystemCalls {
 public:
  explicit Bus(FuzzedDataProvider& answers) : answers_(answers) {}

  enum Fate { kDone, kNotOpened, kNotTransferred };

  void Forget() { fates_.clear(); }
  // The transactions since the last Forget().
  const std::vector<Fate>& fates() const { return fates_; }
  bool open() const { return open_; }
  std::uint8_t& At(unsigned device, unsigned word) { return memory_[device & 0xFF][word & 0xFF]; }

  int Open(const char* path) override {
    Require(std::string_view(path) == "/dev/i2c-0", "the bus of the store");
    Require(!open_, "it is open once");
    const Allocations::NotNow ours;
    const bool fails = Fails();
    if (fails && errno == EINTR) return -1;  // nothing has happened yet
    fates_.push_back(fails ? kNotOpened : kDone);
    if (fates_.back() != kDone) return -1;
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
    const bool fails = Fails();
    if (fails && errno == EINTR) return -1;
    if (fails) {
      fates_.back() = kNotTransferred;
      // The adapter may have stopped early.
      return answers_.ConsumeBool() ? static_cast<int>(transfer.nmsgs) - 1 : -1;
    }
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
    constexpr int kErrors[] = {EINTR, EIO};
    const int choice = answers_.ConsumeIntegralInRange(0, 31);
    if (choice < 30) return false;
    errno = kErrors[choice - 30];
    return true;
  }

  FuzzedDataProvider& answers_;
  std::array<std::array<std::uint8_t, 256>, 256> memory_{};
  bool open_ = false;
  std::vector<Fate> fates_;
};

std::uint8_t Content(unsigned i) { return static_cast<std::uint8_t>(i * 7 + 3); }

// The texts that saving prints and those that reading prints.
struct Words {
  std::string page_error, page_done, error, done;
};
const Words kSaving{"page_write error\n", "write byte ioctl ret = 1\n", "ConfigSave error!\n",
                    "ConfigSave successful!\n"};
const Words kReading{"page_read error\n", "", "ConfigRead error!\n", "ConfigRead successful!\n"};
// The texts for whole pages in both halves.
const Words kReadingAll{"page_read error\n", "", "ConfigSave error!\n", "ConfigSave successful!\n"};

std::string OfPage(Bus::Fate fate, const Words& words) {
  switch (fate) {
    case Bus::kNotOpened:
      return std::string("open eeprom: ") + strerror(EIO) + '\n';
    case Bus::kNotTransferred:
      return std::string("ioctl: ") + strerror(EIO) + '\n' + words.page_error;
    case Bus::kDone:
      break;
  }
  return words.page_done;
}

// Runs one call of the store at a time. Keeps what the call printed and what the bus did.
class Store {
 public:
  Store(FuzzedDataProvider& input, Bus& bus, const PrintedText& printed)
      : input_(input), bus_(bus), printed_(printed) {}

  void Block();
  void Page();

 private:
  void Begin() {
    bus_.Forget();
    told_ = printed_.Text().size();
  }

  void JudgeText(const std::string& expected) const {
    Require(printed_.Text().substr(told_) == expected, "a failure is reported, and nothing else");
  }

  bool JudgeBlock(int result, int size, const Words& words, const std::string& refusal) const {
    const Allocations::NotNow ours;
    const std::size_t pages =
        size >= 1 && size <= 512 ? (static_cast<unsigned>(size) + 15) / 16 : 0;
    const auto& fates = bus_.fates();
    const bool done = pages > 0 && fates.size() == pages && fates.back() == Bus::kDone;
    Require(result == (done ? 0 : -1), "it succeeds where the bus does");
    std::string text;
    for (std::size_t i = 0; i < fates.size(); ++i) {
      Require(fates[i] == Bus::kDone || i + 1 == fates.size(), "nothing more after a failure");
      text += OfPage(fates[i], words);
    }
    if (pages == 0) {
      Require(fates.empty(), "a size out of range is not believed");
      text = refusal;
    } else {
      Require(done || (!fates.empty() && fates.back() != Bus::kDone), "all pages");
      text += done ? words.done : words.error;
    }
    JudgeText(text);
    return done;
  }

  bool JudgePage(int result, int success, bool fits, const Words& words,
                 const std::string& refusal) const {
    const Allocations::NotNow ours;
    if (!fits) {
      Require(result == -1 && bus_.fates().empty(), "what is too long is refused");
      JudgeText(refusal + ": " + strerror(EINVAL) + '\n' + words.page_error);
      return false;
    }
    Require(bus_.fates().size() == 1, "one transaction");
    const Bus::Fate fate = bus_.fates()[0];
    Require(result == (fate == Bus::kDone ? success : -1), "it succeeds where the bus does");
    JudgeText(OfPage(fate, words));
    return fate == Bus::kDone;
  }

  FuzzedDataProvider& input_;
  Bus& bus_;
  const PrintedText& printed_;
  std::size_t told_ = 0;
};

void Store::Block() {
  const int size =
      input_.ConsumeBool() ? input_.ConsumeIntegralInRange(-1, 520) : input_.ConsumeIntegral<int>();
  const bool valid = size >= 1 && size <= 512;
  // The block has exactly this size, so that overruns are caught. A size out of range must have no
  // effect.
  const std::size_t bytes = valid ? static_cast<std::size_t>(size) : 0;
  const auto block = std::make_unique<unsigned char[]>(bytes);
  for (unsigned i = 0; i < bytes; ++i) block[i] = Content(i);
  Begin();
  const bool saved =
      JudgeBlock(ConfigSave(block.get(), size), size, kSaving, "ConfigSave size error!\n");
  memset(block.get(), 0, bytes);
  Begin();
  const Words& words = bytes > 256 && bytes % 16 == 0 ? kReadingAll : kReading;
  const bool read =
      JudgeBlock(ConfigRead(block.get(), size), size, words, "ConfigRead size error!\n");
  for (unsigned i = 0; saved && i < bytes; ++i) {
    Require(!read || block[i] == Content(i), "what was saved is read");
    Require(bus_.At(0x50 + i / 256, i % 256) == Content(i), "each byte is at its place");
  }
}

void Store::Page() {
  const auto word = input_.ConsumeIntegral<unsigned char>();
  const auto device = input_.ConsumeIntegral<unsigned char>();
  const auto length = input_.ConsumeBool() ? input_.ConsumeIntegralInRange<unsigned>(0, 18)
                                           : input_.ConsumeIntegral<unsigned>();
  const unsigned bytes = length & 0xFF;
  const auto page = std::make_unique<unsigned char[]>(bytes);
  for (unsigned i = 0; i < bytes; ++i) page[i] = Content(i);
  Begin();
  const bool written =
      JudgePage(eeprom_page_write(word, page.get(), static_cast<unsigned char>(bytes), device), 0,
                bytes <= 16, kSaving, "eeprom_page_write");
  const auto out = std::make_unique<unsigned char[]>(bytes);
  Begin();
  const bool read = JudgePage(eeprom_page_read(word, out.get(), length, device),
                              static_cast<int>(length), bytes <= 17, kReading, "eeprom_page_read");
  Require(!written || !read || memcmp(page.get(), out.get(), bytes) == 0,
          "what was written is read");
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
  Store store(input, bus, printed);
  Allocations::Begin();
  input.ConsumeBool() ? store.Page() : store.Block();
  const std::size_t live = Allocations::Live();
  Allocations::End();
  Require(live == 0, "no memory is left");
  Require(!bus.open(), "no descriptor is left");
  return 0;
}
