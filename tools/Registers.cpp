#include "Registers.h"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <charconv>

#include "Failure.h"
#include "tessaline/fpga.h"

namespace tool {
namespace {

std::string Upper(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return upper;
}

bool ParseNumber(std::string_view text, std::uint32_t& value) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value, hexadecimal ? 16 : 10);
  return parsed.ec == std::errc() && parsed.ptr == end && !text.empty();
}

Failure OutsideTheMap(const std::string& text) {
  return Failure(ExitCode::kUsage, fmt::format("\"{}\" is outside the register map", text),
                 "\"tessaline reg list\" shows all names and addresses");
}

// A register whose name holds what the user wrote, for a better message.
std::string SimilarTo(const std::string& name) {
  std::string similar;
  int found = 0;
  for (const fpga::Register& reg : fpga::kAllRegisters) {
    if (reg.name.View().find(name) == std::string_view::npos || found == 4) continue;
    similar += fmt::format("{}{}", found++ == 0 ? "" : ", ", reg.name.View());
  }
  return similar;
}

}  // namespace

std::string FullName(const fpga::Register& reg) {
  return fmt::format("{} {}", fpga::Info(reg.block).name, reg.name.View());
}

std::uint32_t ParseWord(const std::string& text) {
  std::uint32_t value = 0;
  if (!ParseNumber(text, value)) {
    throw Failure(ExitCode::kUsage, fmt::format("\"{}\" is not a 32-bit number", text),
                  "write 50000 or 0xC350");
  }
  return value;
}

std::vector<fpga::Register> Registers::All() const {
  std::vector<fpga::Register> all(fpga::kAllRegisters.begin(), fpga::kAllRegisters.end());
  std::sort(all.begin(), all.end(),
            [this](const auto& a, const auto& b) { return AddressOf(a) < AddressOf(b); });
  return all;
}

std::vector<const fpga::Field*> Registers::FieldsOf(const fpga::Register& reg) const {
  std::vector<const fpga::Field*> fields;
  for (const fpga::Field& field : fpga::kAllFields) {
    if (!(field.reg == reg)) continue;
    // One word has two layouts.
    const bool in_halves = field.shift == fpga::kField.t_row_halves.shift ||
                           field.width == fpga::kField.t_ges_halves.width;
    if (reg == fpga::kReg.SENSOR_TIMING && in_halves != (family_.timing_in_halves)) continue;
    fields.push_back(&field);
  }
  return fields;
}

std::uint32_t Registers::AddressOf(const fpga::Register& reg) const {
  return fpga::BaseAddress(reg.block, family_.board.processor.regions) + reg.offset;
}

const fpga::Register* Registers::At(std::uint32_t address) const {
  for (const fpga::Register& reg : fpga::kAllRegisters) {
    if (AddressOf(reg) == address) return &reg;
  }
  return nullptr;
}

Place Registers::Find(const std::string& text) const {
  std::uint32_t address = 0;
  if (ParseNumber(text, address)) {
    const fpga::Register* const reg = At(address);
    if (reg == nullptr) throw OutsideTheMap(text);
    return {*reg};
  }

  std::string name = Upper(text);
  const fpga::BlockInfo* block = nullptr;
  for (const fpga::BlockInfo& info : fpga::kBlocks) {
    if (!name.starts_with(info.name) || name.size() <= info.name.size()) continue;
    const char separator = name[info.name.size()];
    if (separator != '.' && separator != '+' && separator != ' ') continue;
    block = &info;
    name.erase(0, info.name.size() + 1);
    break;
  }
  const auto block_of = [](const fpga::Register& reg) { return &fpga::Info(reg.block); };

  std::uint32_t offset = 0;
  if (block != nullptr && ParseNumber(name, offset)) {
    for (const fpga::Register& reg : fpga::kAllRegisters) {
      if (block_of(reg) == block && reg.offset == offset) return {reg};
    }
    throw OutsideTheMap(text);
  }

  const std::size_t dot = name.find('.');
  const std::string field_name = dot == std::string::npos ? "" : name.substr(dot + 1);
  name.erase(std::min(dot, name.size()));
  const fpga::Register* found = nullptr;
  for (const fpga::Register& reg : fpga::kAllRegisters) {
    if (reg.name.View() != name || (block != nullptr && block_of(reg) != block)) continue;
    if (found != nullptr) {
      throw Failure(ExitCode::kUsage, fmt::format("\"{}\" is in two blocks", text),
                    fmt::format("write {}.{} or {}.{}", fpga::Info(found->block).name, name,
                                fpga::Info(reg.block).name, name));
    }
    found = &reg;
  }
  if (found == nullptr) {
    const std::string similar = SimilarTo(name);
    if (similar.empty()) throw OutsideTheMap(text);
    throw Failure(ExitCode::kUsage, fmt::format("\"{}\" is outside the register map", text),
                  fmt::format("did you mean {}?", similar));
  }
  if (field_name.empty()) return {*found};
  std::string known;
  for (const fpga::Field* field : FieldsOf(*found)) {
    if (Upper(field->name.View()) == field_name) return {*found, field};
    known += fmt::format("{}{}", known.empty() ? "" : ", ", field->name.View());
  }
  throw Failure(ExitCode::kUsage, fmt::format("{} has no field of that name", FullName(*found)),
                known.empty() ? "it is one number" : "its fields are " + known);
}

std::uint32_t Registers::Read(const fpga::Register& reg) const {
  if (reader_) return reader_(reg);
  return fpga_read_addr(AddressOf(reg) - reg.offset, reg.Index());
}

void Registers::Write(const fpga::Register& reg, std::uint32_t value) const {
  fpga_write_addr(AddressOf(reg) - reg.offset, reg.Index(), value);
}

std::string Registers::Decoded(const fpga::Register& reg, std::uint32_t value) const {
  std::string text;
  for (const fpga::Field* field : FieldsOf(reg)) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", field->name.View(), field->Of(value));
  }
  return text.empty() ? std::to_string(value) : text;
}

Json Registers::AsJson(const fpga::Register& reg, std::uint32_t value) const {
  Json json{{"block", fpga::Info(reg.block).name},
            {"name", reg.name.View()},
            {"address", AddressOf(reg)},
            {"value", value}};
  Json fields = Json::object();
  for (const fpga::Field* field : FieldsOf(reg))
    fields[std::string(field->name.View())] = field->Of(value);
  if (!fields.empty()) json["fields"] = std::move(fields);
  return json;
}

}  // namespace tool
