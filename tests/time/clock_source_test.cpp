// What is known about the host's clock: as the kernel says it, and as pmc prints it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "time/ClockSource.h"
#include "time/ProgramOutput.h"

namespace tessaline_test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using tool::ClockSource;
using tool::KernelClock;
using tool::PtpStatus;

KernelClock Synchronised(long most_us, long likely_us) {
  timex kernel{};
  kernel.status = STA_PLL;
  kernel.maxerror = most_us;
  kernel.esterror = likely_us;
  kernel.tai = 37;
  return KernelClock::From(kernel, TIME_OK);
}

TEST(KernelClock, StatesItsErrorsWhenItIsSynchronised) {
  const KernelClock clock = Synchronised(2500, 40);
  EXPECT_TRUE(clock.synchronised);
  EXPECT_EQ(clock.most_error_ns, 2'500'000);
  EXPECT_EQ(clock.likely_error_ns, 40'000);
  EXPECT_EQ(clock.tai_offset_s, 37);
}

TEST(KernelClock, StatesNoErrorsOtherwise) {
  timex kernel{};
  kernel.maxerror = 16'000'000;  // as after start-up
  kernel.esterror = 16'000'000;
  kernel.status = STA_UNSYNC;
  for (const int state : {TIME_OK, TIME_ERROR, -1}) {
    const KernelClock clock = KernelClock::From(kernel, state);
    EXPECT_FALSE(clock.synchronised);
    EXPECT_FALSE(clock.most_error_ns);
    EXPECT_FALSE(clock.likely_error_ns);
  }
  kernel.status = 0;
  EXPECT_FALSE(KernelClock::From(kernel, TIME_ERROR).synchronised);
}

TEST(KernelClock, TakesZeroForNotStated) {
  const KernelClock clock = Synchronised(0, 0);
  EXPECT_FALSE(clock.most_error_ns);
  EXPECT_FALSE(clock.likely_error_ns);
}

TEST(KernelClock, TakesNoLikelyErrorThatIsAboveTheLargest) {
  const KernelClock clock = Synchronised(300, 16'000'000);
  EXPECT_EQ(clock.most_error_ns, 300'000);
  EXPECT_FALSE(clock.likely_error_ns);
}

TEST(KernelClock, CanBeRead) {
  const KernelClock clock = KernelClock::Read();
  EXPECT_TRUE(clock.synchronised || !clock.most_error_ns);
}

// As pmc of linuxptp 3.1.1 prints it.
std::string Printed(const std::string& state, const std::string& present) {
  return "sending: GET TIME_STATUS_NP\n"
         "\t225ed9.fffe.b943b7-0 seq 0 RESPONSE MANAGEMENT TIME_STATUS_NP \n"
         "\t\tmaster_offset              -881\n"
         "\t\tingress_time               1795453912100060567\n"
         "\t\tcumulativeScaledRateOffset +0.000000000\n"
         "\t\tgmPresent                  " +
         present +
         "\n\t\tgmIdentity                 d27a6a.fffe.9e471e\n"
         "\t225ed9.fffe.b943b7-1 seq 1 RESPONSE MANAGEMENT PORT_DATA_SET \n"
         "\t\tportIdentity            225ed9.fffe.b943b7-1\n"
         "\t\tportState               " +
         state +
         "\n\t\tpeerMeanPathDelay       0\n"
         "\t225ed9.fffe.b943b7-0 seq 2 RESPONSE MANAGEMENT CURRENT_DATA_SET \n"
         "\t\tstepsRemoved     1\n"
         "\t\toffsetFromMaster -10.0\n"
         "\t\tmeanPathDelay    1603.0\n";
}

TEST(PtpStatus, IsReadFromWhatPmcPrints) {
  const auto status = PtpStatus::From(Printed("SLAVE", "true"));
  ASSERT_TRUE(status);
  EXPECT_TRUE(status->follows());
  EXPECT_EQ(status->offset_ns, -881);
  EXPECT_EQ(status->path_delay_ns, 1603);
  EXPECT_EQ(status->grandmaster, "d27a6a.fffe.9e471e");
}

TEST(PtpStatus, HasNoOffsetWithoutAGrandmaster) {
  const auto status = PtpStatus::From(Printed("MASTER", "false"));
  ASSERT_TRUE(status);
  EXPECT_FALSE(status->follows());
  EXPECT_FALSE(status->offset_ns);
  EXPECT_FALSE(status->path_delay_ns);
  EXPECT_EQ(status->grandmaster, "");
}

TEST(PtpStatus, IsThatOfThePortThatFollows) {
  const std::string passive = "\t\tportState   PASSIVE\n";
  EXPECT_TRUE(PtpStatus::From(Printed("SLAVE", "true") + passive)->follows());
  EXPECT_TRUE(PtpStatus::From(passive + Printed("SLAVE", "true"))->follows());
}

TEST(PtpStatus, IsNothingWithoutAnAnswer) {
  for (const char* text :
       {"", "sending: GET PORT_DATA_SET\n", "portState\n", "\xff\n portStat x"}) {
    EXPECT_FALSE(PtpStatus::From(text)) << text;
  }
}

TEST(ClockSource, SaysThatAClockIsNotDisciplined) {
  const ClockSource source;
  EXPECT_FALSE(source.MostErrorNs());
  EXPECT_FALSE(source.LikelyErrorNs());
  EXPECT_THAT(source.Sentences(), Contains(StartsWith("NOT DISCIPLINED")));
  EXPECT_EQ(source.AsJson()["synchronised"], false);
  EXPECT_EQ(source.AsJson()["ptp"], nullptr);
}

TEST(ClockSource, StatesWhatTheKernelStates) {
  const ClockSource source{Synchronised(2500, 40), {}, {"chronyd"}};
  EXPECT_EQ(source.MostErrorNs(), 2'500'000);
  EXPECT_EQ(source.LikelyErrorNs(), 40'000);
  EXPECT_THAT(source.Sentences(),
              Contains(AllOf(HasSubstr("at most 2.5 ms"), HasSubstr("likely 40 us"))));
}

TEST(ClockSource, StatesTheOffsetWherePtpIsFollowed) {
  const ClockSource source{
      Synchronised(300, 0), {PtpStatus::From(Printed("SLAVE", "true")), ""}, {"phc2sys", "ptp4l"}};
  EXPECT_EQ(source.LikelyErrorNs(), 881);
  EXPECT_EQ(source.MostErrorNs(), 300'000);
  EXPECT_THAT(source.Sentences(), Contains(HasSubstr("phc2sys runs; whether it carries")));
}

// ptp4l sets the network card's clock, and nobody this one.
TEST(ClockSource, DoesNotTakePtpForADisciplinedHostClock) {
  const ClockSource source{{}, {PtpStatus::From(Printed("SLAVE", "true")), ""}, {"ptp4l"}};
  EXPECT_FALSE(source.LikelyErrorNs());
  EXPECT_FALSE(source.MostErrorNs());
  EXPECT_THAT(source.Sentences(), AllOf(Contains(StartsWith("NOT DISCIPLINED")),
                                        Contains(HasSubstr("no phc2sys is seen"))));
}

TEST(ClockSource, TakesOnlyAPortThatFollows) {
  const ClockSource source{
      Synchronised(2500, 40), {PtpStatus::From(Printed("UNCALIBRATED", "true")), ""}, {}};
  EXPECT_EQ(source.LikelyErrorNs(), 40'000);
  EXPECT_THAT(source.Sentences(), Contains(HasSubstr("the port is UNCALIBRATED")));
}

TEST(ClockSource, SaysWhyPtpDoesNotAnswer) {
  const tool::PtpAnswer answer = tool::AskPtp("/nonexistent/ptp4l");
  EXPECT_FALSE(answer.status);
  EXPECT_THAT(answer.problem, HasSubstr("/nonexistent/ptp4l"));
}

TEST(ProgramOutput, IsWhatAProgramPrints) {
  EXPECT_EQ(tool::ProgramOutput({"sh", "-c", "echo one; echo two >&2"}, std::chrono::seconds(10)),
            "one\n");
  EXPECT_FALSE(tool::ProgramOutput({"no-such-program-here"}, std::chrono::seconds(10)));
}

TEST(ProgramOutput, EndsAProgramThatDoesNot) {
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(
      tool::ProgramOutput({"sh", "-c", "echo one; exec sleep 60"}, std::chrono::milliseconds(500)),
      "one\n");
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(30));
}

TEST(ProgramOutput, IsThatOfAProgramWithoutTheVirtualBoard) {
  setenv("TESSALINE_BOARD", "K3610", 1);
  setenv("LD_PRELOAD", "/nonexistent.so", 1);
  const auto printed = tool::ProgramOutput({"env"}, std::chrono::seconds(10));
  ASSERT_TRUE(printed);
  EXPECT_THAT(*printed, AllOf(HasSubstr("TESSALINE_BOARD=\n"), Not(HasSubstr("LD_PRELOAD"))));
}

TEST(TimeText, HasThreeDigitsAndAUnit) {
  EXPECT_EQ(tool::TimeText(0), "0 ns");
  EXPECT_EQ(tool::TimeText(850.4), "850 ns");
  EXPECT_EQ(tool::TimeText(1234), "1.23 us");
  EXPECT_EQ(tool::TimeText(3.5e6), "3.5 ms");
  EXPECT_EQ(tool::TimeText(16e9), "16 s");
}

}  // namespace
}  // namespace tessaline_test
