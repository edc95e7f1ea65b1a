// The configuration store, through the exported functions: the bus traffic, the content of the
// EEPROM, and the printed text.
#include "tessaline/eeprom.h"

#include <errno.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "support/BoardFixture.h"

namespace tessaline_test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

using Bytes = std::vector<unsigned char>;

constexpr unsigned char kLower = 0x50;
constexpr unsigned char kUpper = 0x51;
constexpr int kBlock = 512;

std::string Hex(const unsigned char* bytes, std::size_t count) {
  std::string text;
  char digits[8];
  for (std::size_t i = 0; i < count; ++i) {
    snprintf(digits, sizeof digits, " %02x", bytes[i]);
    text += digits;
  }
  return text;
}

std::string Address(unsigned char device) { return device == kLower ? "0x50" : "0x51"; }

// --- One page in the transcript ----------------------------------------------------------

std::string WriteLine(unsigned char device, unsigned char word, const unsigned char* bytes,
                      std::size_t count) {
  return "i2c-0 I2C_RDWR w " + Address(device) + Hex(&word, 1) + Hex(bytes, count);
}

std::string ReadLine(unsigned char device, unsigned char word, const unsigned char* bytes,
                     std::size_t count) {
  return "i2c-0 I2C_RDWR w " + Address(device) + Hex(&word, 1) + "; r " + Address(device) +
         Hex(bytes, count);
}

constexpr const char* kTimeoutLine = "i2c-0 I2C_TIMEOUT 4";
constexpr const char* kRetriesLine = "i2c-0 I2C_RETRIES 2";
constexpr const char* kPauseLine = "sleep 10000";
constexpr std::size_t kLinesAPage = 4;

using PageLine = std::string (*)(unsigned char, unsigned char, const unsigned char*, std::size_t);

// The expected transfers of a block of this size, case by case.
std::vector<std::string> Partition(const Bytes& data, int size, PageLine line) {
  std::vector<std::string> events;
  const auto page = [&](unsigned char device, int word, int offset, int count) {
    const std::string transfer = line(device, static_cast<unsigned char>(word), &data[offset],
                                      static_cast<std::size_t>(count));
    for (const std::string& event : {std::string(kTimeoutLine), std::string(kRetriesLine), transfer,
                                     std::string(kPauseLine)}) {
      events.push_back(event);
    }
  };
  const int whole_pages = size / 16;
  const int rest = size % 16;
  if (size < 16) {
    page(kLower, 0, 0, size);
  } else if (size <= 256) {
    for (int i = 0; i < whole_pages; ++i) page(kLower, 16 * i, 16 * i, 16);
    if (rest > 0) page(kLower, 16 * whole_pages, 16 * whole_pages, rest);
  } else {
    for (int i = 0; i < 16; ++i) page(kLower, 16 * i, 16 * i, 16);
    for (int i = 0; i < whole_pages - 16; ++i) page(kUpper, 16 * i, 256 + 16 * i, 16);
    if (rest > 0) page(kUpper, 16 * (whole_pages - 16), 16 * whole_pages, rest);
  }
  return events;
}

int Pages(int size) { return (size + 15) / 16; }

std::string Repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

std::string PagesWritten(int pages) { return Repeated("write byte ioctl ret = 1\n", pages); }

// --- The store --------------------------------------------------------------------------

class EepromStore : public BoardFixture {
 protected:
  EepromStore() : BoardFixture("K3610"), data_(kBlock) {
    for (int i = 0; i < kBlock; ++i) data_[i] = static_cast<unsigned char>(i * 7 + i / 256 + 1);
  }

  void TearDown() override {
    EXPECT_EQ(tessaline_board_open_files("i2c-0"), 0) << "the bus was left open";
    BoardFixture::TearDown();
  }

  static Bytes Stored() {
    Bytes bytes(kBlock);
    for (int i = 0; i < kBlock; ++i) {
      bytes[i] = static_cast<unsigned char>(tessaline_board_chip_get("eeprom", i));
    }
    return bytes;
  }

  static void Store(const Bytes& bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      ASSERT_EQ(tessaline_board_chip_set("eeprom", static_cast<unsigned>(i), bytes[i]), 0);
    }
  }

  static Bytes Erased() { return Bytes(kBlock, 0xFF); }

  // The first `count` bytes of one block, then the rest of the other.
  static Bytes Joined(const Bytes& first, int count, const Bytes& second) {
    Bytes bytes(second);
    std::copy_n(first.begin(), count, bytes.begin());
    return bytes;
  }

  static std::size_t Pauses() {
    const auto events = Events();
    return static_cast<std::size_t>(std::count(events.begin(), events.end(), kPauseLine));
  }

  Bytes data_;
};

