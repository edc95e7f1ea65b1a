// Compares the register tables that a build uses with a listing of them: lines that
// begin with "| `Header.h` | `kTable` | entries | placeholders |". What the listing
// says must be so; with "all" it must also say something about every table.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "Devices/tables/SensorTable.h"
#include "sensor_tables/E2vControlMemories.h"
#include "sensor_tables/E2vFinalConfiguration.h"
#include "sensor_tables/E2vGain.h"
#include "sensor_tables/E2vHdr.h"
#include "sensor_tables/E2vLvdsTraining.h"
#include "sensor_tables/E2vReadoutMode.h"
#include "sensor_tables/E2vRegisters.h"
#include "sensor_tables/E2vTestImage.h"
#include "sensor_tables/Gmax2509Init.h"
#include "sensor_tables/GsprintGain.h"
#include "sensor_tables/GsprintRecommended.h"
#include "sensor_tables/Imx252FixedSettings.h"

namespace {

using namespace VeltranoSDK;  // NOLINT(google-build-using-namespace): its tables

struct Row {
  template <typename Table>
  constexpr Row(const char* in_header, const char* with_name, const Table& table)
      : header(in_header),
        name(with_name),
        entries(table.size()),
        placeholders(CountPlaceholders(table)) {}

  std::string Key() const { return "| `" + std::string(header) + "` | `" + name + "` | "; }
  std::string Text() const {
    return Key() + std::to_string(entries) + " | " + std::to_string(placeholders) + " |";
  }

  const char* header;
  const char* name;
  std::size_t entries;
  std::size_t placeholders;
};

const Row kRows[]{
    {"Imx252FixedSettings.h", "kFixedSettings", imx252::kFixedSettings},
    {"Gmax2509Init.h", "kInitTable", gmax2509::kInitTable},
    {"GsprintRecommended.h", "kRecommendedSettings", gsprint::kRecommendedSettings},
    {"GsprintGain.h", "kGainRows", gsprint::kGainRows},
    {"E2vRegisters.h", "kRegisters", e2v::kRegisters},
    {"E2vControlMemories.h", "kControlMemories", e2v::kControlMemories},
    {"E2vFinalConfiguration.h", "kFinalConfiguration", e2v::kFinalConfiguration},
    {"E2vLvdsTraining.h", "kLvdsTraining", e2v::kLvdsTraining},
    {"E2vTestImage.h", "kTestImageCheck", e2v::kTestImageCheck},
    {"E2vReadoutMode.h", "kHalvedReadoutBits", e2v::kHalvedReadoutBits},
    {"E2vGain.h", "kGainLow", e2v::kGainLow},
    {"E2vGain.h", "kGainMiddle", e2v::kGainMiddle},
    {"E2vGain.h", "kGainHigh", e2v::kGainHigh},
    {"E2vHdr.h", "kHdrFirst", e2v::kHdrFirst},
    {"E2vHdr.h", "kHdrSecond", e2v::kHdrSecond},
    {"E2vHdr.h", "kHdrSquared", e2v::kHdrSquared},
};

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
  for (const Row& row : kRows) {
    const bool listed = listing.find(row.Key()) != std::string::npos;
    if (!listed && !all) continue;
    ++said;
    if (listing.find(row.Text()) != std::string::npos) continue;
    printf("%s: not as it is: %s\n", argv[1], row.Text().c_str());
    ++wrong;
  }
  if (said == 0) printf("%s: lists no table\n", argv[1]);
  return said == 0 || wrong != 0 ? 1 : 0;
}
