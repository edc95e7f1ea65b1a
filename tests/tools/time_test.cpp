// How well the time of strips is known.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::HasSubstr;

// The virtual board counts on the clock of this machine.
TEST(Time, ComparesTheCounterWithTheHostsClock) {
  const ToolResult result = RunTool("time -t 1 --json --virtual K3610");
  ASSERT_EQ(result.status, kOk) << result.err;
  const auto json = result.Json();
  EXPECT_EQ(json["board"], "virtual");
  const auto& counter = json["counter"];
  EXPECT_NEAR(counter["drift_ppm"].get<double>(), 0,
              counter["drift_uncertainty_ppm"].get<double>());
  EXPECT_GE(counter["pairs"], 3);
  const double known_ns = json["stamp"]["host_uncertainty_ns"];
  EXPECT_GT(known_ns, 0);
  EXPECT_LT(known_ns, 1e7);
  const bool synchronised = json["host_clock"]["synchronised"];
  EXPECT_TRUE(synchronised || json["stamp"]["most_error_ns"].is_null());
  EXPECT_TRUE(synchronised || json["stamp"]["likely_error_ns"].is_null());
}

TEST(Time, SaysInWordsWhatIsKnown) {
  const ToolResult result = RunTool("time -t 1 --virtual K3610");
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("ppm against the host clock"));
  EXPECT_THAT(result.out, HasSubstr("a strip's stamp known to"));
}

TEST(Time, DoesNotTouchTheSensor) {
  const ToolResult result = RunTool("trace --virtual K3610 time -t 0.5");
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("TIMER_COUNTER_L"));
  EXPECT_THAT(result.out, HasSubstr(" 0 writes of 2 registers"));
}

TEST(Time, SaysWhyPtpDoesNotAnswer) {
  const Directory directory;
  const std::string socket = directory / "ptp4l";
  const auto json = RunTool("time -t 0.5 --json --virtual K3610 --ptp-socket " + socket).Json();
  EXPECT_EQ(json["host_clock"]["ptp"], nullptr);
  EXPECT_THAT(json["host_clock"]["ptp_problem"].get<std::string>(), HasSubstr(socket));
}

}  // namespace
}  // namespace tessaline_test