// --- Single pages -----------------------------------------------------------------------

TEST_F(EepromStore, WritesAPage) {
  EXPECT_EQ(eeprom_page_write(0x20, data_.data(), 16, kLower), 0);
  EXPECT_THAT(Events(),
              ElementsAre(kTimeoutLine, kRetriesLine, WriteLine(kLower, 0x20, data_.data(), 16)));
  EXPECT_EQ(Printed(), "write byte ioctl ret = 1\n");
}

TEST_F(EepromStore, WritesToTheDeviceAddressed) {
  EXPECT_EQ(eeprom_page_write(0xF0, data_.data(), 3, kUpper), 0);
  EXPECT_THAT(Events(),
              ElementsAre(kTimeoutLine, kRetriesLine, "i2c-0 I2C_RDWR w 0x51 f0 01 08 0f"));
}

TEST_F(EepromStore, WritesNoByteAtAll) {
  EXPECT_EQ(eeprom_page_write(0x20, data_.data(), 0, kLower), 0);
  EXPECT_THAT(Events(), ElementsAre(kTimeoutLine, kRetriesLine, "i2c-0 I2C_RDWR w 0x50 20"));
  EXPECT_EQ(Stored(), Erased());
}

TEST_F(EepromStore, ReadsAPage) {
  Store(data_);
  Bytes page(16);
  EXPECT_EQ(eeprom_page_read(0x20, page.data(), 16, kUpper), 16);
  EXPECT_THAT(page, ElementsAreArray(&data_[0x120], 16));
  EXPECT_THAT(Events(),
              ElementsAre(kTimeoutLine, kRetriesLine, ReadLine(kUpper, 0x20, &data_[0x120], 16)));
  EXPECT_EQ(Printed(), "");
}

TEST_F(EepromStore, OfTheLengthToReadTheLowByteCounts) {
  Store(data_);
  Bytes page(32, 0xEE);
  EXPECT_EQ(eeprom_page_read(0, page.data(), 0x103, kLower), 0x103);
  EXPECT_THAT(Bytes(page.begin(), page.begin() + 3), ElementsAreArray(data_.data(), 3));
  EXPECT_THAT(Bytes(page.begin() + 3, page.end()), Each(0xEE));
  EXPECT_EQ(eeprom_page_read(0, page.data(), 0x100, kLower), 0x100);
}

TEST_F(EepromStore, ReadsAsMuchAsAMessageHolds) {
  Store(data_);
  Bytes bytes(18, 0xEE);
  EXPECT_EQ(eeprom_page_read(0, bytes.data(), 17, kLower), 17);
  EXPECT_THAT(Bytes(bytes.begin(), bytes.begin() + 17), ElementsAreArray(data_.data(), 17));
  EXPECT_EQ(bytes[17], 0xEE);
}

struct Refusal {
  const char* name;
  int (*call)(unsigned char* page);
  const char* printed;
  const char* error;
};

void PrintTo(const Refusal& row, std::ostream* out) { *out << row.name; }

class EepromRefuses : public EepromStore, public ::testing::WithParamInterface<Refusal> {};

