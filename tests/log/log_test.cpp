// The logger as an application uses it: the standard error stream, the sinks and the lock hook.
// Each test runs in its own process (see CMake), because sinks cannot be removed.
#include "tessaline/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <time.h>

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
  log_log(TESSALINE_LOG_TRACE, "Devices/Some.cpp", 12, "%s", "Hello");
  EXPECT_THAT(GetCapturedStderr(),
              MatchesRegex("[0-9][0-9]:[0-9][0-9]:[0-9][0-9] TRACE Devices/Some.cpp:12: Hello\n"));
}

TEST(Logger, PadsTheLevelToFiveColumns) {
  CaptureStderr();
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
  EXPECT_THAT(GetCapturedStderr(), MatchesRegex("[0-9:]+ INFO  a:1: x\n"));
}

TEST(Logger, LevelFourSilencesTraceButNotItsSinks) {
  static char tag[] = "sink";
  ASSERT_EQ(log_add_callback(Remember, tag, TESSALINE_LOG_TRACE), 0);
  log_set_level(TESSALINE_LOG_ERROR);
  CaptureStderr();
  log_log(TESSALINE_LOG_TRACE, "a", 1, "quiet");
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_THAT(received, ElementsAre("TRACE a:1 quiet sink"));
}

TEST(Logger, QuietKeepsSinksAndTheLockHook) {
  static char tag[] = "sink";
  static std::vector<bool> locks;
  ASSERT_EQ(log_add_callback(Remember, tag, TESSALINE_LOG_TRACE), 0);
  log_set_quiet(true);
  log_set_lock(
      [](bool lock, void* udata) { static_cast<std::vector<bool>*>(udata)->push_back(lock); },
      &locks);
  CaptureStderr();
  log_log(TESSALINE_LOG_FATAL, "a", 1, "x");
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_EQ(received.size(), 1u);
  EXPECT_THAT(locks, ElementsAre(true, false));
}

TEST(Logger, CallsTheLockHookTwiceForAMessageNobodyReceives) {
  static int calls = 0;
  log_set_level(TESSALINE_LOG_ERROR);
  log_set_lock([](bool, void*) { ++calls; }, nullptr);
  log_log(TESSALINE_LOG_TRACE, "a", 1, "x");
  EXPECT_EQ(calls, 2);
  log_set_lock(nullptr, nullptr);
  log_log(TESSALINE_LOG_TRACE, "a", 1, "x");
  EXPECT_EQ(calls, 2);
}

TEST(Logger, TakesThirtyTwoSinks) {
  static char tag[] = "s";
  for (int i = 0; i < 32; ++i) EXPECT_EQ(log_add_callback(Remember, tag, TESSALINE_LOG_TRACE), 0);
  EXPECT_EQ(log_add_callback(Remember, tag, TESSALINE_LOG_TRACE), -1);
  log_set_quiet(true);
  log_log(TESSALINE_LOG_ERROR, "a", 1, "x");
  EXPECT_EQ(received.size(), 32u);
}

TEST(Logger, TellsNoneOfThirtyTwoSinksWhatIsBelowTheirLevel) {
  static char tag[] = "s";
  for (int i = 0; i < 32; ++i) ASSERT_EQ(log_add_callback(Remember, tag, TESSALINE_LOG_ERROR), 0);
  log_set_quiet(true);
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
  EXPECT_TRUE(received.empty());
}

TEST(Logger, TakesNoFileWhenAllSinksAreTaken) {
  for (int i = 0; i < 32; ++i) ASSERT_EQ(log_add_fp(stdout, TESSALINE_LOG_FATAL), 0);
  EXPECT_EQ(log_add_fp(stdout, TESSALINE_LOG_FATAL), -1);
}

