// The virtual board's simple devices through the system calls that reach them.

#include <gmock/gmock.h>
#include <linux/i2c-dev.h>
#include <linux/watchdog.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <thread>

#include "BoardFixture.h"
#include "support/Waiting.h"

namespace {

using board_test::BoardTest;
using board_test::Descriptor;
using board_test::OpenOutcome;
using board_test::Outcome;
using board_test::ReadFile;
using board_test::Transcript;
using board_test::WriteFile;
using std::chrono::milliseconds;
using tessaline_test::ReallyWait;
using testing::HasSubstr;

// --- GPIO

class GpioTest : public BoardTest {
 protected:
  static long Export(const char* line) { return WriteFile("/sys/class/gpio/export", line); }
  static std::string Path(const char* file) {
    return std::string("/sys/class/gpio/gpio907/") + file;
  }
};

TEST_F(GpioTest, LineFilesExistOnlyWhileExported) {
  EXPECT_EQ(OpenOutcome(Path("direction"), O_WRONLY), -ENOENT);
  EXPECT_EQ(OpenOutcome(Path("value"), O_RDWR), -ENOENT);
  EXPECT_EQ(Export("907"), 3);
  EXPECT_EQ(OpenOutcome(Path("direction"), O_WRONLY), 0);
  EXPECT_EQ(OpenOutcome(Path("value"), O_RDWR), 0);
  EXPECT_EQ(OpenOutcome(Path("edge"), O_RDWR), -ENOENT);
  EXPECT_EQ(WriteFile("/sys/class/gpio/unexport", "907\n"), 4);
  EXPECT_EQ(OpenOutcome(Path("value"), O_RDWR), -ENOENT);
}

TEST_F(GpioTest, ExportTakesFreeLinesOfTheBoardOnly) {
  EXPECT_EQ(Export("907"), 3);
  EXPECT_EQ(Export("907"), -EBUSY);
  EXPECT_EQ(Export("908"), -EINVAL);
  EXPECT_EQ(Export("laser"), -EINVAL);
  EXPECT_EQ(Export(""), 0);
  EXPECT_EQ(WriteFile("/sys/class/gpio/unexport", "934"), -EINVAL);
}

TEST_F(GpioTest, SuccessLeavesErrnoAlone) {
  errno = E2BIG;
  EXPECT_EQ(WriteFile("/sys/class/gpio/export", "907"), 3);
  EXPECT_EQ(errno, E2BIG);
}

TEST_F(GpioTest, ExportCannotBeRead) {
  EXPECT_EQ(OpenOutcome("/sys/class/gpio/export", O_RDONLY), -EACCES);
  EXPECT_EQ(OpenOutcome("/sys/class/gpio/export", O_RDWR), -EACCES);
}

TEST_F(GpioTest, InputsCannotBeDriven) {
  Export("907");
  EXPECT_EQ(ReadFile(Path("direction")), "in\n");
  EXPECT_EQ(WriteFile(Path("value"), "1"), -EPERM);
  EXPECT_EQ(ReadFile(Path("value")), "0\n");
  EXPECT_EQ(tessaline_board_gpio_level(907), -1);
}

TEST_F(GpioTest, OutputsTakeTheirValue) {
  Export("907");
  EXPECT_EQ(WriteFile(Path("direction"), "out"), 3);
  EXPECT_EQ(tessaline_board_gpio_level(907), 0);
  EXPECT_EQ(WriteFile(Path("value"), "1", O_RDWR), 1);
  EXPECT_EQ(tessaline_board_gpio_level(907), 1);
  EXPECT_EQ(ReadFile(Path("value")), "1\n");
  EXPECT_EQ(WriteFile(Path("value"), "0\n", O_RDWR), 2);
  EXPECT_EQ(tessaline_board_gpio_level(907), 0);
}

TEST_F(GpioTest, DirectionWordsSetTheFirstLevel) {
  Export("907");
  EXPECT_EQ(WriteFile(Path("direction"), "high\n"), 5);
  EXPECT_EQ(tessaline_board_gpio_level(907), 1);
  EXPECT_EQ(WriteFile(Path("direction"), "low"), 3);
  EXPECT_EQ(tessaline_board_gpio_level(907), 0);
  EXPECT_EQ(WriteFile(Path("direction"), "up"), -EINVAL);
  EXPECT_EQ(WriteFile(Path("direction"), "in"), 2);
  EXPECT_EQ(tessaline_board_gpio_level(907), -1);
}

TEST_F(GpioTest, ActiveLowInvertsTheValueFile) {
  Export("907");
  WriteFile(Path("direction"), "out");
  EXPECT_EQ(WriteFile(Path("active_low"), "1"), 1);
  EXPECT_EQ(ReadFile(Path("active_low")), "1\n");
  EXPECT_EQ(ReadFile(Path("value")), "1\n");
  EXPECT_EQ(WriteFile(Path("value"), "1"), 1);
  EXPECT_EQ(tessaline_board_gpio_level(907), 0);
}

TEST_F(GpioTest, FilesOfAnEarlierExportAreDead) {
  Export("907");
  WriteFile(Path("direction"), "out");
  const Descriptor value(Path("value").c_str(), O_RDWR);
  WriteFile("/sys/class/gpio/unexport", "907");
  EXPECT_EQ(Outcome(::write(value.Get(), "1", 1)), -ENODEV);
  Export("907");
  EXPECT_EQ(Outcome(::write(value.Get(), "1", 1)), -ENODEV);
}

TEST_F(GpioTest, EveryBoardHasItsOwnLines) {
  Select("K4010");
  EXPECT_EQ(Export("907"), -EINVAL);
  for (const char* line : {"363", "364", "417", "416", "418", "0"})
    EXPECT_GT(Export(line), 0) << line;
  Select("K3920");
  for (const char* line : {"921", "934", "965", "964", "966", "969"})
    EXPECT_GT(Export(line), 0) << line;
}

TEST_F(GpioTest, TranscriptShowsFilesAndTexts) {
  Export("907");
  Export("907");
  WriteFile(Path("direction"), "out");
  WriteFile(Path("value"), "1\n");
  ReadFile(Path("value"));
  EXPECT_EQ(Transcript(),
            "gpio write export 907\n"
            "gpio write export 907 failed: EBUSY\n"
            "gpio write gpio907/direction out\n"
            "gpio write gpio907/value 1\n"
            "gpio read gpio907/value = 1\n");
}

// --- Temperature

constexpr const char* kZynqTemperature =
    "/sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw";
constexpr const char* kZynqMpTemperature = "/sys/bus/iio/devices/iio:device0/in_temp0_ps_temp_raw";

using TemperatureTest = BoardTest;

TEST_F(TemperatureTest, RawValueIsATextLine) {
  tessaline_board_set_temperature_raw(2500);
  EXPECT_EQ(ReadFile(kZynqTemperature), "2500\n");
  EXPECT_EQ(Transcript(), "iio read in_temp0_raw = 2500\n");
  EXPECT_EQ(OpenOutcome(kZynqTemperature, O_RDWR), -EACCES);
}

TEST_F(TemperatureTest, StreamsReadItToo) {
  tessaline_board_set_temperature_raw(1234);
  FILE* stream = std::fopen(kZynqTemperature, "r");
  ASSERT_NE(stream, nullptr);
  unsigned raw = 0;
  EXPECT_EQ(std::fscanf(stream, "%u", &raw), 1);
  EXPECT_EQ(std::fclose(stream), 0);
  EXPECT_EQ(raw, 1234u);
}

TEST_F(TemperatureTest, TheOtherProcessorHasTheOtherFile) {
  EXPECT_EQ(ReadFile(kZynqMpTemperature), "<ENOENT>");
  Select("K4010");
  tessaline_board_set_temperature_raw(40000);
  EXPECT_EQ(ReadFile(kZynqMpTemperature), "40000\n");
  EXPECT_EQ(ReadFile(kZynqTemperature), "<ENOENT>");
}

// --- Watchdog

class WatchdogTest : public BoardTest {
 protected:
  static constexpr double kSlack = 0.5;
  Descriptor watchdog_;

