// The configuration store without memory for a transfer.
#include <gmock/gmock.h>

#include <string>

#include "support/BoardFixture.h"
#include "support/FailingAllocations.h"
#include "tessaline/eeprom.h"

namespace tessaline_test {
namespace {

using ::testing::IsEmpty;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

int Read() {
  unsigned char page[16];
  return eeprom_page_read(0, page, sizeof page, 0x50);
}

int Write() {
  const unsigned char page[16]{};
  return eeprom_page_write(0, page, sizeof page, 0x50);
}

struct Shortage {
  const char* name;
  int (*call)();
  int allocation;
  const char* told;
};

void PrintTo(const Shortage& row, std::ostream* out) { *out << row.name; }

class EepromWithoutMemory : public BoardFixture, public ::testing::WithParamInterface<Shortage> {
 protected:
  EepromWithoutMemory() : BoardFixture("K3610") {}
};

TEST_P(EepromWithoutMemory, SaysWhatItLacksAndLeavesTheBusAlone) {
  const Shortage& row = GetParam();
  CaptureStderr();
  FailLibraryAllocation(row.allocation);
  EXPECT_EQ(row.call(), -1);
  EXPECT_EQ(GetCapturedStderr(), std::string(row.told) + ": Cannot allocate memory\n");
  EXPECT_EQ(Printed(), "");
  EXPECT_THAT(Events(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Allocations, EepromWithoutMemory,
    ::testing::Values(Shortage{"ReadTransfer", Read, 1, "malloc iocs:"},
                      Shortage{"ReadMessages", Read, 2, "malloc iocs->msgs"},
                      Shortage{"ReadFirstBuffer", Read, 3, "malloc iocs->msgs[0].buf"},
                      Shortage{"ReadSecondBuffer", Read, 4, "malloc iocs->msgs[1].buf"},
                      Shortage{"WriteTransfer", Write, 1, "malloc iocs:"},
                      Shortage{"WriteMessages", Write, 2, "malloc iocs->msgs"},
                      Shortage{"WriteBuffer", Write, 3, "malloc iocs->msgs[0].buf"}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace tessaline_test