TEST(Logger, HoldsTheLockFromBeforeTheFirstSinkUntilAfterTheLast) {
  static std::vector<std::string> steps;
  static char one[] = "one", two[] = "two";
  const log_LogFn note = [](log_Event* ev) {
    steps.emplace_back(static_cast<const char*>(ev->udata));
  };
  log_set_quiet(true);
  log_set_lock([](bool lock, void*) { steps.emplace_back(lock ? "lock" : "unlock"); }, nullptr);
  log_add_callback(note, one, TESSALINE_LOG_TRACE);
  log_add_callback(note, two, TESSALINE_LOG_TRACE);
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
  EXPECT_THAT(steps, ElementsAre("lock", "one", "two", "unlock"));
}

TEST(Logger, SkipsASinkOfHigherLevelAndGoesOn) {
  static char high[] = "high", low[] = "low";
  log_set_quiet(true);
  log_add_callback(Remember, high, TESSALINE_LOG_WARN);
  log_add_callback(Remember, low, TESSALINE_LOG_TRACE);
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
  EXPECT_THAT(received, ElementsAre("INFO a:1 x low"));
}

TEST(Logger, GivesEachSinkItsOwnArguments) {
  static char one[] = "1", two[] = "2";
  log_set_quiet(true);
  log_add_callback(Remember, one, TESSALINE_LOG_TRACE);
  log_add_callback(Remember, two, TESSALINE_LOG_TRACE);
  log_log(TESSALINE_LOG_INFO, "a", 1, "%d %s", 7, "seven");
  EXPECT_THAT(received, ElementsAre("INFO a:1 7 seven 1", "INFO a:1 7 seven 2"));
}

TEST(Logger, FileSinkCarriesTheDate) {
  char* text = nullptr;
  size_t size = 0;
  FILE* file = open_memstream(&text, &size);
  log_set_quiet(true);
  ASSERT_EQ(log_add_fp(file, TESSALINE_LOG_DEBUG), 0);
  log_log(TESSALINE_LOG_TRACE, "a", 1, "too low");
  log_log(TESSALINE_LOG_WARN, "b", 2, "%d", 3);
  EXPECT_THAT(std::string(text, size),
              MatchesRegex("[0-9]+-[0-9][0-9]-[0-9][0-9] [0-9:]+ WARN  b:2: 3\n"));
  fclose(file);
  free(text);
}

// --- The time of a message ----------------------------------------------------------------

// The program's clock; see the end of this file.
struct Clock {
  time_t stands_at = 0;
  int readings = 0;
  void (*at_reading)() = nullptr;
} the_clock;

// 2023-11-14 22:13:20 UTC. In a zone five and a half hours ahead, it is the next day.
class LoggerInAnotherTimeZone : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "XST-05:30", 1);
    tzset();
    the_clock = {1'700'000'000};
  }
  void TearDown() override { the_clock = {}; }
};

TEST_F(LoggerInAnotherTimeZone, PrintsTheLocalTime) {
  CaptureStderr();
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
  EXPECT_EQ(GetCapturedStderr(), "03:43:20 INFO  a:1: x\n");
}

TEST_F(LoggerInAnotherTimeZone, WritesTheLocalDateToAFile) {
  char* text = nullptr;
  size_t size = 0;
  FILE* file = open_memstream(&text, &size);
  log_set_quiet(true);
  log_add_fp(file, TESSALINE_LOG_TRACE);
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
  EXPECT_EQ(std::string(text, size), "2023-11-15 03:43:20 INFO  a:1: x\n");
  fclose(file);
  free(text);
}

TEST_F(LoggerInAnotherTimeZone, HandsTheLocalTimeToASink) {
  static struct tm received_time;
  log_set_quiet(true);
  log_add_callback([](log_Event* ev) { received_time = *ev->time; }, nullptr, TESSALINE_LOG_TRACE);
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
  EXPECT_EQ(received_time.tm_mday, 15);
  EXPECT_EQ(received_time.tm_hour, 3);
  EXPECT_EQ(received_time.tm_min, 43);
  EXPECT_EQ(received_time.tm_sec, 20);
}

