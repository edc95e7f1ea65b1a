#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tessaline/board.h"
#include "tessaline/register_map.h"

namespace tessaline_test {

namespace fpga = VeltranoSDK::fpga;

// --- Lines of the transcript, to compare with --------------------------------------------

inline std::string AccessLine(std::string_view kind, const fpga::Register& reg,
                              std::uint32_t value) {
  char digits[16];
  snprintf(digits, sizeof digits, "0x%08x", value);
  std::ostringstream line;
  line << kind << ' ' << fpga::Info(reg.block).name << ' ' << reg.name.View() << " = " << digits;
  return line.str();
}

inline std::string Wrote(const fpga::Register& reg, std::uint32_t value) {
  return AccessLine("write", reg, value);
}

inline std::string Read(const fpga::Register& reg, std::uint32_t value) {
  return AccessLine("read", reg, value);
}

inline std::string Slept(unsigned microseconds) { return "sleep " + std::to_string(microseconds); }

// A freshly powered board for every test, with sleeps skipped. Collects what the process prints:
// Printed() returns it, and a failing test shows all of it.
class BoardFixture : public ::testing::Test {
 protected:
  explicit BoardFixture(const char* model) : model_(model) {}

  void SetUp() override {
    ASSERT_EQ(tessaline_board_select(model_), 0) << "no board for " << model_;
    tessaline_board_set_sleep_factor(0);
    tessaline_board_transcript_clear();
    StartCapture();
  }

  void TearDown() override {
    StopCapture();
    tessaline_board_clear_faults();
    tessaline_board_unplug();
  }

  // A register as the FPGA holds it; neither counts as an access of the software.
  static void Set(const fpga::Register& reg, std::uint32_t value) {
    tessaline_board_register_set(static_cast<unsigned>(reg.block), reg.offset, value);
  }
  static std::uint32_t Get(const fpga::Register& reg) {
    return tessaline_board_register_get(static_cast<unsigned>(reg.block), reg.offset);
  }

  // The transcript line by line, without times and threads.
  static std::vector<std::string> Events() {
    char* text = tessaline_board_transcript(TESSALINE_BOARD_TEXT);
    std::istringstream lines(text);
    free(text);
    std::vector<std::string> events;
    for (std::string line; std::getline(lines, line);) events.push_back(line);
    return events;
  }

  // Register accesses in order: "write IMAGE_BLOCK_1 TRI_SPACING = 0x00030d40".
  static std::vector<std::string> Accesses() { return Steps(/*with_sleeps=*/false); }

  // The same with the sleeps between them: "sleep 1000".
  static std::vector<std::string> Steps(bool with_sleeps = true) {
    constexpr std::string_view kFpga = "fpga ";
    std::vector<std::string> steps;
    for (const std::string& event : Events()) {
      const bool access = event.starts_with("fpga read ") || event.starts_with("fpga write ");
      if (access) steps.push_back(event.substr(kFpga.size()));
      if (with_sleeps && event.starts_with("sleep ")) steps.push_back(event);
    }
    return steps;
  }

  // The register writes alone.
  static std::vector<std::string> Writes() {
    auto writes = Accesses();
    std::erase_if(writes, [](const std::string& line) { return !line.starts_with("write "); });
    return writes;
  }

  // The text written to standard output by any thread since the test began or since the last call.
  std::string Printed() {
    fflush(stdout);
    std::string text;
    char chunk[4096];
    ssize_t got = 0;
    while ((got = pread(captured_, chunk, sizeof chunk, shown_)) > 0) {
      text.append(chunk, static_cast<std::size_t>(got));
      shown_ += got;
    }
    return text;
  }

 private:
  void StartCapture() {
    fflush(stdout);
    char path[] = "/tmp/tessaline-printed-XXXXXX";
    captured_ = mkstemp(path);
    ASSERT_GE(captured_, 0);
    unlink(path);
    // Appends every write, whichever thread makes it.
    ASSERT_EQ(fcntl(captured_, F_SETFL, O_APPEND), 0);
    real_stdout_ = dup(STDOUT_FILENO);
    ASSERT_EQ(dup2(captured_, STDOUT_FILENO), STDOUT_FILENO);
  }

  void StopCapture() {
    if (real_stdout_ < 0) return;
    fflush(stdout);
    dup2(real_stdout_, STDOUT_FILENO);
    close(real_stdout_);
    real_stdout_ = -1;
    if (HasFailure()) {
      shown_ = 0;
      fputs(Printed().c_str(), stdout);
    }
    close(captured_);
  }

  const char* model_;
  int captured_ = -1;
  int real_stdout_ = -1;
  off_t shown_ = 0;
};

}  // namespace tessaline_test
