#include "devices/SpiBus.h"

#include <errno.h>
#include <limits.h>
#include <linux/spi/spidev.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "devices/Outcome.h"
#include "memory/Seat.h"
#include "memory/Shared.h"

namespace board {
namespace {

constexpr std::string_view kMessage = "SPI_IOC_MESSAGE";  // of any length

constexpr std::size_t kMaxMessageBytes = 4096;  // spidev's buffer
constexpr std::uint32_t kSupportedModes = SPI_CPHA | SPI_CPOL;
constexpr std::uint8_t kBitsPerWord = 8;
constexpr std::uint32_t kMaxSpeedHz = 25'000'000;

// One transfer of a message. The bytes are the kernel's own copies. If software gave no buffer,
// zeros are sent or the received bytes are dropped.
struct Transfer {
  std::vector<std::uint8_t> tx;
  std::vector<std::uint8_t> rx;
  bool sends;
  bool receives;
  bool deselects;  // the chip is deselected after this transfer
};

Transfer Sending(std::span<const std::uint8_t> bytes) {
  return {{bytes.begin(), bytes.end()}, std::vector<std::uint8_t>(bytes.size()), true, false, true};
}

Transfer Receiving(std::size_t size) {
  return {std::vector<std::uint8_t>(size), std::vector<std::uint8_t>(size), false, true, true};
}

std::string Hex(std::span<const std::uint8_t> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(3 * bytes.size());
  for (const std::uint8_t byte : bytes) {
    text += ' ';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

// "tx da a0 80 rx 00 00 00"; semicolons separate the transfers of one message.
std::string Describe(const std::vector<Transfer>& transfers) {
  std::string text;
  for (const Transfer& transfer : transfers) {
    if (!text.empty()) text += "; ";
    if (transfer.sends) text += "tx" + Hex(transfer.tx);
    if (transfer.sends && transfer.receives) text += ' ';
    if (transfer.receives) text += "rx" + Hex(transfer.rx);
  }
  return text;
}

std::uint8_t* Buffer(std::uint64_t address) {
  return reinterpret_cast<std::uint8_t*>(static_cast<std::uintptr_t>(address));
}

// Makes the same checks as spidev and the SPI core, and copies the bytes.
int CopyIn(std::span<const spi_ioc_transfer> request, std::vector<Transfer>& transfers) {
  std::size_t total = 0;
  std::size_t sent = 0;
  std::size_t received = 0;
  for (const spi_ioc_transfer& part : request) {
    total += part.len;
    if (part.tx_buf != 0) sent += part.len;
    if (part.rx_buf != 0) received += part.len;
    if (total > INT_MAX || std::max(sent, received) > kMaxMessageBytes) return -EMSGSIZE;
    if (part.bits_per_word != 0 && part.bits_per_word != kBitsPerWord) return -EINVAL;
    // Without a buffer there is nothing to transfer.
    Transfer transfer = Receiving(part.tx_buf != 0 || part.rx_buf != 0 ? part.len : 0);
    transfer.sends = part.tx_buf != 0;
    transfer.receives = part.rx_buf != 0;
    transfer.deselects = part.cs_change != 0;
    if (transfer.sends) {
      std::copy_n(Buffer(part.tx_buf), part.len, transfer.tx.begin());
    }
    transfers.push_back(std::move(transfer));
  }
  transfers.back().deselects = true;
  return static_cast<int>(total);
}

void CopyOut(const std::vector<Transfer>& transfers, std::span<const spi_ioc_transfer> request) {
  for (std::size_t i = 0; i < transfers.size(); ++i) {
    if (!transfers[i].receives) continue;
    std::ranges::copy(transfers[i].rx, Buffer(request[i].rx_buf));
  }
}

}  // namespace

// The settings belong to the device, not to the open file. The driver forgets the speed when
// nobody has the device open.
struct SpiBus::Line {
  struct Settings {
    std::uint32_t mode = SPI_MODE_0;
    std::uint32_t speed_hz = kMaxSpeedHz;
  };

  void Occupy() {
    const auto wire = settings.Lock();
    if (users++ > 0) return;
    if (!seat.TakenElsewhere()) wire->speed_hz = kMaxSpeedHz;
    seat.Join();
  }

  void Vacate() {
    const auto guard = settings.Lock();
    if (--users == 0) seat.Leave();
  }

  void Run(std::vector<Transfer>& transfers) {
    const auto wire = settings.Lock();
    auto first = transfers.begin();
    while (first != transfers.end()) {
      const auto last = std::ranges::find_if(first, transfers.end(), &Transfer::deselects);
      const auto end = last == transfers.end() ? last : last + 1;
      Select({first, end}, wire->mode);
      first = end;
    }
  }

  // Makes the transfers between select and deselect. A chip that is missing, or gets the wrong
  // clock edges, does not drive the line, which is pulled down.
  void Select(std::span<Transfer> transfers, std::uint32_t mode) const {
    std::vector<std::uint8_t> in;
    for (const Transfer& part : transfers) in.insert(in.end(), part.tx.begin(), part.tx.end());
    std::vector<std::uint8_t> out(in.size());
    if (chip->Present() && mode == SPI_MODE_0) chip->Transfer(in, out);
    auto next = out.begin();
    for (Transfer& part : transfers) {
      const auto end = next + static_cast<std::ptrdiff_t>(part.rx.size());
      std::copy(next, end, part.rx.begin());
      next = end;
    }
  }

  int SetMode(std::uint32_t value) {
    if ((value & ~kSupportedModes) != 0) return -EINVAL;
    settings.Lock()->mode = value;
    return 0;
  }

  std::uint32_t Mode() const { return settings.Lock()->mode; }

  int SetSpeed(std::uint32_t value) {
    if (value == 0) return -EINVAL;
    settings.Lock()->speed_hz = value;
    return 0;
  }

  std::uint32_t Speed() const { return settings.Lock()->speed_hz; }

  const std::string name;
  const std::shared_ptr<SpiChip> chip;
  Shared<Settings> settings;  // locked while the wire is in use
  Seat seat;                  // of the processes that have the device open
  unsigned users = 0;         // files of this process; guarded by the lock of the settings
};

class SpiBus::File : public OpenFile {
 public:
  File(std::shared_ptr<Line> line, OpenToken token)
      : line_(std::move(line)), token_(std::move(token)) {
    line_->Occupy();
  }
  ~File() override { line_->Vacate(); }

  ssize_t Read(void* buffer, std::size_t size) override {
    return Plain("read", buffer, size, [&] {
      std::vector<Transfer> transfers{Receiving(size)};
      line_->Run(transfers);
      std::ranges::copy(transfers[0].rx, static_cast<std::uint8_t*>(buffer));
      return Hex(transfers[0].rx);
    });
  }

  ssize_t Write(const void* buffer, std::size_t size) override {
    return Plain("write", buffer, size, [&] {
      std::vector<Transfer> transfers{Sending({static_cast<const std::uint8_t*>(buffer), size})};
      line_->Run(transfers);
      return Hex(transfers[0].tx);
    });
  }

  // A stream: it has no positions.
  ssize_t ReadAt(void*, std::size_t, off_t) override { return -ESPIPE; }
  ssize_t WriteAt(const void*, std::size_t, off_t) override { return -ESPIPE; }

  int Ioctl(unsigned long request, void* argument) override {
    const bool ours = _IOC_TYPE(request) == SPI_IOC_MAGIC;
    if (ours && argument == nullptr) return -EFAULT;
    switch (request) {
      case SPI_IOC_WR_MODE:
        return Set<std::uint8_t>(request, argument, [this](auto mode) { return SetMode(mode); });
      case SPI_IOC_WR_MODE32:
        return Set<std::uint32_t>(request, argument, [this](auto mode) { return SetMode(mode); });
      case SPI_IOC_WR_LSB_FIRST:
        // The controller always shifts out the most significant bit first.
        return Set<std::uint8_t>(request, argument,
                                 [](auto lsb_first) { return lsb_first == 0 ? 0 : -EINVAL; });
      case SPI_IOC_WR_BITS_PER_WORD:
        // 0 means 8, the default.
        return Set<std::uint8_t>(request, argument, [](auto bits) {
          return bits == 0 || bits == kBitsPerWord ? 0 : -EINVAL;
        });
      case SPI_IOC_WR_MAX_SPEED_HZ:
        return Set<std::uint32_t>(request, argument,
                                  [this](auto speed) { return line_->SetSpeed(speed); });
      case SPI_IOC_RD_MODE:
        return Get(request, argument, static_cast<std::uint8_t>(line_->Mode()));
      case SPI_IOC_RD_MODE32:
        return Get(request, argument, line_->Mode());
      case SPI_IOC_RD_LSB_FIRST:
        return Get(request, argument, std::uint8_t{0});
      case SPI_IOC_RD_BITS_PER_WORD:
        return Get(request, argument, kBitsPerWord);
      case SPI_IOC_RD_MAX_SPEED_HZ:
        return Get(request, argument, line_->Speed());
      default:
        return IoctlName(request) == kMessage ? Message(_IOC_SIZE(request), argument)
                                              : Unknown(request);
    }
  }

 private:
  int SetMode(std::uint32_t mode) const { return line_->SetMode(mode); }

  template <typename Value, typename Apply>
  int Set(unsigned long request, const void* argument, Apply apply) const {
    const Value value = *static_cast<const Value*>(argument);
    const int result = apply(value);
    RecordSetting(request, value, result);
    return result;
  }

  template <typename Value>
  int Get(unsigned long request, void* argument, Value value) const {
    *static_cast<Value*>(argument) = value;
    RecordSetting(request, value, 0);
    return 0;
  }

  void RecordSetting(unsigned long request, std::uint32_t value, int result) const {
    RecordAs(line_->name,
             [&] { return IoctlName(request) + ' ' + std::to_string(value) + Outcome(result); });
  }

  int Unknown(unsigned long request) const {
    RecordAs(line_->name, [&] { return IoctlName(request) + Outcome(-ENOTTY); });
    return -ENOTTY;
  }

  int Message(std::size_t bytes, const void* argument) const {
    if (bytes == 0) return 0;  // no transfers, nothing to do
    std::vector<Transfer> transfers;
    const std::span request(static_cast<const spi_ioc_transfer*>(argument),
                            bytes / sizeof(spi_ioc_transfer));
    const int result = bytes % sizeof(spi_ioc_transfer) != 0 ? -EINVAL : CopyIn(request, transfers);
    if (result < 0) {
      RecordAs(line_->name, [&] { return std::string(kMessage) + Outcome(result); });
      return result;
    }
    line_->Run(transfers);
    RecordAs(line_->name, [&] { return Describe(transfers); });
    CopyOut(transfers, request);
    return result;
  }

  // Makes half-duplex transfers of one buffer. `run` returns the bytes for the transcript.
  template <typename Run>
  ssize_t Plain(const char* operation, const void* buffer, std::size_t size, Run run) const {
    const int error = size > kMaxMessageBytes         ? -EMSGSIZE
                      : buffer == nullptr && size > 0 ? -EFAULT
                                                      : 0;
    const std::string bytes = error == 0 ? run() : Outcome(error);
    RecordAs(line_->name, [&] { return operation + bytes; });
    return error == 0 ? static_cast<ssize_t>(size) : error;
  }

  const std::shared_ptr<Line> line_;
  const OpenToken token_;
};

SpiBus::SpiBus(BoardMemory& memory, unsigned controller, unsigned select,
               std::shared_ptr<SpiChip> chip)
    : line_(new Line{.name = "spi" + std::to_string(controller) + '.' + std::to_string(select),
                     .chip = std::move(chip),
                     .settings = Shared<Line::Settings>(memory),
                     .seat = Seat(memory, Seat::kSpi)}) {}

std::string SpiBus::Name() const { return line_->name; }

bool SpiBus::Claims(const std::string& path) const {
  return path == "/dev/spidev" + line_->name.substr(3);
}

OpenResult SpiBus::Open(const std::string&, int) {
  return {std::make_shared<File>(line_, CountOpen()), 0};
}

}  // namespace board
