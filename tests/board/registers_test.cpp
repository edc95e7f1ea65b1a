#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <string_view>
#include <thread>

#include "support/BoardFixture.h"

namespace {

using namespace tessaline_test;  // NOLINT(google-build-using-namespace)
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::size_t kMapped = 255;

// One register access, made as drivers make it.
class Access {
 public:
  explicit Access(std::uint32_t block_base) : fd_(open("/dev/mem", O_RDWR)) {
    address_ = mmap(nullptr, kMapped, PROT_READ | PROT_WRITE, MAP_SHARED, fd_,
                    static_cast<off_t>(block_base));
  }
  ~Access() {
    if (Mapped()) munmap(address_, kMapped);
    close(fd_);
  }
  bool Mapped() const { return address_ != MAP_FAILED; }
  volatile std::uint32_t& Word(const fpga::Register& reg) const {
    return static_cast<volatile std::uint32_t*>(address_)[reg.Index()];
  }

 private:
  int fd_;
  void* address_;
};

std::uint32_t ReadWord(const fpga::Register& reg, fpga::RegionBases bases = fpga::kZynqRegions) {
  return Access(fpga::BaseAddress(reg.block, bases)).Word(reg);
}

void WriteWord(const fpga::Register& reg, std::uint32_t value,
               fpga::RegionBases bases = fpga::kZynqRegions) {
  Access(fpga::BaseAddress(reg.block, bases)).Word(reg) = value;
}

class Registers : public BoardFixture {
 protected:
  Registers() : BoardFixture("K3610") {}
};

TEST_F(Registers, KeepWhatIsWrittenAndTheTranscriptNamesEachAccess) {
  WriteWord(fpga::kReg.TRI_SPACING, 0x30d40);
  EXPECT_EQ(ReadWord(fpga::kReg.TRI_SPACING), 0x30d40u);
  EXPECT_THAT(Events(), ElementsAre("fpga write IMAGE_BLOCK_1 TRI_SPACING = 0x00030d40",
                                    "fpga read IMAGE_BLOCK_1 TRI_SPACING = 0x00030d40"));
}

// As crash reporters and Python's faulthandler do it: says so, puts the handler before it back and
// raises the signal again.
struct sigaction before_reporter;

void InstallReporter() {
  struct sigaction action {};
  action.sa_handler = [](int number) {
    static constexpr std::string_view kSaid = "reported\n";
    [[maybe_unused]] const ssize_t done = write(STDERR_FILENO, kSaid.data(), kSaid.size());
    sigaction(number, &before_reporter, nullptr);
    raise(number);
  };
  action.sa_flags = SA_NODEFER;
  sigaction(SIGSEGV, &action, &before_reporter);
}

TEST_F(Registers, AreSeenBehindAHandlerThatTheProgramInstalledLater) {
  WriteWord(fpga::kReg.TRI_SPACING, 1);
  InstallReporter();
  WriteWord(fpga::kReg.TRI_SPACING, 0x30d40);
  EXPECT_EQ(ReadWord(fpga::kReg.TRI_SPACING), 0x30d40u);
}

TEST_F(Registers, AreNoneOfAFaultThatTheProgramsOwnHandlerReports) {
  const auto crash = [] {
    signal(SIGSEGV, SIG_DFL);  // a sanitizer has its own handler
    WriteWord(fpga::kReg.TRI_SPACING, 1);
    InstallReporter();
    WriteWord(fpga::kReg.TRI_SPACING, 2);
    *reinterpret_cast<volatile int*>(std::uintptr_t{8}) = 1;
  };
  EXPECT_EXIT(crash(), ::testing::KilledBySignal(SIGSEGV), "^reported\n$");
}

TEST_F(Registers, AWriteOfTheValueThatIsThereAlreadyIsSeen) {
  WriteWord(fpga::kReg.TRI_DELAY, 0);
  EXPECT_THAT(Events(), ElementsAre("fpga write IMAGE_BLOCK_3 TRI_DELAY = 0x00000000"));
}

TEST_F(Registers, ThatNobodyNamedAreCalledByTheirOffset) {
  const fpga::Register unnamed{fpga::Block::kImage1, 0x78, ""};
  WriteWord(unnamed, 5);
  EXPECT_THAT(Events(), ElementsAre("fpga write IMAGE_BLOCK_1 0x78 = 0x00000005"));
}

TEST_F(Registers, OfTheFpgaOwnCannotBeWritten) {
  const std::uint32_t version = ReadWord(fpga::kReg.FPGA_VERSION);
  WriteWord(fpga::kReg.FPGA_VERSION, version + 1);
  EXPECT_EQ(ReadWord(fpga::kReg.FPGA_VERSION), version);
  EXPECT_NE(version, 0u);
}

TEST_F(Registers, TimerCountsTwentyNanosecondTicksOfTheSleptTime) {
  const std::uint32_t before = ReadWord(fpga::kReg.TIMER_COUNTER_L);
  usleep(1'000'000);
  const std::uint32_t ticks = ReadWord(fpga::kReg.TIMER_COUNTER_L) - before;
  EXPECT_GE(ticks, 50'000'000u);
  EXPECT_LT(ticks, 100'000'000u);
}

TEST_F(Registers, EncoderCountsWithTheBelt) {
  const std::uint32_t before = ReadWord(fpga::kReg.ENCODER_COUNTER_L);
  usleep(2'000'000);
  const std::uint32_t counts = ReadWord(fpga::kReg.ENCODER_COUNTER_L) - before;
  EXPECT_GE(counts, 2 * ReadWord(fpga::kReg.ENCODER_FREQ));
}

TEST_F(Registers, SeveralWordsOfOneMappingAreAllWritten) {
  {
    const Access image(fpga::BaseAddress(fpga::Block::kImage1, fpga::kZynqRegions));
    image.Word(fpga::kReg.TRI_SPACING) = 7;
    image.Word(fpga::kReg.IMG_FILTER_WIDTH) = 8;
  }
  EXPECT_EQ(Get(fpga::kReg.TRI_SPACING), 7u);
  EXPECT_EQ(Get(fpga::kReg.IMG_FILTER_WIDTH), 8u);
}

TEST_F(Registers, OneBlockHasTwoNames) {
  Set(fpga::kReg.STRIP_SELECTOR_IMAGE_WIDTH, 1456);
  const fpga::Register other{fpga::Block::kRebuild6B, fpga::kReg.STRIP_SELECTOR_IMAGE_WIDTH.offset,
                             ""};
  EXPECT_EQ(Get(other), 1456u);
}

TEST_F(Registers, LieWhereTheBoardFamilyHasThem) {
  EXPECT_FALSE(Access(fpga::kZynqMpRegions.image).Mapped());
  ASSERT_EQ(tessaline_board_select("K4010"), 0);
  WriteWord(fpga::kReg.TRI_SPACING, 3, fpga::kZynqMpRegions);
  EXPECT_EQ(Get(fpga::kReg.TRI_SPACING), 3u);
  EXPECT_FALSE(Access(fpga::kZynqRegions.image).Mapped());
}

TEST_F(Registers, NoBlockMeansNoMapping) {
  const Access gap(fpga::kZynqRegions.rebuild + 0x30000);
  EXPECT_FALSE(gap.Mapped());
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Registers, CanBeOutOfReach) {
  tessaline_board_fault("fpga", "open", 1, 1, EACCES);
  ReadWord(fpga::kReg.TRI_SPACING);
  EXPECT_EQ(open("/dev/mem", O_RDWR), -1);
  EXPECT_EQ(errno, EACCES);
  ReadWord(fpga::kReg.TRI_SPACING);
}

TEST_F(Registers, LostTriggersAreCountedUntilReset) {
  Set(fpga::kReg.XTRIG_LOST_STA, 3);
  WriteWord(fpga::kReg.LASER_CTRL, 1);
  EXPECT_EQ(Get(fpga::kReg.XTRIG_LOST_STA), 0u);
}

TEST_F(Registers, AccessFromManyThreadsLosesNothing) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      const fpga::Register mine = fpga::StripRebuild(static_cast<std::size_t>(t));
      for (std::uint32_t i = 1; i <= kRounds; ++i) {
        WriteWord(mine, i);
        EXPECT_EQ(ReadWord(mine), i);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Events().size(), 2u * kThreads * kRounds);
}

