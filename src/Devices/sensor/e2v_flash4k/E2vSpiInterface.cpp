#include "Devices/sensor/e2v_flash4k/E2vSpiInterface.h"

#include <array>
#include <cstdio>
#include <vector>

#include "Devices/bus/Bytes.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4kTables.h"

namespace VeltranoSDK {

namespace {

constexpr char kDevice[] = "/dev/spidev0.0";
constexpr std::uint8_t kBitsPerWord = 8;
constexpr std::uint32_t kSpeedHz = 20'000'000;

enum Command : std::uint8_t {
  kReadRegister = 0x02,
  kWriteRegister = 0x42,
  kSelectPage = 0x60,
  kUpdateRegisters = 0x81,
  kUpdateRoi = 0x82,
  kStop = 0x88,
  kStart = 0x90,
  kConfigureSlices = 0xBB,
};

// A register's value follows the command, its address and one byte of turnaround.
constexpr std::size_t kReadHeader = 4;
constexpr std::size_t kRegistersPerPage = 1024;

constexpr unsigned char kControlMemoryPage = 11;
constexpr std::array<unsigned char, 6> kPages{0, 1, 2, 3, 6, kControlMemoryPage};

}  // namespace

struct E2vSpiInterface::Update {
  std::uint8_t command;
  unsigned int busy;  // bit of the status register
  const char* failed;
  const char* read_failed;
  const char* is_busy;
  const char* done;
};

E2vSpiInterface::E2vSpiInterface() {
  if (device_.Open(kDevice)) {
    device_.SetOpt(DevFOps::SpiDev::kMode0, false, kBitsPerWord, kSpeedHz);
  }
}

std::pair<bool, unsigned short> E2vSpiInterface::Read(unsigned short addr) {
  std::array<std::uint8_t, kReadHeader + 2> tx{kReadRegister, HighByte(addr), LowByte(addr)};
  std::array<std::uint8_t, tx.size()> rx{};
  const bool ok = device_.DoMsg(tx.data(), rx.data(), tx.size());
  return {ok, WordOf(rx[kReadHeader], rx[kReadHeader + 1])};
}

bool E2vSpiInterface::Write(unsigned short addr, unsigned short value) {
  std::array<std::uint8_t, 5> bytes{kWriteRegister, HighByte(addr), LowByte(addr), HighByte(value),
                                    LowByte(value)};
  return Send(bytes);
}

bool E2vSpiInterface::Wpage(unsigned char page) {
  std::array<std::uint8_t, 2> bytes{kSelectPage, page};
  return Send(bytes);
}

bool E2vSpiInterface::ConfigSlice(unsigned char a, unsigned char b, unsigned char c,
                                  unsigned char d) {
  std::array<std::uint8_t, 5> bytes{kConfigureSlices, d, c, b, a};
  return Send(bytes);
}

bool E2vSpiInterface::Start() {
  std::array<std::uint8_t, 1> bytes{kStart};
  return Send(bytes);
}

bool E2vSpiInterface::Stop() {
  std::array<std::uint8_t, 1> bytes{kStop};
  return Send(bytes);
}

bool E2vSpiInterface::UpdateRegisters() {
  return Run({kUpdateRegisters, 0x10, "E2vSpiInterface::UpdateRegisters() error!",
              "E2vFlash4k::UpdateRegisters Read 0x0000 failed!",
              "E2vFlash4k UpdateRegisters e2v_spi_.Read(0x0000) = %d!! busy!\n",
              "E2vFlash4k UpdateRegisters e2v_spi_.Read(0x0000) = %d!! pass!\n"});
}

bool E2vSpiInterface::UpdateROI() {
  return Run({kUpdateRoi, 0x01, "E2vSpiInterface::UpdateROI() error!",
              "E2vFlash4k::UpdateROI Read 0x0000 failed!",
              "E2vFlash4k UpdateROI e2v_spi_.Read(0x0000) = %d!! busy!\n",
              "E2vFlash4k UpdateROI e2v_spi_.Read(0x0000) = %d!! pass!\n"});
}

void E2vSpiInterface::ReadAll() {
  for (const unsigned char page : kPages) {
    if (page == kControlMemoryPage) {
      // The control memories can be read only while they are accessible.
      if (!Wpage(0)) {
        puts(e2v::kDumpPageFailed);
        return;
      }
      if (!Write(e2v::kControlMemoryAccess, 0)) {
        puts(e2v::kControlMemoryAccessFailed);
        return;
      }
    }
    if (!Wpage(page)) {
      puts(e2v::kDumpPageFailed);
      return;
    }
    if (!PrintPage(page)) break;
  }
  if (!Wpage(0)) puts(e2v::kDumpReturnFailed);
}

bool E2vSpiInterface::PrintPage(unsigned char page) {
  std::vector<std::uint8_t> tx(kReadHeader + 2 * kRegistersPerPage);
  std::vector<std::uint8_t> rx(tx.size());
  tx[0] = kReadRegister;
  if (!device_.DoMsg(tx.data(), rx.data(), static_cast<std::uint32_t>(tx.size()))) return false;
  for (std::size_t reg = 0; reg < kRegistersPerPage; ++reg) {
    const std::size_t at = kReadHeader + 2 * reg;
    const unsigned long value = WordOf(rx[at], rx[at + 1]);
    printf("E2vSpiInterface::ReadAll(): page:%lx, reg: 0x%lx, value: 0x%lx\n",
           static_cast<unsigned long>(page), static_cast<unsigned long>(reg), value);
  }
  return true;
}

bool E2vSpiInterface::Run(const Update& update) {
  std::array<std::uint8_t, 1> bytes{update.command};
  if (!Send(bytes)) {
    puts(update.failed);
    return false;
  }
  for (;;) {
    const auto [ok, status] = Read(e2v::kStatusRegister);
    if (!ok) {
      puts(update.read_failed);
    } else if ((status & update.busy) != 0) {
      printf(update.is_busy, status);
    } else {
      printf(update.done, status);
      return true;
    }
  }
}

bool E2vSpiInterface::Send(std::span<std::uint8_t> bytes) {
  return device_.DoWrite(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

}  // namespace VeltranoSDK
