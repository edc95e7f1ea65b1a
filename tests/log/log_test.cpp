// The logger as an application meets it: what reaches the standard error stream,
// the sinks, the lock hook. Each test is a process of its own (see CMake), since
// sinks cannot be removed.
#include "tessaline/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

std::vector<std::string> received;

void Remember(log_Event* ev) {
  char text[128];
  vsnprintf(text, sizeof text, ev->fmt, ev->ap);
  received.push_back(std::string(log_level_string(ev->level)) + " " + ev->file + ":" +
                     std::to_string(ev->line) + " " + text + " " +
                     static_cast<const char*>(ev->udata));
}

TEST(Logger, PrintsEverythingFromTraceUpWhenNeverConfigured) {
  CaptureStderr();
  log_log(LOG_TRACE, "Devices/Some.cpp", 12, "%s", "Hello");
  EXPECT_THAT(GetCapturedStderr(),
              MatchesRegex("[0-9][0-9]:[0-9][0-9]:[0-9][0-9] TRACE Devices/Some.cpp:12: Hello\n"));
}

TEST(Logger, PadsTheLevelToFiveColumns) {
  CaptureStderr();
  log_log(LOG_INFO, "a", 1, "x");
  EXPECT_THAT(GetCapturedStderr(), MatchesRegex("[0-9:]+ INFO  a:1: x\n"));
}

TEST(Logger, LevelFourSilencesTraceButNotItsSinks) {
  static char tag[] = "sink";
  ASSERT_EQ(log_add_callback(Remember, tag, LOG_TRACE), 0);
  log_set_level(LOG_ERROR);
  CaptureStderr();
  log_log(LOG_TRACE, "a", 1, "quiet");
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_THAT(received, ElementsAre("TRACE a:1 quiet sink"));
}

TEST(Logger, QuietKeepsSinksAndTheLockHook) {
  static char tag[] = "sink";
  static std::vector<bool> locks;
  ASSERT_EQ(log_add_callback(Remember, tag, LOG_TRACE), 0);
  log_set_quiet(true);
  log_set_lock(
      [](bool lock, void* udata) { static_cast<std::vector<bool>*>(udata)->push_back(lock); },
      &locks);
  CaptureStderr();
  log_log(LOG_FATAL, "a", 1, "x");
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_EQ(received.size(), 1u);
  EXPECT_THAT(locks, ElementsAre(true, false));
}

TEST(Logger, CallsTheLockHookTwiceForAMessageNobodyReceives) {
  static int calls = 0;
  log_set_level(LOG_ERROR);
  log_set_lock([](bool, void*) { ++calls; }, nullptr);
  log_log(LOG_TRACE, "a", 1, "x");
  EXPECT_EQ(calls, 2);
  log_set_lock(nullptr, nullptr);
  log_log(LOG_TRACE, "a", 1, "x");
  EXPECT_EQ(calls, 2);
}

TEST(Logger, TakesThirtyTwoSinks) {
  static char tag[] = "s";
  for (int i = 0; i < 32; ++i) EXPECT_EQ(log_add_callback(Remember, tag, LOG_TRACE), 0);
  EXPECT_EQ(log_add_callback(Remember, tag, LOG_TRACE), -1);
  log_set_quiet(true);
  log_log(LOG_ERROR, "a", 1, "x");
  EXPECT_EQ(received.size(), 32u);
}

TEST(Logger, SkipsASinkOfHigherLevelAndGoesOn) {
  static char high[] = "high", low[] = "low";
  log_set_quiet(true);
  log_add_callback(Remember, high, LOG_WARN);
  log_add_callback(Remember, low, LOG_TRACE);
  log_log(LOG_INFO, "a", 1, "x");
  EXPECT_THAT(received, ElementsAre("INFO a:1 x low"));
}

TEST(Logger, GivesEachSinkItsOwnArguments) {
  static char one[] = "1", two[] = "2";
  log_set_quiet(true);
  log_add_callback(Remember, one, LOG_TRACE);
  log_add_callback(Remember, two, LOG_TRACE);
  log_log(LOG_INFO, "a", 1, "%d %s", 7, "seven");
  EXPECT_THAT(received, ElementsAre("INFO a:1 7 seven 1", "INFO a:1 7 seven 2"));
}

TEST(Logger, FileSinkCarriesTheDate) {
  char* text = nullptr;
  size_t size = 0;
  FILE* file = open_memstream(&text, &size);
  log_set_quiet(true);
  ASSERT_EQ(log_add_fp(file, LOG_DEBUG), 0);
  log_log(LOG_TRACE, "a", 1, "too low");
  log_log(LOG_WARN, "b", 2, "%d", 3);
  EXPECT_THAT(std::string(text, size),
              MatchesRegex("[0-9]+-[0-9][0-9]-[0-9][0-9] [0-9:]+ WARN  b:2: 3\n"));
  fclose(file);
  free(text);
}

TEST(Logger, NamesTheLevels) {
  const std::vector<std::string> names{"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};
  for (int level = 0; level < 6; ++level) EXPECT_EQ(log_level_string(level), names[level]);
  EXPECT_STREQ(log_level_string(-1), "?");
  EXPECT_STREQ(log_level_string(6), "?");
}

}  // namespace
