// The configuration store with bus drivers whose answers differ from the virtual board's, and how
// it opens the bus.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/i2c-dev.h>

#include <string_view>
#include <vector>

#include "support/BoardFixture.h"
#include "support/ChangedDriver.h"
#include "tessaline/eeprom.h"

namespace {

std::vector<int> bus_opened_with;

int OpenAndRemember(const char* path, int flags) {
  static const auto board_open =
      reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open"));
  if (std::string_view(path) == "/dev/i2c-0") bus_opened_with.push_back(flags);
  return board_open(path, flags, 0600);
}

}  // namespace

#pragma GCC visibility push(default)
// Intercept the library's calls to the board. They have different names in C++, because the C
// library declares them with its own attributes. Hardened builds call the second one.
extern "C" int SeenOpen(const char* path, int flags, ...) asm("open");
extern "C" int SeenOpen(const char* path, int flags, ...) { return OpenAndRemember(path, flags); }
extern "C" int SeenHardenedOpen(const char* path, int flags) asm("__open_2");
extern "C" int SeenHardenedOpen(const char* path, int flags) {
  return OpenAndRemember(path, flags);
}
#pragma GCC visibility pop

namespace tessaline_test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

class EepromBus : public BoardFixture {
 protected:
  EepromBus() : BoardFixture("K3610") {}
  void SetUp() override {
    BoardFixture::SetUp();
    bus_opened_with.clear();
  }
  void TearDown() override {
    changed_driver = nullptr;
    BoardFixture::TearDown();
  }

  // Makes transfers succeed with this result without moving data.
  static void Answer(int result) {
    changed_driver = [result](Ioctl call, int fd, unsigned long request, void* argument) {
      return request == I2C_RDWR ? result : call(fd, request, argument);
    };
  }

  unsigned char page_[16] = {0xEE};
};

TEST_F(EepromBus, IsOpenedForReadingToRead) {
  EXPECT_EQ(eeprom_page_read(0, page_, sizeof page_, 0x50), 16);
  EXPECT_THAT(bus_opened_with, ElementsAre(O_RDONLY | O_CLOEXEC));
}

TEST_F(EepromBus, IsOpenedForWritingToWrite) {
  EXPECT_EQ(eeprom_page_write(0, page_, sizeof page_, 0x50), 0);
  EXPECT_THAT(bus_opened_with, ElementsAre(O_WRONLY | O_CLOEXEC));
}

TEST_F(EepromBus, IsOpenedAnewForEveryPage) {
  constexpr int kReading = O_RDONLY | O_CLOEXEC;
  unsigned char block[48] = {};
  EXPECT_EQ(ConfigRead(block, sizeof block), 0);
  EXPECT_THAT(bus_opened_with, ElementsAre(kReading, kReading, kReading));
}

TEST_F(EepromBus, ThatDeliversNothingReadsAsZeros) {
  Answer(2);
  EXPECT_EQ(eeprom_page_read(0, page_, sizeof page_, 0x50), 16);
  EXPECT_THAT(page_, Each(0));
}

TEST_F(EepromBus, FailsWhenTheAdapterStopsEarly) {
  Answer(0);
  EXPECT_EQ(eeprom_page_read(0, page_, sizeof page_, 0x50), -1);
  EXPECT_EQ(eeprom_page_write(0, page_, sizeof page_, 0x50), -1);
  EXPECT_EQ(Printed(), "page_read error\npage_write error\n");
}

}  // namespace
}  // namespace tessaline_test
