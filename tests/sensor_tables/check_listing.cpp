// Compares the register tables of a build with a listing of them. Its lines begin with "|
// `Header.h` | `kTable` | entries | placeholders |". Every listed line must be correct. With "all"
// the listing must also include every table.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "Devices/sensor/SensorTableList.h"

namespace {

using VeltranoSDK::SensorTableSummary;

std::string Key(const SensorTableSummary& table) {
  return "| `" + std::string(table.header) + "` | `" + table.name + "` | ";
}

std::string Text(const SensorTableSummary& table) {
  return Key(table) + std::to_string(table.entries) + " | " + std::to_string(table.placeholders) +
         " |";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fputs("usage: check_listing FILE [all]\n", stderr);
    return 2;
  }
  std::ifstream file(argv[1]);
  const std::string listing{std::istreambuf_iterator<char>(file), {}};
  const bool all = argc > 2 && std::string_view(argv[2]) == "all";

  int said = 0;
  int wrong = 0;
  for (const SensorTableSummary& table : VeltranoSDK::kSensorTables) {
    const bool listed = listing.find(Key(table)) != std::string::npos;
    if (!listed && !all) continue;
    ++said;
    if (listing.find(Text(table)) != std::string::npos) continue;
    printf("%s: not as it is: %s\n", argv[1], Text(table).c_str());
    ++wrong;
  }
  if (said == 0) printf("%s: lists no table\n", argv[1]);
  return said == 0 || wrong != 0 ? 1 : 0;
}
