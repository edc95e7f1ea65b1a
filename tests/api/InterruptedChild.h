#pragma once

// Interrupted applications. Each is its own process: a child of the test that starts the device on
// a virtual board.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "support/Sanitizers.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

struct Outcome {
  int status = -1;                  // as waitpid reports it
  std::vector<std::string> events;  // its reports, and the board's transcript at exit
  std::chrono::milliseconds took{};
};

inline int report_pipe = -1;

inline void Report(const char* text) {
  for (const char* rest = text; *rest != '\0';) {
    const ssize_t written = write(report_pipe, rest, strlen(rest));
    if (written <= 0) break;
    rest += written;
  }
}

inline void ReportTranscript() {
  char* text = tessaline_board_transcript(TESSALINE_BOARD_TEXT);
  Report(text);
  free(text);
}

inline void PlugIn() {
  tessaline_board_select("K3610");
  tessaline_board_set_sleep_factor(0);
  log_set_quiet(true);
  GetLibVersion("K3610");
}

inline void StartUp() {
  PlugIn();
  if (RegisterHardwareInit() != 0) _exit(99);
  tessaline_board_transcript_clear();
}

// A log sink.
inline void ReportError(log_Event* event) {
  char text[256];
  const int length = snprintf(text, sizeof text, "error ");
  vsnprintf(text + length, sizeof text - length - 1, event->fmt, event->ap);
  Report(strcat(text, "\n"));
}

// Runs the work in a child; the status is 42 when the work returns.
inline Outcome InAChild(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    report_pipe = ends[1];
    atexit(ReportTranscript);
    alarm(60);  // a hanging handler becomes a failure
    work();
    _exit(42);
  }
  close(ends[1]);
  std::string text;
  char chunk[4096];
  for (ssize_t got; (got = read(ends[0], chunk, sizeof chunk)) > 0;) {
    text.append(chunk, static_cast<std::size_t>(got));
  }
  close(ends[0]);
  Outcome outcome;
  waitpid(child, &outcome.status, 0);
  outcome.took = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - start);
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) outcome.events.push_back(line);
  return outcome;
}

inline void ExpectExit(const Outcome& outcome, int status) {
  ASSERT_TRUE(WIFEXITED(outcome.status)) << "signal " << WTERMSIG(outcome.status);
  EXPECT_EQ(WEXITSTATUS(outcome.status), status);
}

// The thread sanitizer runs handlers with every signal blocked, including SIGSEGV, which shows
// register accesses to the virtual board.
inline constexpr bool kHandlerReachesTheBoard = !tessaline_test::kThreadSanitizer;
inline constexpr const char* kSanitizerBlocksSigsegvInHandlers =
    "the thread sanitizer blocks SIGSEGV in handlers, and with it register accesses";

}  // namespace tessaline_test
