// Null pointers in the control interface are refused, and change nothing.
#include <errno.h>
#include <gtest/gtest.h>

#include "BoardFixture.h"

namespace board_test {
namespace {

using NullPointers = BoardTest;

constexpr unsigned kWidth = 1456;
constexpr unsigned kHeight = 1088;

TEST_F(NullPointers, AreNoBoard) {
  EXPECT_EQ(tessaline_board_select(nullptr), -1);
  EXPECT_EQ(tessaline_board_set_optics(nullptr), -1);
  EXPECT_EQ(tessaline_board_set_scene(nullptr), -1);
  EXPECT_EQ(tessaline_board_replay(nullptr), -1);
}

TEST_F(NullPointers, AreNoFile) {
  errno = 0;
  EXPECT_EQ(tessaline_board_transcript_save(nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
}

TEST_F(NullPointers, AreNoDevice) {
  EXPECT_EQ(tessaline_board_set_poll(nullptr, 0), -1);
  EXPECT_EQ(tessaline_board_open_files(nullptr), -1);
}

TEST_F(NullPointers, AreNoFault) {
  tessaline_board_fault(nullptr, "open", 0, 0, EIO);
  tessaline_board_fault("i2c-0", nullptr, 0, 0, EIO);
  EXPECT_TRUE(Descriptor("/dev/i2c-0", O_RDWR).IsOpen());
}

TEST_F(NullPointers, AreNoChip) {
  EXPECT_EQ(tessaline_board_chip_get(nullptr, 0), -1);
  EXPECT_EQ(tessaline_board_chip_set(nullptr, 0, 0), -1);
  EXPECT_EQ(tessaline_board_chip_present(nullptr, 0), -1);
}

TEST_F(NullPointers, ReceiveNothing) {
  tessaline_board_stream_stats(0, nullptr);
  EXPECT_EQ(tessaline_board_frame_checksum(1, nullptr), -1);
  EXPECT_EQ(tessaline_board_checksum(nullptr, 1), 0u);
  double millimetres = 7;
  EXPECT_EQ(tessaline_board_point_to_mm(0, 0, nullptr, &millimetres), -1);
  EXPECT_EQ(tessaline_board_point_to_mm(0, 0, &millimetres, nullptr), -1);
  EXPECT_EQ(tessaline_board_head_to_mm(1, kWidth, kHeight, 0, 0, nullptr, &millimetres), -1);
  EXPECT_EQ(tessaline_board_head_to_mm(1, kWidth, kHeight, 0, 0, &millimetres, nullptr), -1);
  EXPECT_EQ(millimetres, 7);
  float row = 7;
  EXPECT_EQ(tessaline_board_head_line(1, kWidth, kHeight, nullptr, 1, 0, &row, 1), -1);
  EXPECT_EQ(tessaline_board_head_line(1, kWidth, kHeight, "belt", 1, 0, nullptr, 1), -1);
  EXPECT_EQ(row, 7);
}

}  // namespace
}  // namespace board_test