TEST_P(EepromRefuses, BeforeItTouchesTheBus) {
  Bytes page(256, 0xEE);
  CaptureStderr();
  EXPECT_EQ(GetParam().call(page.data()), -1);
  EXPECT_EQ(GetCapturedStderr(), GetParam().error);
  EXPECT_EQ(Printed(), GetParam().printed);
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_THAT(page, Each(0xEE));
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, EepromRefuses,
    ::testing::Values(
        Refusal{"WritingFromNull",
                [](unsigned char*) { return eeprom_page_write(0, nullptr, 4, kLower); },
                "page_write error\n", "eeprom_page_write: Bad address\n"},
        Refusal{"WritingMoreThanAPage",
                [](unsigned char* page) { return eeprom_page_write(0, page, 17, kLower); },
                "page_write error\n", "eeprom_page_write: Invalid argument\n"},
        Refusal{"WritingTheMost",
                [](unsigned char* page) { return eeprom_page_write(0, page, 255, kLower); },
                "page_write error\n", "eeprom_page_write: Invalid argument\n"},
        Refusal{"ReadingIntoNull",
                [](unsigned char*) { return eeprom_page_read(0, nullptr, 4, kLower); },
                "page_read error\n", "eeprom_page_read: Bad address\n"},
        Refusal{"ReadingMoreThanAMessage",
                [](unsigned char* page) { return eeprom_page_read(0, page, 18, kLower); },
                "page_read error\n", "eeprom_page_read: Invalid argument\n"},
        Refusal{"ReadingTheMost",
                [](unsigned char* page) { return eeprom_page_read(0, page, 0xFFFFFFFF, kLower); },
                "page_read error\n", "eeprom_page_read: Invalid argument\n"},
        Refusal{"SavingNull", [](unsigned char*) { return ConfigSave(nullptr, 512); },
                "page_write error\nConfigSave error!\n", "eeprom_page_write: Bad address\n"},
        Refusal{"ReadingTheBlockIntoNull", [](unsigned char*) { return ConfigRead(nullptr, 300); },
                "page_read error\nConfigRead error!\n", "eeprom_page_read: Bad address\n"},
        Refusal{"SavingNothing", [](unsigned char* page) { return ConfigSave(page, 0); },
                "ConfigSave size error!\n", ""},
        Refusal{"SavingTooMuch", [](unsigned char* page) { return ConfigSave(page, 513); },
                "ConfigSave size error!\n", ""},
        Refusal{"SavingANegativeSize", [](unsigned char* page) { return ConfigSave(page, -16); },
                "ConfigSave size error!\n", ""},
        Refusal{"SavingTheLargestSize",
                [](unsigned char* page) { return ConfigSave(page, INT_MAX); },
                "ConfigSave size error!\n", ""},
        Refusal{"ReadingNothing", [](unsigned char* page) { return ConfigRead(page, 0); },
                "ConfigRead size error!\n", ""},
        Refusal{"ReadingTooMuch", [](unsigned char* page) { return ConfigRead(page, 513); },
                "ConfigRead size error!\n", ""},
        Refusal{"ReadingTooManyWholePages",
                [](unsigned char* page) { return ConfigRead(page, 528); },
                "ConfigRead size error!\n", ""},
        Refusal{"ReadingTheSmallestSize",
                [](unsigned char* page) { return ConfigRead(page, INT_MIN); },
                "ConfigRead size error!\n", ""}),
    [](const auto& test) { return test.param.name; });

struct BusFailure {
  const char* name;
  const char* operation;
  int error;
  const char* told;
  bool transfer_tried;
};

constexpr BusFailure kOpenFails{"Open", "open", EACCES, "open eeprom: Permission denied\n", false};
constexpr BusFailure kTransferFails{"Transfer", "I2C_RDWR", EIO, "ioctl: Input/output error\n",
                                    true};
constexpr BusFailure kTransferStopsEarly{"ShortTransfer", "I2C_RDWR", TESSALINE_BOARD_SHORT,
                                         "ioctl: Input/output error\n", true};

void PrintTo(const BusFailure& row, std::ostream* out) { *out << row.name; }

class EepromBusFails : public EepromStore, public ::testing::WithParamInterface<BusFailure> {
 protected:
  // Makes the n-th transfer (from 0) fail.
  static void Fail(unsigned nth) {
    tessaline_board_fault("i2c-0", GetParam().operation, nth, 1, GetParam().error);
  }
  static std::string Tried(const char* text) { return GetParam().transfer_tried ? text : ""; }
};

TEST_P(EepromBusFails, InAPageWrite) {
  Fail(0);
  CaptureStderr();
  EXPECT_EQ(eeprom_page_write(0, data_.data(), 16, kLower), -1);
  EXPECT_EQ(GetCapturedStderr(), GetParam().told);
  EXPECT_EQ(Printed(), Tried("page_write error\n"));
  EXPECT_EQ(Stored(), Erased());
}

TEST_P(EepromBusFails, InAPageRead) {
  Fail(0);
  Bytes page(16, 0xEE);
  CaptureStderr();
  EXPECT_EQ(eeprom_page_read(0, page.data(), 16, kLower), -1);
  EXPECT_EQ(GetCapturedStderr(), GetParam().told);
  EXPECT_EQ(Printed(), Tried("page_read error\n"));
  EXPECT_THAT(page, Each(0xEE));
}

// Sizes for every case of the partition.
constexpr int kSizes[] = {1, 15, 16, 17, 255, 256, 257, 272, 300, 496, 511, 512};

TEST_P(EepromBusFails, InEveryPageOfASave) {
  for (const int size : kSizes) {
    for (int failing = 0; failing < Pages(size); ++failing) {
      SCOPED_TRACE(testing::Message() << size << " bytes, page " << failing);
      Store(Erased());
      tessaline_board_transcript_clear();
      tessaline_board_clear_faults();
      Fail(static_cast<unsigned>(failing));
      CaptureStderr();
      EXPECT_EQ(ConfigSave(data_.data(), size), -1);
      EXPECT_EQ(GetCapturedStderr(), GetParam().told);
      EXPECT_EQ(Printed(),
                PagesWritten(failing) + Tried("page_write error\n") + "ConfigSave error!\n");
      EXPECT_EQ(Stored(), Joined(data_, 16 * failing, Erased())) << "earlier pages stay";
      EXPECT_EQ(Pauses(), static_cast<std::size_t>(failing)) << "the failing page has none";
    }
  }
}

