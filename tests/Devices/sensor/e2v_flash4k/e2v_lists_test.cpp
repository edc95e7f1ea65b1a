// Lists of the e2v Flash 4K on a K4010 board: what is written if they have not been supplied, and
// how a list selects its page and returns to page 0.
#include <algorithm>
#include <set>

#include "Devices/sensor/SensorTable.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4kTables.h"
#include "Devices/sensor/e2v_flash4k/E2vLists.h"
#include "Devices/sensor/e2v_flash4k/E2vPages.h"
#include "Devices/sensor/e2v_flash4k/E2vSensorTest.h"
#include "sensor_tables/E2vControlMemories.h"
#include "sensor_tables/E2vFinalConfiguration.h"
#include "sensor_tables/E2vGain.h"
#include "sensor_tables/E2vHdr.h"
#include "sensor_tables/E2vLvdsTraining.h"
#include "sensor_tables/E2vReadoutMode.h"
#include "sensor_tables/E2vRegisters.h"
#include "sensor_tables/E2vTestImage.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

using E2vLists = E2vSensorTest;

// --- Lists that have not been supplied ------------------------------------------------------

TEST_F(E2vLists, PlaceholdersLeaveEveryRegisterAsItIs) {
  std::vector<unsigned> pages = kRegisterPages;
  pages.push_back(kControlMemoryPage);
  for (const unsigned page : pages) SetChip(page << 16 | 0x005F, 0xA500 | page);
  EXPECT_TRUE(sensor().LoadRegisters());
  EXPECT_TRUE(sensor().LoadControlMemories());
  EXPECT_TRUE(sensor().SetGain(1));
  EXPECT_TRUE(sensor().LvdsTraining());
  const Lines accesses = Accesses();
  EXPECT_EQ(std::count(accesses.begin(), accesses.end(), "005F = A500"), 3);
  for (const unsigned page : pages) {
    EXPECT_EQ(Chip(page << 16 | 0x005F), static_cast<int>(0xA500 | page));
  }
}

TEST_F(E2vLists, APlaceholderThatCannotBeReadIsNotWritten) {
  FailRead(0);
  EXPECT_EQ(Told([&] { EXPECT_FALSE(sensor().LoadControlMemories()); }),
            "E2vFlash4k::BatchReadRegister Read 95 failed!\n");
  EXPECT_THAT(Accesses(), ElementsAre("0070 = 0000", "page 11", "page 11", "failed", "page 0"));
}

TEST_F(E2vLists, FinalConfigurationIsTheListBothUpdatesAndTheEnd) {
  const auto odd = [](unsigned address) { return 0xA001 + 2 * address; };
  for (const unsigned address : kFinalRegisters) SetChip(address, odd(address));
  Printed([&] { EXPECT_TRUE(sensor().FinalConfiguration()); });
  EXPECT_THAT(Programming(), ElementsAreArray(FinalConfiguration(odd, kFpgaTimed) + kUpdates +
                                              Lines{"012F = 0001"}));
}

TEST_F(E2vLists, FinalConfigurationHasValuesForTheSensorThatTimesTheExposure) {
  EnterSensing();
  const Lines expected = FinalConfiguration(Chip, kSensorTimed);
  Printed([&] { EXPECT_TRUE(sensor().FinalConfiguration()); });
  EXPECT_THAT(Programming(), ElementsAreArray(expected + kUpdates + Lines{"012F = 0001"}));
}

