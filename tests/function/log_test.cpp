// What the library asks its own logger before it formats for nobody.
#include "log/Log.h"

#include <gtest/gtest.h>

namespace {

using VeltranoSDK::SomebodyListens;

void Ignore(log_Event*) {}

TEST(SomebodyListens, ToEverythingWhenNeverConfigured) {
  EXPECT_TRUE(SomebodyListens(LOG_TRACE));
  EXPECT_TRUE(SomebodyListens(LOG_FATAL));
}

TEST(SomebodyListens, FromTheLevelOfTheStandardErrorStreamUp) {
  log_set_level(LOG_WARN);
  EXPECT_FALSE(SomebodyListens(LOG_INFO));
  EXPECT_TRUE(SomebodyListens(LOG_WARN));
  EXPECT_TRUE(SomebodyListens(LOG_ERROR));
  log_set_quiet(true);
  EXPECT_FALSE(SomebodyListens(LOG_ERROR));
}

TEST(SomebodyListens, FromTheLevelOfAnySinkUp) {
  log_set_quiet(true);
  log_add_callback(Ignore, nullptr, LOG_FATAL);
  log_add_callback(Ignore, nullptr, LOG_INFO);
  EXPECT_FALSE(SomebodyListens(LOG_DEBUG));
  EXPECT_TRUE(SomebodyListens(LOG_INFO));
}

TEST(SomebodyListens, ThroughTheLockHookAlone) {
  log_set_quiet(true);
  log_set_lock([](bool, void*) {}, nullptr);
  EXPECT_TRUE(SomebodyListens(LOG_TRACE));
  log_set_lock(nullptr, nullptr);
  EXPECT_FALSE(SomebodyListens(LOG_TRACE));
}

}  // namespace
