// Compares the start-up of every product on the kernel with the virtual board's record of it
// (tests/golden). The differences and their reasons are below and in docs/kernel-board.md.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/Files.h"
#include "support/StartUpSections.h"
#include "support/Started.h"
#include "tessaline/register_map.h"

namespace {

using namespace kernel_test;
namespace fpga = VeltranoSDK::fpga;

void SetRegister(fpga::Block block, fpga::RegionBases family, unsigned offset,
                 std::uint32_t value) {
  static const int memory = open("/dev/mem", O_RDWR | O_SYNC);
  void* page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, memory,
                    fpga::BaseAddress(block, family));
  ASSERT_NE(page, MAP_FAILED);
  static_cast<volatile std::uint32_t*>(page)[offset / 4] = value;
  munmap(page, 4096);
}

// Sets the FPGA's power-up values in memory, which has none itself. Resets the sensors and
// unexports all lines.
void PowerUp() {
  constexpr unsigned kWords = 64;
  const std::pair<fpga::Register, std::uint32_t> values[] = {
      {fpga::kReg.EXP_TIME_1, 100},      {fpga::kReg.EXP_TIME_2, 100},
      {fpga::kReg.EXP_TIME_3, 100},      {fpga::kReg.EXP_TIME_4, 100},
      {fpga::kReg.EXP_TIME_5, 100},      {fpga::kReg.EXPOSURE_NUM, 1},
      {fpga::kReg.RIS_THRESHOLD, 30},    {fpga::kReg.STRIP_WIDTH_MIN, 1},
      {fpga::kReg.STRIP_WIDTH_MAX, 128},
  };
  for (const auto& family : {fpga::kZynqRegions, fpga::kZynqMpRegions}) {
    for (unsigned block = 0; block + 1 < fpga::kBlockCount; ++block) {
      for (unsigned word = 0; word < kWords; ++word) {
        SetRegister(static_cast<fpga::Block>(block), family, 4 * word, 0);
      }
    }
    for (const auto& [reg, value] : values) SetRegister(reg.block, family, reg.offset, value);
  }
  ASSERT_TRUE(WriteFile("/sys/module/board_i2c/parameters/reset", "1"));
  // Lines that an earlier process exported are still exported.
  for (const char* line : {"0", "363", "364", "416", "417", "418"}) {
    WriteFile("/sys/class/gpio/unexport", line);
  }
}

// Leaves out what the kernel does not determine: the answers of the chips on the buses, and whether
// the sensor boards' GPIO numbers above 511 exist. Both sides are converted in this way.
std::string Comparable(std::string line) {
  static const std::regex i2c_answer("(; r 0x[0-9a-f]+)( [0-9a-f]{2})+");
  static const std::regex spi_answer("( rx)( [0-9a-f]{2})+");
  line = std::regex_replace(line, i2c_answer, "$1 ..");
  line = std::regex_replace(line, spi_answer, "$1 ..");
  return line;
}

bool IsCompared(const std::string& line, bool has_lines) {
  return has_lines || !line.starts_with("gpio ");
}

// The IMX252's self-test triggers an image, waits 10 ms for it, and tries again if none has
// arrived. What follows depends on the speed of the machine. It is the sensor's last step.
constexpr const char* kSelfTestWaits = "sleep 10000";

std::vector<std::string> Lines(const std::string& text, const Product& product) {
  const std::string_view model = product.model;
  const bool has_lines = model.starts_with("K40");
  bool in_self_test = false;
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    if (line.starts_with("# ")) in_self_test = false;
    if (IsCompared(line, has_lines) && !in_self_test) lines.push_back(Comparable(line));
    in_self_test = in_self_test || (model.starts_with("K37") && line == kSelfTestWaits);
  }
  return lines;
}

std::string Recorded(const char* model) {
  const std::string name = std::string("transcript_") + model + ".txt";
  const std::string file = "/tmp/" + name;
  const pid_t child = fork();
  if (child == 0) {
    setenv("LD_PRELOAD", "/lib/libkernel_recorder.so", 1);
    setenv("RECORDER_FILE", file.c_str(), 1);
    execl("/checks/kernel_start", "kernel_start", model, nullptr);
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  std::istringstream stream(ReadFile(file));
  tessaline_test::StartUpSections sections;
  for (std::string line; std::getline(stream, line);) sections.Add(line);
  std::ofstream("/share/" + name) << sections.Text();
  return sections.Text();
}

class Transcript : public ::testing::TestWithParam<Product> {};

TEST_P(Transcript, IsThatOfTheVirtualBoard) {
  const Product& product = GetParam();
  PowerUp();
  PutOnSpiBus1(product.model);
  Frames fed(product);
  const auto actual = Lines(Recorded(product.model), product);
  const auto expected =
      Lines(ReadFile(std::string("/golden/startup_") + product.model + ".txt"), product);
  ASSERT_FALSE(expected.empty());
  EXPECT_EQ(actual.size(), expected.size());
  unsigned differences = 0;
  for (std::size_t i = 0; i < std::min(actual.size(), expected.size()); ++i) {
    if (actual[i] == expected[i]) continue;
    ADD_FAILURE() << "line " << i << "\n    board  " << expected[i] << "\n    kernel " << actual[i];
    if (++differences == 8) break;
  }
}

INSTANTIATE_TEST_SUITE_P(StartUp, Transcript,
                         ::testing::Values(kK3610, kK3710, kK3810, kK3820, kK3920, kK4010),
                         [](const auto& row) { return std::string(row.param.model); });

}  // namespace