TEST_F(E2vLists, FinalConfigurationTellsThatItFailed) {
  constexpr char kFailed[] = "E2vFlash4k::FinalConfiguration() failed! \n";
  constexpr unsigned kFirst = 3;                 // after the selections of the page
  constexpr unsigned kUpdate = kFirst + 34 + 1;  // after the return to page 0
  struct {
    unsigned write;
    std::string told;
  } const rows[]{
      {0, "E2vFlash4k::BatchReadRegister Wpage 0 failed!\n"},
      {kFirst - 1, "E2vFlash4k::BatchWriteRegister Wpage 0 failed!\n"},
      {kFirst, "E2vFlash4k::BatchWriteRegister Write 38 failed!\n"},
      {kFirst + 6, "E2vFlash4k::BatchWriteRegister Write 53 failed!\n"},
      {kFirst + 17, "E2vFlash4k::BatchWriteRegister Write 160 failed!\n"},
      {kFirst + 34, "E2vFlash4k::BatchWriteRegister Wpage 0 failed!\n"},
      {kUpdate, "E2vSpiInterface::UpdateRegisters() error!\n"},
      {kUpdate + 1, "E2vSpiInterface::UpdateROI() error!\n"},
      {kUpdate + 2, ""},
  };
  for (const auto& [write, told] : rows) {
    PowerUp();
    FailWrite(write);
    EXPECT_EQ(Told([&] { EXPECT_FALSE(sensor().FinalConfiguration()); }), told + kFailed) << write;
  }
  PowerUp();
  FailRead(2);
  EXPECT_EQ(Told([&] { EXPECT_FALSE(sensor().FinalConfiguration()); }),
            std::string("E2vFlash4k::BatchReadRegister Read 49 failed!\n") + kFailed);
}

// --- Lists ---------------------------------------------------------------------------------

TEST_F(E2vLists, AListGoesToItsPageInOrder) {
  EXPECT_TRUE(sensor().BatchWriteRegister({0x0003, 0x0001, 0x0003}, {6, {1, 0xFFFF, 0x1234}}));
  EXPECT_THAT(Accesses(),
              ElementsAre("page 6", "0003 = 0001", "0001 = FFFF", "0003 = 1234", "page 0"));
  EXPECT_EQ(Chip(0x60003), 0x1234);
}

