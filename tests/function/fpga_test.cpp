// Word access to the FPGA's registers, through the exported functions.
#include "tessaline/fpga.h"

#include <errno.h>
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/BoardFixture.h"
#include "tessaline/log.h"

namespace tessaline_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned int kImageBlock1 = 0x43C10000;
constexpr unsigned int kTriSpacing = 2;
constexpr unsigned int kFailed = 0xFFFFFFFF;

class FpgaAccess : public BoardFixture {
 protected:
  FpgaAccess() : BoardFixture("K3610") {}
  void SetUp() override {
    BoardFixture::SetUp();
    log_set_quiet(true);
  }
};

TEST_F(FpgaAccess, ReadsBackWhatWasWritten) {
  EXPECT_EQ(fpga_write_addr(kImageBlock1, kTriSpacing, 200000), 0u);
  EXPECT_EQ(fpga_read_addr(kImageBlock1, kTriSpacing), 200000u);
  EXPECT_THAT(Accesses(),
              ElementsAre(Wrote(fpga::TRI_SPACING, 200000), Read(fpga::TRI_SPACING, 200000)));
}

std::vector<std::string> logged;

TEST_F(FpgaAccess, LogsTheByteAddress) {
  log_add_callback(
      [](log_Event* event) {
        char text[64];
        vsnprintf(text, sizeof text, event->fmt, event->ap);
        logged.emplace_back(text);
      },
      nullptr, LOG_TRACE);
  fpga_write_addr(0x83C50000, 21, 1);
  fpga_read_addr(0x83C50000, 21);
  EXPECT_THAT(logged, ElementsAre("fpga_write_addr: 83c50054", "fpga_read_addr: 83c50054"));
}

TEST_F(FpgaAccess, RefusesAWordOutsideTheMapping) {
  EXPECT_EQ(fpga_read_addr(kImageBlock1, 63), kFailed);
  EXPECT_EQ(fpga_write_addr(kImageBlock1, 1u << 30, 1), kFailed);
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(FpgaAccess, AnUnmappableBlockReadsAsAllOnes) {
  EXPECT_EQ(fpga_read_addr(0x43C00400, 0), kFailed);
  EXPECT_EQ(fpga_read_addr(kImageBlock1, kTriSpacing), 0u);
}

TEST_F(FpgaAccess, AFailedOpenIsFinal) {
  tessaline_board_fault("fpga", "open", 0, 1, EACCES);
  EXPECT_EQ(fpga_write_addr(kImageBlock1, kTriSpacing, 1), kFailed);
  EXPECT_EQ(Printed(), "open(/dev/mem) failed.");
  EXPECT_EQ(pthread_mutex_trylock(&fpga_contol), EBUSY);
  // For the tests that run in this process after this one.
  pthread_mutex_unlock(&fpga_contol);
}

}  // namespace
}  // namespace tessaline_test