  void Open() {
    watchdog_ = Descriptor("/dev/watchdog", O_RDWR);
    ASSERT_TRUE(watchdog_.IsOpen());
  }
  long SetTimeout(int seconds) const {
    return Outcome(::ioctl(watchdog_.Get(), WDIOC_SETTIMEOUT, &seconds));
  }
  int Get(unsigned long request) const {
    int value = -1;
    EXPECT_EQ(::ioctl(watchdog_.Get(), request, &value), 0);
    return value;
  }
};

TEST_F(WatchdogTest, OpeningArmsIt) {
  EXPECT_EQ(tessaline_board_watchdog_left(), -1000);
  Open();
  EXPECT_NEAR(tessaline_board_watchdog_left(), 10, kSlack);
}

TEST_F(WatchdogTest, OneOpenAtATime) {
  Open();
  EXPECT_EQ(OpenOutcome("/dev/watchdog", O_WRONLY), -EBUSY);
  EXPECT_EQ(OpenOutcome("/dev/watchdog0", O_WRONLY), -EBUSY);
  watchdog_.Close();
  EXPECT_EQ(OpenOutcome("/dev/watchdog0", O_WRONLY), 0);
}

TEST_F(WatchdogTest, TimeoutCountsFromItsSetting) {
  Open();
  EXPECT_EQ(SetTimeout(30), 0);
  EXPECT_EQ(Get(WDIOC_GETTIMEOUT), 30);
  Pass(4000);
  EXPECT_NEAR(tessaline_board_watchdog_left(), 26, kSlack);
  EXPECT_NEAR(Get(WDIOC_GETTIMELEFT), 26, 1);
  EXPECT_EQ(SetTimeout(0), -EINVAL);
  EXPECT_EQ(SetTimeout(517), -EINVAL);
  EXPECT_EQ(Get(WDIOC_GETTIMEOUT), 30);
}

TEST_F(WatchdogTest, KeepAliveAndWritesFeed) {
  Open();
  SetTimeout(30);
  Pass(4000);
  EXPECT_EQ(::ioctl(watchdog_.Get(), WDIOC_KEEPALIVE, 0), 0);
  EXPECT_NEAR(tessaline_board_watchdog_left(), 30, kSlack);
  Pass(4000);
  EXPECT_EQ(::write(watchdog_.Get(), "x", 1), 1);
  EXPECT_NEAR(tessaline_board_watchdog_left(), 30, kSlack);
}

TEST_F(WatchdogTest, BitesAndStaysBitten) {
  Open();
  SetTimeout(3);
  Pass(4000);
  EXPECT_NEAR(tessaline_board_watchdog_left(), -1, kSlack);
  EXPECT_EQ(::ioctl(watchdog_.Get(), WDIOC_KEEPALIVE, 0), 0);
  EXPECT_LT(tessaline_board_watchdog_left(), 0);
  EXPECT_EQ(Get(WDIOC_GETTIMELEFT), 0);
}

TEST_F(WatchdogTest, OnlyTheMagicLetterStopsItAtTheClose) {
  Open();
  watchdog_.Close();
  EXPECT_GT(tessaline_board_watchdog_left(), 0);
  Open();
  EXPECT_EQ(::write(watchdog_.Get(), "V", 1), 1);
  EXPECT_EQ(::write(watchdog_.Get(), "1", 1), 1);  // cancels the magic close
  watchdog_.Close();
  EXPECT_GT(tessaline_board_watchdog_left(), 0);
  Open();
  EXPECT_EQ(::write(watchdog_.Get(), "V", 1), 1);
  watchdog_.Close();
  EXPECT_EQ(tessaline_board_watchdog_left(), -1000);
}

TEST_F(WatchdogTest, SaysWhatItCan) {
  Open();
  watchdog_info info{};
  EXPECT_EQ(::ioctl(watchdog_.Get(), WDIOC_GETSUPPORT, &info), 0);
  EXPECT_EQ(info.options,
            static_cast<unsigned>(WDIOF_SETTIMEOUT | WDIOF_KEEPALIVEPING | WDIOF_MAGICCLOSE));
  char byte = 0;
  EXPECT_EQ(Outcome(::read(watchdog_.Get(), &byte, 1)), -EINVAL);
  EXPECT_EQ(Outcome(::ioctl(watchdog_.Get(), I2C_RDWR, &info)), -ENOTTY);
}

TEST_F(WatchdogTest, TranscriptTellsItsLife) {
  Open();
  SetTimeout(30);
  ::ioctl(watchdog_.Get(), WDIOC_KEEPALIVE, 0);
  EXPECT_EQ(::write(watchdog_.Get(), "V", 1), 1);
  watchdog_.Close();
  EXPECT_EQ(Transcript(),
            "watchdog open, armed\n"
            "watchdog WDIOC_SETTIMEOUT 30\n"
            "watchdog WDIOC_KEEPALIVE\n"
            "watchdog write V\n"
            "watchdog close, stopped\n");
}

// --- DMA buffer

class UDmaBufTest : public BoardTest {
 protected:
  static constexpr std::size_t kBytes = std::size_t{512} << 20;

