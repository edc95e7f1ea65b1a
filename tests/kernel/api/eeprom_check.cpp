// The EEPROM store on a real I2C bus, at every size at which its method changes.
#include <errno.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/Files.h"
#include "tessaline/eeprom.h"

namespace {

using kernel_test::ReadFile;
using kernel_test::WriteFile;

const std::string kBus = "/sys/kernel/debug/board_i2c/";

std::vector<unsigned char> Bytes(int size, unsigned seed) {
  std::vector<unsigned char> bytes(size);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>((seed = seed * 75 + 74) >> 4);
  return bytes;
}

class EepromSize : public ::testing::TestWithParam<int> {};

TEST_P(EepromSize, IsStoredAndReadBack) {
  auto bytes = Bytes(GetParam(), 7u + static_cast<unsigned>(GetParam()));
  const std::string before = ReadFile(kBus + "eeprom");
  ASSERT_EQ(before.size(), 512u);
  ASSERT_EQ(ConfigSave(bytes.data(), GetParam()), 0);
  const std::string after = ReadFile(kBus + "eeprom");
  EXPECT_EQ(after.substr(0, bytes.size()), std::string(bytes.begin(), bytes.end()));
  EXPECT_EQ(after.substr(bytes.size()), before.substr(bytes.size()));
  std::vector<unsigned char> read(bytes.size());
  EXPECT_EQ(ConfigRead(read.data(), GetParam()), 0);
  EXPECT_EQ(read, bytes);
}

INSTANTIATE_TEST_SUITE_P(Eeprom, EepromSize,
                         ::testing::Values(1, 15, 16, 17, 32, 240, 255, 256, 257, 271, 272, 273,
                                           300, 496, 511, 512));

TEST(Eeprom, SizesOutsideAreRefusedWithoutATransfer) {
  unsigned char bytes[513] = {};
  const std::string before = ReadFile(kBus + "transfers");
  for (const int size : {-1, 0, 513}) {
    EXPECT_EQ(ConfigSave(bytes, size), -1);
    EXPECT_EQ(ConfigRead(bytes, size), -1);
  }
  EXPECT_EQ(ReadFile(kBus + "transfers"), before);
}

TEST(Eeprom, NobodyAtTheAddressIsAnError) {
  unsigned char byte = 0;
  EXPECT_EQ(eeprom_page_read(0, &byte, 1, 0x52), -1);
  EXPECT_EQ(eeprom_page_write(0, &byte, 1, 0x52), -1);
}

TEST(Eeprom, ABusThatFailsEndsTheSaveAndLeavesThePagesBefore) {
  auto bytes = Bytes(300, 3);
  WriteFile(kBus + "fail_error", std::to_string(EIO));
  WriteFile(kBus + "fail_skip", "2");
  WriteFile(kBus + "fail_count", "1");
  const std::string before = ReadFile(kBus + "eeprom");
  EXPECT_EQ(ConfigSave(bytes.data(), 300), -1);
  const std::string after = ReadFile(kBus + "eeprom");
  EXPECT_EQ(after.substr(0, 32), std::string(bytes.begin(), bytes.begin() + 32));
  EXPECT_EQ(after.substr(32), before.substr(32));
}

TEST(Eeprom, ABusyChipDoesNotAnswer) {
  auto bytes = Bytes(16, 5);
  ASSERT_EQ(eeprom_page_write(0, bytes.data(), 16, 0x50), 0);
  // The library pauses after the page. A reader that does not wait gets an error.
  std::vector<unsigned char> read(16);
  int result = -1;
  for (int tries = 0; tries < 100000 && result < 0; ++tries) {
    result = eeprom_page_read(0, read.data(), 16, 0x50);
  }
  EXPECT_EQ(result, 16);
  EXPECT_EQ(read, bytes);
}

}  // namespace
