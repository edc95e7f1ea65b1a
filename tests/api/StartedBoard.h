#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "support/BoardFixture.h"
#include "support/LoggedLines.h"
#include "support/Waiting.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

// A board (K3610 by default) after start-up, with nothing printed and an empty transcript. The
// acquisition is stopped, so no frames arrive.
class StartedBoard : public BoardFixture {
 protected:
  explicit StartedBoard(const char* model = "K3610") : BoardFixture(model), model_(model) {}

  void SetUp() override {
    BoardFixture::SetUp();
    ASSERT_EQ(GetLibVersion(model_), 41915);
    ASSERT_EQ(RegisterHardwareInit(), 0);
    tessaline_board_transcript_clear();
    Printed();
    errors_at_start_ = errors_.lines().size();
  }

  // ERROR messages since start-up.
  std::vector<std::string> Errors() const {
    auto lines = errors_.lines();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(errors_at_start_));
    return lines;
  }

 private:
  const char* model_;
  const LoggedErrors errors_;  // sinks are added before any thread logs
  std::size_t errors_at_start_ = 0;
};

}  // namespace tessaline_test