  static std::string Attribute(const char* name) {
    return std::string("/sys/class/u-dma-buf/udmabuf0/") + name;
  }
  static void* Map(const Descriptor& file, std::size_t length, off_t offset) {
    return ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), offset);
  }
};

TEST_F(UDmaBufTest, MappingsShareTheMemory) {
  Descriptor file("/dev/udmabuf0", O_RDWR);
  auto* first = static_cast<char*>(Map(file, 8192, 0));
  auto* second = static_cast<char*>(Map(file, 4096, 4096));
  ASSERT_NE(first, MAP_FAILED);
  ASSERT_NE(second, MAP_FAILED);
  file.Close();
  EXPECT_EQ(first[4100], 0);
  first[4100] = 7;
  EXPECT_EQ(second[4], 7);
  EXPECT_EQ(::munmap(first, 8192), 0);
  EXPECT_EQ(::munmap(second, 4096), 0);
  EXPECT_EQ(Transcript(),
            "udmabuf0 mmap 8192 at 0\n"
            "udmabuf0 mmap 4096 at 4096\n");
}

TEST_F(UDmaBufTest, MappingsEndWithTheBuffer) {
  const Descriptor file("/dev/udmabuf0", O_RDWR);
  void* whole = Map(file, kBytes, 0);
  ASSERT_NE(whole, MAP_FAILED);
  EXPECT_EQ(::munmap(whole, kBytes), 0);
  EXPECT_EQ(Map(file, kBytes + 4096, 0), MAP_FAILED);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(Map(file, 4096, static_cast<off_t>(kBytes)), MAP_FAILED);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(Map(file, 0, 0), MAP_FAILED);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(UDmaBufTest, AttributesKeepTheirNumbers) {
  EXPECT_EQ(ReadFile(Attribute("size")), "536870912\n");
  EXPECT_EQ(ReadFile(Attribute("phys_addr")), "0x0000000020000000\n");
  EXPECT_EQ(WriteFile(Attribute("sync_offset"), "4456448"), 7);
  EXPECT_EQ(ReadFile(Attribute("sync_offset")), "4456448\n");
  EXPECT_EQ(WriteFile(Attribute("sync_direction"), "2"), 1);
  EXPECT_EQ(WriteFile(Attribute("sync_direction"), "3"), -EINVAL);
  EXPECT_EQ(ReadFile(Attribute("sync_direction")), "2\n");
  EXPECT_EQ(WriteFile(Attribute("sync_mode"), "8"), -EINVAL);
  EXPECT_EQ(WriteFile(Attribute("size"), "1"), -EACCES);
  EXPECT_EQ(OpenOutcome(Attribute("sync_owner_of_all"), O_RDONLY), -ENOENT);
}

TEST_F(UDmaBufTest, SyncBeyondTheBufferFails) {
  WriteFile(Attribute("sync_offset"), "4096");
  WriteFile(Attribute("sync_size"), "536870912");
  EXPECT_EQ(WriteFile(Attribute("sync_for_cpu"), "1"), -EINVAL);
  EXPECT_EQ(WriteFile(Attribute("sync_for_cpu"), "0"), 1);
  WriteFile(Attribute("sync_size"), "8");
  EXPECT_EQ(WriteFile(Attribute("sync_for_device"), "1"), 1);
}

TEST_F(UDmaBufTest, OneDescriptorTakesManyWrites) {
  const Descriptor file(Attribute("sync_offset").c_str(), O_WRONLY);
  EXPECT_EQ(::write(file.Get(), "16", 2), 2);
  EXPECT_EQ(::write(file.Get(), "0", 1), 1);
  EXPECT_EQ(ReadFile(Attribute("sync_offset")), "0\n");
  char byte = 0;
  EXPECT_EQ(Outcome(::read(file.Get(), &byte, 1)), -EBADF);
  EXPECT_THAT(Transcript(), HasSubstr("udmabuf0 write sync_offset 16\n"));
}

// --- Interrupts

class UioTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    SetRegister(VeltranoSDK::fpga::kReg.IRQ_CTRL, 5);  // both interrupts enabled
  }

  static long ReadCount(int fd) {
    std::uint32_t count = 0;
    const ssize_t result = ::read(fd, &count, sizeof(count));
    return result == sizeof(count) ? static_cast<long>(count) : -errno;
  }
  static long Enable(int fd, std::int32_t value) {
    return Outcome(::write(fd, &value, sizeof(value)));
  }
  static short Ready(int fd) {
    pollfd entry{fd, POLLIN | POLLOUT, 0};
    EXPECT_GE(::poll(&entry, 1, 0), 0);
    return entry.revents;
  }
};