TEST_P(EepromBusFails, InEveryPageOfARead) {
  Store(data_);
  for (const int size : kSizes) {
    // The texts printed by saving, which reads whole pages of both halves.
    const std::string told =
        size > 256 && size % 16 == 0 ? "ConfigSave error!\n" : "ConfigRead error!\n";
    for (int failing = 0; failing < Pages(size); ++failing) {
      SCOPED_TRACE(testing::Message() << size << " bytes, page " << failing);
      tessaline_board_transcript_clear();
      tessaline_board_clear_faults();
      Fail(static_cast<unsigned>(failing));
      Bytes out(kBlock, 0xEE);
      CaptureStderr();
      EXPECT_EQ(ConfigRead(out.data(), size), -1);
      EXPECT_EQ(GetCapturedStderr(), GetParam().told);
      EXPECT_EQ(Printed(), Tried("page_read error\n") + told);
      EXPECT_EQ(out, Joined(data_, 16 * failing, Bytes(kBlock, 0xEE)));
      EXPECT_EQ(Pauses(), static_cast<std::size_t>(failing));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Calls, EepromBusFails,
                         ::testing::Values(kOpenFails, kTransferFails, kTransferStopsEarly),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(EepromStore, BusSettingsThatAreRefusedDoNotMatter) {
  tessaline_board_fault("i2c-0", "I2C_TIMEOUT", 0, 0, EINVAL);
  tessaline_board_fault("i2c-0", "I2C_RETRIES", 0, 0, EINVAL);
  EXPECT_EQ(ConfigSave(data_.data(), 16), 0);
  EXPECT_EQ(Stored(), Joined(data_, 16, Erased()));
}

TEST_F(EepromStore, SaysWhenNobodyAnswers) {
  ASSERT_EQ(tessaline_board_chip_present("eeprom", 0), 0);
  CaptureStderr();
  EXPECT_EQ(ConfigSave(data_.data(), 100), -1);
  EXPECT_EQ(GetCapturedStderr(), "ioctl: No such device or address\n");
  EXPECT_EQ(Printed(), "page_write error\nConfigSave error!\n");
}

// --- The whole block --------------------------------------------------------------------

TEST_F(EepromStore, SavesEverySizePageByPage) {
  for (int size = 1; size <= kBlock; ++size) {
    SCOPED_TRACE(testing::Message() << size << " bytes");
    Store(Erased());
    tessaline_board_transcript_clear();
    ASSERT_EQ(ConfigSave(data_.data(), size), 0);
    ASSERT_EQ(Events(), Partition(data_, size, WriteLine));
    ASSERT_EQ(Printed(), PagesWritten(Pages(size)) + "ConfigSave successful!\n");
    ASSERT_EQ(Stored(), Joined(data_, size, Erased()));
  }
}

TEST_F(EepromStore, ReadsEverySizePageByPage) {
  Store(data_);
  for (int size = 1; size <= kBlock; ++size) {
    SCOPED_TRACE(testing::Message() << size << " bytes");
    Bytes out(kBlock + 1, 0xEE);
    tessaline_board_transcript_clear();
    ASSERT_EQ(ConfigRead(out.data(), size), 0);
    ASSERT_EQ(Events(), Partition(data_, size, ReadLine));
    ASSERT_EQ(Printed(), size > 256 && size % 16 == 0 ? "ConfigSave successful!\n"
                                                      : "ConfigRead successful!\n");
    ASSERT_EQ(out, Joined(data_, size, Bytes(kBlock + 1, 0xEE)));
  }
}

TEST_F(EepromStore, ThreeHundredBytesEndTwelveBytesIntoTheUpperHalf) {
  ASSERT_EQ(ConfigSave(data_.data(), 300), 0);
  const auto events = Events();
  ASSERT_EQ(events.size(), 19 * kLinesAPage);
  EXPECT_EQ(events[16 * kLinesAPage + 2], WriteLine(kUpper, 0, &data_[256], 16));
  EXPECT_EQ(events[17 * kLinesAPage + 2], WriteLine(kUpper, 16, &data_[272], 16));
  EXPECT_EQ(events[18 * kLinesAPage + 2], WriteLine(kUpper, 32, &data_[288], 12));
}

TEST_F(EepromStore, WhatWasSavedIsReadBack) {
  ASSERT_EQ(ConfigSave(data_.data(), kBlock), 0);
  Bytes out(kBlock);
  ASSERT_EQ(ConfigRead(out.data(), kBlock), 0);
  EXPECT_EQ(out, data_);
}

}  // namespace
}  // namespace tessaline_test
