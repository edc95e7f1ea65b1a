// Register access on the four regions, as the kernel allows it.
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "tessaline/fpga.h"
#include "tessaline/register_map.h"
#include "tessaline/tessaline.h"

namespace {

using namespace VeltranoSDK::fpga;

constexpr unsigned kNobody = 0xFFFFFFFFu;

// The memory behind a register, read without the library.
class Memory {
 public:
  explicit Memory(std::uint32_t address) {
    const int fd = open("/dev/mem", O_RDWR | O_SYNC);
    page_ = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, address);
    close(fd);
  }
  ~Memory() { munmap(page_, 4096); }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  bool IsThere() const { return page_ != MAP_FAILED; }
  volatile std::uint32_t& operator[](unsigned word) const {
    return static_cast<volatile std::uint32_t*>(page_)[word];
  }

 private:
  void* page_;
};

class EveryBlock : public ::testing::TestWithParam<RegionBases> {};

TEST_P(EveryBlock, KeepsWhatIsWritten) {
  log_set_quiet(true);
  for (unsigned block = 0; block + 1 < kBlockCount; ++block) {
    const std::uint32_t base = BaseAddress(static_cast<Block>(block), GetParam());
    const Memory memory(base);
    ASSERT_TRUE(memory.IsThere());
    for (unsigned word = 0; word < 0x20; ++word) {
      const std::uint32_t value = base ^ (word * 0x01010101u);
      EXPECT_EQ(fpga_write_addr(base, word, value), 0u);
      EXPECT_EQ(memory[word], value) << std::hex << base << " word " << word;
      memory[word] = ~value;
      EXPECT_EQ(fpga_read_addr(base, word), ~value) << std::hex << base << " word " << word;
      memory[word] = 0;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Registers, EveryBlock, ::testing::Values(kZynqRegions, kZynqMpRegions),
                         [](const auto& row) { return row.index == 0 ? "Zynq" : "ZynqMp"; });

TEST(Registers, OrdinaryMemoryIsRefused) {
  log_set_quiet(true);
  constexpr std::uint32_t kOfTheKernel = 0x50000000;
  EXPECT_FALSE(Memory(kOfTheKernel).IsThere());
  EXPECT_EQ(fpga_read_addr(kOfTheKernel, 0), kNobody);
  EXPECT_EQ(fpga_write_addr(kOfTheKernel, 0, 0), kNobody);
  // The open did not fail, so registers can still be accessed.
  EXPECT_EQ(fpga_write_addr(kZynqRegions.image, 0, 7), 0u);
  EXPECT_EQ(fpga_read_addr(kZynqRegions.image, 0), 7u);
}

TEST(Registers, AWordOutsideTheMappingIsNotTouched) {
  log_set_quiet(true);
  const Memory memory(kZynqRegions.image);
  memory[0x40] = 0x1234;
  EXPECT_EQ(fpga_read_addr(kZynqRegions.image, 0x40), kNobody);
  EXPECT_EQ(fpga_write_addr(kZynqRegions.image, 0x40, 1), kNobody);
  EXPECT_EQ(memory[0x40], 0x1234u);
}

// Runs in its own process, because the failure is final. It is reported, and every later access
// waits for ever.
template <typename Hide>
void ExpectTheFirstAccessToFailAndTheNextToBlock(Hide hide_memory) {
  log_set_quiet(true);
  int answer[2];
  ASSERT_EQ(pipe(answer), 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(answer[1], STDOUT_FILENO);
    if (hide_memory() != 0) _exit(9);
    const unsigned value = fpga_read_addr(kZynqRegions.image, 0);
    if (value != kNobody) _exit(8);
    alarm(1);  // the access is blocked by then
    fpga_read_addr(kZynqRegions.image, 0);
    _exit(7);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status)) << "ended with " << WEXITSTATUS(status);
  char text[64] = {};
  EXPECT_GT(read(answer[0], text, sizeof text - 1), 0);
  EXPECT_STREQ(text, "open(/dev/mem) failed.");
}

TEST(Registers, WithoutTheRightToOpenMemoryTheFirstAccessFailsAndTheNextBlocks) {
  ExpectTheFirstAccessToFailAndTheNextToBlock([] { return setuid(1000); });
}

TEST(Registers, WithoutTheDeviceTheFirstAccessFailsAndTheNextBlocks) {
  constexpr const char *kDevice = "/dev/mem", *kElsewhere = "/dev/mem.away";
  ASSERT_EQ(access(kDevice, F_OK), 0);
  ExpectTheFirstAccessToFailAndTheNextToBlock([=] { return rename(kDevice, kElsewhere); });
  EXPECT_EQ(rename(kElsewhere, kDevice), 0);
}

TEST(Registers, LeaveNoDescriptorAndNoMapping) {
  log_set_quiet(true);
  const auto mappings = [] {
    int lines = 0;
    FILE* maps = fopen("/proc/self/maps", "r");
    for (int c; (c = fgetc(maps)) != EOF;) lines += c == '\n';
    fclose(maps);
    return lines;
  };
  fpga_read_addr(kZynqMpRegions.image, 0);
  const int before = mappings();
  const int descriptor = dup(0);
  close(descriptor);
  for (int i = 0; i < 300; ++i) fpga_read_addr(kZynqMpRegions.image, 0);
  EXPECT_EQ(mappings(), before);
  EXPECT_EQ(dup(0), descriptor);
}

}  // namespace