TEST_F(LoggerInAnotherTimeZone, TakesTheTimeOnceAMessage) {
  static char one[] = "1", two[] = "2";
  log_add_callback(Remember, one, TESSALINE_LOG_TRACE);
  log_add_callback(Remember, two, TESSALINE_LOG_TRACE);
  CaptureStderr();
  log_log(TESSALINE_LOG_INFO, "a", 1, "to three");
  GetCapturedStderr();
  EXPECT_EQ(the_clock.readings, 1);
  log_set_quiet(true);
  log_log(TESSALINE_LOG_INFO, "a", 1, "to two");
  EXPECT_EQ(the_clock.readings, 2);
}

TEST_F(LoggerInAnotherTimeZone, TakesNoTimeForAMessageNobodyReceives) {
  static char tag[] = "s";
  log_set_level(TESSALINE_LOG_ERROR);
  log_add_callback(Remember, tag, TESSALINE_LOG_WARN);
  log_set_lock([](bool, void*) {}, nullptr);
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
  EXPECT_EQ(the_clock.readings, 0);
}

// --- An interrupt in the middle of a message ----------------------------------------------

// A sink may block, but an interrupt must still be handled. The message is finished after the
// handler has returned.
class InterruptedLogger : public ::testing::Test {
 protected:
  void SetUp() override {
    signal(SIGINT, [](int) { interrupted = 1; });
    interrupted = 0;
    seen_within = 0;
  }
  void TearDown() override {
    signal(SIGINT, SIG_DFL);
    the_clock = {};
    EXPECT_EQ(seen_within, 1);
  }

  static void Interrupt() {
    raise(SIGINT);
    if (interrupted != 0) seen_within = 1;
  }

  static inline volatile sig_atomic_t interrupted;
  static inline volatile sig_atomic_t seen_within;
};

TEST_F(InterruptedLogger, HandlesItInTheLockHook) {
  log_set_quiet(true);
  log_set_lock(
      [](bool lock, void*) {
        if (lock) Interrupt();
      },
      nullptr);
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
}

TEST_F(InterruptedLogger, HandlesItInASink) {
  log_set_quiet(true);
  log_add_callback([](log_Event*) { Interrupt(); }, nullptr, TESSALINE_LOG_TRACE);
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
}

TEST_F(InterruptedLogger, FinishesTheLineOfTheStandardErrorStream) {
  the_clock.at_reading = Interrupt;
  CaptureStderr();
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
  EXPECT_THAT(GetCapturedStderr(), MatchesRegex("[0-9:]+ INFO  a:1: x\n"));
}

TEST(Logger, RefusesASinkThatIsNone) {
  for (int i = 0; i < 40; ++i) {
    EXPECT_EQ(log_add_callback(nullptr, nullptr, TESSALINE_LOG_TRACE), -1);
    EXPECT_EQ(log_add_fp(nullptr, TESSALINE_LOG_TRACE), -1);
  }
  static int calls = 0;
  EXPECT_EQ(log_add_callback([](log_Event*) { ++calls; }, nullptr, TESSALINE_LOG_TRACE), 0);
  log_set_quiet(true);
  log_log(TESSALINE_LOG_INFO, "a", 1, "x");
  EXPECT_EQ(calls, 1);
}

TEST(Logger, NamesTheLevels) {
  const std::vector<std::string> names{"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};
  for (int level = 0; level < 6; ++level) EXPECT_EQ(log_level_string(level), names[level]);
  EXPECT_STREQ(log_level_string(-1), "?");
  EXPECT_STREQ(log_level_string(6), "?");
}

}  // namespace

// Replace the C library's functions for the whole program.
extern "C" time_t time(time_t* out)
#if defined(__GLIBC__)
    __THROW
#endif
{
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  ++the_clock.readings;
  if (the_clock.at_reading != nullptr) the_clock.at_reading();
  const time_t result = the_clock.stands_at != 0 ? the_clock.stands_at : now.tv_sec;
  if (out != nullptr) *out = result;
  return result;
}
