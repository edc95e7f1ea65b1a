#pragma once

#include <cstdint>
#include <span>
#include <utility>

#include "Devices/bus/SpiDev.h"

namespace VeltranoSDK {

// Register bus of the e2v Flash 4K: 16-bit registers at 16-bit addresses, divided
// into pages, and one-byte commands. Register 0x0000 is the chip's status.
//
// The device stays open while the object lives.
class E2vSpiInterface {
 public:
  E2vSpiInterface();

  // Whether the transfer succeeded, and the register.
  std::pair<bool, unsigned short> Read(unsigned short addr);
  bool Write(unsigned short addr, unsigned short value);
  // Selects the page that later accesses go to.
  bool Wpage(unsigned char page);
  // Sent in reverse order.
  bool ConfigSlice(unsigned char a, unsigned char b, unsigned char c, unsigned char d);
  bool Start();
  bool Stop();

  // The chip applies the written registers or region of interest. False when the command cannot be
  // sent. Otherwise both wait until the chip is no longer busy, polling without pause or limit: a
  // chip that stays busy, or stops answering, blocks the calling thread.
  bool UpdateRegisters();
  bool UpdateROI();

  // Prints every register of every page in use and selects page 0 again. Stops at once when a page
  // cannot be selected; the page selected last then stays.
  void ReadAll();

 private:
  struct Update;

  bool Run(const Update& update);
  bool Send(std::span<std::uint8_t> bytes);
  bool PrintPage(unsigned char page);

  DevFOps::SpiDev device_;
};

}  // namespace VeltranoSDK