TEST_F(UioTest, ReadReturnsTheCountOnce) {
  const Descriptor file("/dev/uio1", O_RDWR | O_NONBLOCK);
  EXPECT_EQ(ReadCount(file.Get()), -EAGAIN);
  tessaline_board_da_arrived();
  EXPECT_EQ(Ready(file.Get()), POLLIN);
  EXPECT_EQ(ReadCount(file.Get()), 1);
  EXPECT_EQ(ReadCount(file.Get()), -EAGAIN);
  EXPECT_EQ(Ready(file.Get()), 0);
}

TEST_F(UioTest, OnlyFourBytes) {
  const Descriptor file("/dev/uio0", O_RDWR | O_NONBLOCK);
  std::uint64_t buffer = 0;
  EXPECT_EQ(Outcome(::read(file.Get(), &buffer, 8)), -EINVAL);
  EXPECT_EQ(Outcome(::read(file.Get(), &buffer, 2)), -EINVAL);
  EXPECT_EQ(Outcome(::write(file.Get(), &buffer, 8)), -EINVAL);
}

TEST_F(UioTest, FurtherInterruptsWaitForTheEnabling) {
  const Descriptor file("/dev/uio1", O_RDWR | O_NONBLOCK);
  for (int i = 0; i < 3; ++i) tessaline_board_da_arrived();
  EXPECT_EQ(tessaline_board_interrupts(1), 3u);
  EXPECT_EQ(ReadCount(file.Get()), 1);
  EXPECT_EQ(ReadCount(file.Get()), -EAGAIN);
  EXPECT_EQ(Enable(file.Get(), 1), 4);
  EXPECT_EQ(ReadCount(file.Get()), 2);  // the two pending interrupts became one
  EXPECT_EQ(Enable(file.Get(), 1), 4);
  EXPECT_EQ(ReadCount(file.Get()), -EAGAIN);
}

