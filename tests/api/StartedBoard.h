#pragma once

#include "support/BoardFixture.h"
#include "support/Waiting.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

// A K3610 board after start-up, with nothing printed and an empty transcript. The
// acquisition is stopped: no frames come.
class StartedBoard : public BoardFixture {
 protected:
  StartedBoard() : BoardFixture("K3610") {}

  void SetUp() override {
    BoardFixture::SetUp();
    ASSERT_EQ(GetLibVersion("K3610"), 41915);
    log_set_quiet(true);
    ASSERT_EQ(RegisterHardwareInit(), 0);
    tessaline_board_transcript_clear();
    Printed();
  }
};

}  // namespace tessaline_test