TEST_F(E2vLists, AListNeedsAsManyValuesAsAddresses) {
  EXPECT_EQ(Printed([&] {
              EXPECT_FALSE(sensor().BatchWriteRegister({1, 2}, {0, {1}}));
            }),
            "E2vFlash4k::BatchWriteRegister address.size() != page_value.second.size()\n");
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(E2vLists, AListTellsTheAddressThatFailed) {
  FailWrite(0);
  EXPECT_EQ(Told([&] {
              EXPECT_FALSE(sensor().BatchWriteRegister({1}, {11, {1}}));
            }),
            "E2vFlash4k::BatchWriteRegister Wpage 11 failed!\n");
  FailWrite(2);
  tessaline_board_transcript_clear();
  EXPECT_EQ(Told([&] {
              EXPECT_FALSE(sensor().BatchWriteRegister({1, 300, 2}, {3, {1, 1, 1}}));
            }),
            "E2vFlash4k::BatchWriteRegister Write 300 failed!\n");
  EXPECT_THAT(Accesses(), ElementsAre("page 3", "0001 = 0001", "failed", "page 0"));
}

TEST_F(E2vLists, AListCanBeReadBack) {
  SetChip(0x20010, 0x0A0B);
  SetChip(0x20011, 0x0C0D);
  const auto [ok, values] = sensor().BatchReadRegister(2, {0x0010, 0x0011});
  EXPECT_TRUE(ok);
  EXPECT_THAT(values, ElementsAre(0x0A0B, 0x0C0D));
  EXPECT_THAT(Accesses(), ElementsAre("page 2", "0010 ?", "0011 ?", "page 0"));
}

TEST_F(E2vLists, AFailedReadingOfAListGivesWhatThereIs) {
  SetChip(0x20010, 0x0A0B);
  FailRead(1);
  std::pair<bool, std::vector<std::uint16_t>> read;
  EXPECT_EQ(Told([&] {
              read = sensor().BatchReadRegister(2, {0x0010, 0x0011, 0x0012});
            }),
            "E2vFlash4k::BatchReadRegister Read 17 failed!\n");
  EXPECT_FALSE(read.first);
  EXPECT_THAT(read.second, ElementsAre(0x0A0B));
  EXPECT_THAT(Accesses(), ElementsAre("page 2", "0010 ?", "failed", "page 0"));
  FailWrite(0);
  EXPECT_EQ(Told([&] { EXPECT_FALSE(sensor().BatchReadRegister(2, {1}).first); }),
            "E2vFlash4k::BatchReadRegister Wpage 2 failed!\n");
}

// --- Tables --------------------------------------------------------------------------------

// Whether a placeholder leaves its register unchanged.
constexpr bool WritesBack(const e2v::PagedEntry& entry) { return entry.mask == 0; }

template <typename Table>
constexpr bool IsPlaceholdersThatWriteBack(const Table& table) {
  return CountPlaceholders(table) == table.size() &&
         std::all_of(table.begin(), table.end(), WritesBack);
}

TEST(E2vTables, ListsThatOnlyTheMakerKnowsWriteBackWhatTheyFind) {
  EXPECT_TRUE(IsPlaceholdersThatWriteBack(e2v::kRegisters));
  EXPECT_TRUE(IsPlaceholdersThatWriteBack(e2v::kControlMemories));
  EXPECT_TRUE(IsPlaceholdersThatWriteBack(e2v::kGainLow));
  EXPECT_TRUE(IsPlaceholdersThatWriteBack(e2v::kGainMiddle));
  EXPECT_TRUE(IsPlaceholdersThatWriteBack(e2v::kGainHigh));
  EXPECT_TRUE(IsPlaceholdersThatWriteBack(e2v::kLvdsTraining));
  EXPECT_TRUE(IsPlaceholdersThatWriteBack(e2v::kTestImageCheck));
  EXPECT_EQ(CountPlaceholders(e2v::kHalvedReadoutBits), 1u);
}

TEST(E2vTables, FinalConfigurationIs34PlaceholdersForDifferentRegisters) {
  EXPECT_EQ(CountPlaceholders(e2v::kFinalConfiguration), 34u);
  std::set<unsigned> addresses;
  for (const e2v::FinalEntry& entry : e2v::kFinalConfiguration) addresses.insert(entry.address);
  EXPECT_EQ(addresses.size(), 34u);
}

TEST(E2vTables, ListsAreWrittenAPageAtATimeInTheirOrder) {
  constexpr e2v::PagedEntry kList[]{{1, 10, 0}, {1, 11, 0}, {6, 12, 0}, {1, 13, 0}};
  Lines runs;
  const auto remember = [&](unsigned page, std::span<const e2v::PagedEntry> entries) {
    std::string run = std::to_string(page) + ':';
    for (const auto& entry : entries) run += ' ' + std::to_string(entry.address);
    runs.push_back(run);
    return page != 6;
  };
  EXPECT_FALSE(e2v::ForEachPage(kList, remember));
  EXPECT_THAT(runs, ElementsAre("1: 10 11", "6: 12"));
  runs.clear();
  EXPECT_TRUE(e2v::ForEachPage(std::span(kList).first(2), remember));
  EXPECT_TRUE(e2v::ForEachPage({}, remember));
  EXPECT_THAT(runs, ElementsAre("1: 10 11"));
}

// Their values are known but their registers are not, so a chip ignores the writes.
TEST(E2vTables, HdrListsGoToARegisterThatOnlyCanBeRead) {
  const auto goes_nowhere = [](const auto& table) {
    return std::all_of(table.begin(), table.end(), [](const e2v::HdrEntry& entry) {
      return entry.placeholder && entry.address == e2v::kIdentity[0].address;
    });
  };
  EXPECT_TRUE(goes_nowhere(e2v::kHdrFirst));
  EXPECT_TRUE(goes_nowhere(e2v::kHdrSecond));
  EXPECT_TRUE(goes_nowhere(e2v::kHdrSquared));
}

}  // namespace
}  // namespace VeltranoSDK