TEST_F(UioTest, WritingZeroMasks) {
  const Descriptor file("/dev/uio1", O_RDWR | O_NONBLOCK);
  EXPECT_EQ(Enable(file.Get(), 0), 4);
  tessaline_board_da_arrived();
  EXPECT_EQ(ReadCount(file.Get()), -EAGAIN);
  EXPECT_EQ(Enable(file.Get(), 1), 4);
  EXPECT_EQ(ReadCount(file.Get()), 1);
}

TEST_F(UioTest, EveryDescriptorSeesTheInterrupt) {
  const Descriptor early("/dev/uio1", O_RDWR | O_NONBLOCK);
  tessaline_board_da_arrived();
  const Descriptor late("/dev/uio1", O_RDWR | O_NONBLOCK);
  EXPECT_EQ(ReadCount(early.Get()), 1);
  EXPECT_EQ(ReadCount(late.Get()), -EAGAIN);  // it was not open then
}

TEST_F(UioTest, ReadBlocksUntilTheInterrupt) {
  const Descriptor file("/dev/uio0", O_RDWR);
  std::atomic<long> count{0};
  std::thread reader([&] { count = ReadCount(file.Get()); });
  ReallyWait(milliseconds(20));
  EXPECT_EQ(count, 0);
  tessaline_board_external_trigger(1);
  reader.join();
  EXPECT_EQ(count, 1);
  EXPECT_EQ(Transcript(), "uio0 read = 1\n");
}

TEST_F(UioTest, BlockedReaderCanBeCancelled) {
  const Descriptor file("/dev/uio0", O_RDWR);
  static int descriptor;
  descriptor = file.Get();
  pthread_t reader{};
  ASSERT_EQ(pthread_create(
                &reader, nullptr,
                [](void*) -> void* {
                  ReadCount(descriptor);
                  return nullptr;
                },
                nullptr),
            0);
  ReallyWait(milliseconds(20));
  ASSERT_EQ(pthread_cancel(reader), 0);
  void* result = nullptr;
  ASSERT_EQ(pthread_join(reader, &result), 0);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  // No lock was left held.
  tessaline_board_external_trigger(1);
  EXPECT_EQ(ReadCount(file.Get()), 1);
}

TEST_F(UioTest, UnpluggingEndsABlockedRead) {
  const Descriptor file("/dev/uio0", O_RDWR);
  std::atomic<long> result{0};
  std::thread reader([&] { result = ReadCount(file.Get()); });
  ReallyWait(milliseconds(20));
  tessaline_board_unplug();
  for (int i = 0; i < 200 && result == 0; ++i) ReallyWait(milliseconds(10));
  if (result == 0) pthread_cancel(reader.native_handle());
  reader.join();
  EXPECT_EQ(result, -ENODEV);
  EXPECT_EQ(ReadCount(file.Get()), -ENODEV);
}

}  // namespace
