#include "RegisterDump.h"

#include <sstream>

#include "Failure.h"
#include "InputFile.h"

namespace tool {
namespace {

Failure NoDump(const std::string& path) {
  return Failure(ExitCode::kUsage, fmt::format("{} is not a register dump", path),
                 "\"tessaline reg dump -o FILE\" writes one");
}

}  // namespace

RegisterDump RegisterDump::Take(const Registers& registers) {
  RegisterDump dump;
  for (const fpga::Register& reg : registers.All()) {
    dump.entries.push_back({std::string(fpga::Info(reg.block).name), std::string(reg.name.View()),
                            registers.Read(reg)});
  }
  return dump;
}

RegisterDump RegisterDump::Load(const std::string& path) {
  const auto bytes = ReadWholeFile(path);
  const std::string text(bytes.begin(), bytes.end());
  RegisterDump dump;
  const Json json = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (json.is_object() && json.contains("registers")) {
    for (const Json& reg : json["registers"]) {
      const auto is = [&](const char* member, bool (Json::*of_type)() const) {
        return reg.is_object() && reg.contains(member) && (reg[member].*of_type)();
      };
      if (!is("block", &Json::is_string) || !is("name", &Json::is_string) ||
          !is("value", &Json::is_number_unsigned) || reg["value"] > 0xFFFFFFFFu) {
        throw NoDump(path);
      }
      dump.entries.push_back({reg["block"], reg["name"], reg["value"]});
    }
    if (dump.entries.empty()) throw NoDump(path);
    return dump;
  }
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line.front() == '#') continue;
    std::istringstream words(line);
    RegisterDump::Entry entry;
    std::string equals;
    std::string value;
    words >> entry.block >> entry.name >> equals >> value;
    if (equals != "=" || !value.starts_with("0x")) throw NoDump(path);
    entry.value = ParseWord(value);
    dump.entries.push_back(std::move(entry));
  }
  if (dump.entries.empty()) throw NoDump(path);
  return dump;
}

std::string RegisterDump::AsText(const Registers& registers) const {
  std::string text;
  for (const Entry& entry : entries) {
    const Place place = registers.Find(entry.block + "." + entry.name);
    text += fmt::format("{:<16}{:<28}= 0x{:08x}  # {}\n", entry.block, entry.name, entry.value,
                        registers.Decoded(place.reg, entry.value));
  }
  return text;
}

Json RegisterDump::AsJson(const Registers& registers) const {
  Json list = Json::array();
  for (const Entry& entry : entries) {
    const Place place = registers.Find(entry.block + "." + entry.name);
    list.push_back(registers.AsJson(place.reg, entry.value));
  }
  return {{"registers", std::move(list)}};
}

}  // namespace tool
