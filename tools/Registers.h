#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Json.h"
#include "Models.h"
#include "tessaline/register_map.h"

namespace tool {

namespace fpga = VeltranoSDK::fpga;

// A register, or one field of it.
struct Place {
  fpga::Register reg;
  const fpga::Field* field = nullptr;
};

// The registers of a product's FPGA by name and address.
class Registers {
 public:
  using Reader = std::function<std::uint32_t(const fpga::Register&)>;
  // `reader`: reads one in another way than through the library.
  explicit Registers(const Model& model, Reader reader = {})
      : family_(model.family()), reader_(std::move(reader)) {}

  // In the order of their addresses.
  std::vector<fpga::Register> All() const;
  std::vector<const fpga::Field*> FieldsOf(const fpga::Register& reg) const;

  // "TRIGGER_CTRL", "IMAGE_BLOCK_1.TRIGGER_CTRL", "TRIGGER_CTRL.mode", "0x43C10004",
  // "IMAGE_BLOCK_1+0x04"; case does not matter. A Failure for what is outside the map.
  Place Find(const std::string& text) const;

  std::uint32_t AddressOf(const fpga::Register& reg) const;
  // Null: nothing known is there.
  const fpga::Register* At(std::uint32_t address) const;

  std::uint32_t Read(const fpga::Register& reg) const;
  void Write(const fpga::Register& reg, std::uint32_t value) const;

  // "mode 0, door_control 1", or the number in decimal for a register without fields.
  std::string Decoded(const fpga::Register& reg, std::uint32_t value) const;
  Json AsJson(const fpga::Register& reg, std::uint32_t value) const;

 private:
  const Family& family_;
  Reader reader_;
};

// "IMAGE_BLOCK_1 TRIGGER_CTRL"
std::string FullName(const fpga::Register& reg);

// A number as a user writes it, decimal or 0x hexadecimal; a Failure otherwise.
std::uint32_t ParseWord(const std::string& text);

}  // namespace tool