TEST_F(Registers, AForkedProcessHasItsOwnBoard) {
  WriteWord(fpga::kReg.TRI_SPACING, 1);
  const pid_t child = fork();
  if (child == 0) {
    const bool inherited = ReadWord(fpga::kReg.TRI_SPACING) == 1;
    WriteWord(fpga::kReg.TRI_SPACING, 2);
    _exit(inherited && ReadWord(fpga::kReg.TRI_SPACING) == 2 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadWord(fpga::kReg.TRI_SPACING), 1u);
}

TEST_F(Registers, SomebodyElsesFaultStillEndsTheProcess) {
  ReadWord(fpga::kReg.TRI_SPACING);  // the board's handler is in place
  EXPECT_DEATH(*const_cast<volatile int*>(static_cast<int*>(nullptr)) = 1, "")
      << "an ordinary bug must not be swallowed";
}

TEST_F(Registers, RamBelowOneGigabyteCanBeMappedAndIsShared) {
  const int fd = open("/dev/mem", O_RDWR | O_NONBLOCK);
  const auto map = [fd](off_t at) {
    return static_cast<char*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, at));
  };
  char* one = map(0x1000'0000);
  char* two = map(0x1000'0000);
  ASSERT_NE(one, MAP_FAILED);
  ASSERT_NE(two, MAP_FAILED);
  one[7] = 'x';
  EXPECT_EQ(two[7], 'x');
  EXPECT_EQ(map(0x4000'0000), MAP_FAILED);
  munmap(one, 4096);
  munmap(two, 4096);
  close(fd);
}

TEST_F(Registers, TheTranscriptCanBeSwitchedOffAndCleared) {
  tessaline_board_transcript_enable(0);
  ReadWord(fpga::kReg.TRI_SPACING);
  EXPECT_THAT(Events(), IsEmpty());
  tessaline_board_transcript_enable(1);
  ReadWord(fpga::kReg.TRI_SPACING);
  tessaline_board_transcript_clear();
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(Registers, TheJsonTranscriptSaysWhenAndWho) {
  WriteWord(fpga::kReg.TRI_SPACING, 1);
  char* text = tessaline_board_transcript(TESSALINE_BOARD_JSON_LINES);
  EXPECT_THAT(text, ::testing::MatchesRegex(
                        "\\{\"time_us\":[0-9.]+,\"thread\":[0-9]+,\"device\":\"fpga\","
                        "\"event\":\"write IMAGE_BLOCK_1 TRI_SPACING = 0x00000001\"\\}\n"));
  free(text);
}

TEST(Unplugged, NothingIsInterposed) {
  EXPECT_EQ(tessaline_board_select("X999"), -1);
  EXPECT_EQ(open("/dev/video1", O_RDWR), -1);
  EXPECT_EQ(tessaline_board_register_get(0, 0), 0xFFFFFFFFu);
}

TEST(Unplugged, AnOpenDescriptorHasNoDeviceAnyMore) {
  ASSERT_EQ(tessaline_board_select("K3610"), 0);
  const int fd = open("/dev/mem", O_RDWR);
  ASSERT_GE(fd, 0);
  tessaline_board_unplug();
  EXPECT_EQ(mmap(nullptr, 255, PROT_READ, MAP_SHARED, fd, 0x43C00000), MAP_FAILED);
  EXPECT_EQ(errno, ENODEV);
  EXPECT_EQ(close(fd), 0);
}

}  // namespace
