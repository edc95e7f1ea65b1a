// The check whether a log level has any receiver. The library makes it before it formats a line.
#include <gtest/gtest.h>

#include "log/Log.h"

namespace {

using VeltranoSDK::SomebodyListens;

void Ignore(log_Event*) {}

TEST(SomebodyListens, ToEverythingWhenNeverConfigured) {
  EXPECT_TRUE(SomebodyListens(TESSALINE_LOG_TRACE));
  EXPECT_TRUE(SomebodyListens(TESSALINE_LOG_FATAL));
}

TEST(SomebodyListens, FromTheLevelOfTheStandardErrorStreamUp) {
  log_set_level(TESSALINE_LOG_WARN);
  EXPECT_FALSE(SomebodyListens(TESSALINE_LOG_INFO));
  EXPECT_TRUE(SomebodyListens(TESSALINE_LOG_WARN));
  EXPECT_TRUE(SomebodyListens(TESSALINE_LOG_ERROR));
  log_set_quiet(true);
  EXPECT_FALSE(SomebodyListens(TESSALINE_LOG_ERROR));
}

TEST(SomebodyListens, FromTheLevelOfAnySinkUp) {
  log_set_quiet(true);
  log_add_callback(Ignore, nullptr, TESSALINE_LOG_FATAL);
  log_add_callback(Ignore, nullptr, TESSALINE_LOG_INFO);
  EXPECT_FALSE(SomebodyListens(TESSALINE_LOG_DEBUG));
  EXPECT_TRUE(SomebodyListens(TESSALINE_LOG_INFO));
}

TEST(SomebodyListens, ThroughTheLockHookAlone) {
  log_set_quiet(true);
  log_set_lock([](bool, void*) {}, nullptr);
  EXPECT_TRUE(SomebodyListens(TESSALINE_LOG_TRACE));
  log_set_lock(nullptr, nullptr);
  EXPECT_FALSE(SomebodyListens(TESSALINE_LOG_TRACE));
}

}  // namespace
