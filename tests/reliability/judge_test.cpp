// The judge of the fault matrix must recognise a defect.
#include "Judge.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Calls.h"
#include "tessaline/board.h"

namespace reliability {
namespace {

const std::string kK36 = "K3610";

// A tour of two steps. The call under test fails in the second one.
Outcome Undisturbed() {
  Outcome outcome;
  outcome.results = {"RegisterHardwareInit = 0", "OpenLaser = 0"};
  return outcome;
}

Call InOpenLaser(const char* device, const char* operation) {
  return {device, operation, 1, 0, "OpenLaser"};
}

const Call kLine = InOpenLaser("gpio", "open");
const Call kRegister = InOpenLaser("fpga", "open");

Outcome LineFailed() {
  Outcome outcome = Undisturbed();
  outcome.results.back() = "OpenLaser = -1";
  outcome.printed = {"error: Laser::Open() open(sysfs_gpio_export_, O_WRONLY)."};
  outcome.events = {"gpio open failed: EIO"};
  return outcome;
}

Outcome RegisterLocked() {
  Outcome outcome;
  outcome.ending = Ending::kHung;
  outcome.results = {"RegisterHardwareInit = 0"};
  outcome.printed = {"open(/dev/mem) failed."};
  outcome.events = {"fpga read IMAGE_BLOCK_1 TRI_MODE = 0x00000000", "fpga open failed: EIO"};
  return outcome;
}

Judgement JudgeEio(const Call& call, const Outcome& outcome) {
  return Judge(kK36, call, EIO, Undisturbed(), outcome);
}

void ExpectDefect(const Judgement& judgement, std::string_view reason) {
  EXPECT_EQ(judgement.verdict, Verdict::kDefect);
  EXPECT_NE(judgement.reason.find(reason), std::string::npos) << judgement.reason;
}

TEST(Judge, TextAndResultTogetherAreRight) {
  EXPECT_EQ(JudgeEio(kLine, LineFailed()).verdict, Verdict::kText);
}

TEST(Judge, AMissingTextIsADefect) {
  Outcome outcome = LineFailed();
  outcome.printed = {"error: something else"};
  ExpectDefect(JudgeEio(kLine, outcome), "error: Laser::Open()");
}

TEST(Judge, ATextThatIsThereWithoutTheFailureDoesNotCount) {
  Outcome reference = Undisturbed();
  reference.printed = LineFailed().printed;
  ExpectDefect(Judge(kK36, kLine, EIO, reference, LineFailed()), "is missing");
}

TEST(Judge, ASuccessThatWasNoneIsADefect) {
  Outcome outcome = LineFailed();
  outcome.results.back() = "OpenLaser = 0";
  ExpectDefect(JudgeEio(kLine, outcome), "returned 0 instead of -1");
}

TEST(Judge, TheTextNamesTheErrno) {
  const Call open{"video0", "open", 0, 0, "RegisterHardwareInit"};
  Outcome outcome = Undisturbed();
  outcome.events = {"video0 open failed: EIO"};
  outcome.printed = {"v4l2 open file failed: Input/output error", "initialize v4l2 error!"};
  EXPECT_EQ(JudgeEio(open, outcome).verdict, Verdict::kText);
  outcome.printed.front() = "v4l2 open file failed: Success";
  ExpectDefect(JudgeEio(open, outcome), "Input/output error");
}

TEST(Judge, AResultMayHaveToBeTheSame) {
  const Call queue = InOpenLaser("video1", "VIDIOC_QBUF");
  Outcome outcome = Undisturbed();
  outcome.events = {"video1 VIDIOC_QBUF failed: EIO"};
  outcome.printed = {"v4l2 VIDIOC_QBUF failed: Input/output error"};
  EXPECT_EQ(JudgeEio(queue, outcome).verdict, Verdict::kText);
  outcome.results.back() = "OpenLaser = -1";
  ExpectDefect(JudgeEio(queue, outcome), "returned -1 instead of 0");
}

TEST(Judge, ResultsAreComparedAsAWhole) {
  const Call queue = InOpenLaser("video1", "VIDIOC_QBUF");
  Outcome reference = Undisturbed();
  reference.results.back() = "OpenLaser = 4";
  Outcome outcome = Undisturbed();
  outcome.events = {"video1 VIDIOC_QBUF failed: EIO"};
  outcome.printed = {"v4l2 VIDIOC_QBUF failed: Input/output error"};
  outcome.results.back() = "OpenLaser = 42";
  ExpectDefect(Judge(kK36, queue, EIO, reference, outcome), "returned 42 instead of 4");
  outcome.results.back() = "OpenLaser = 4";
  EXPECT_EQ(Judge(kK36, queue, EIO, reference, outcome).verdict, Verdict::kText);
}

TEST(Judge, AStepWithoutAResultIsFree) {
  Outcome reference = Undisturbed();
  reference.results.back() = "OpenLaser";
  Outcome outcome = LineFailed();
  outcome.results.back() = "OpenLaser";
  EXPECT_EQ(Judge(kK36, kLine, EIO, reference, outcome).verdict, Verdict::kText);
}

TEST(Judge, WhatCameBeforeTheFailureIsAsWithoutIt) {
  Outcome outcome = LineFailed();
  outcome.results.front() = "RegisterHardwareInit = -1";
  ExpectDefect(JudgeEio(kLine, outcome), "before the call: \"RegisterHardwareInit = -1\"");
}

// A tour of one step, in which a register cannot be mapped.
Judgement JudgeUnmapped(const char* during, const char* access, const std::string& result,
                        std::vector<std::string> printed, const std::string& undisturbed = "0") {
  const Call mapping{"fpga", "mmap", 0, 0, during, access};
  const std::string name(during);
  Outcome reference;
  reference.results = {name + " = " + undisturbed};
  Outcome outcome;
  outcome.results = {name + " = " + result};
  outcome.printed = std::move(printed);
  outcome.events = {"fpga mmap failed: ENODEV"};
  return Judge(kK36, mapping, ENODEV, reference, outcome);
}

TEST(Judge, ALostWriteIsToldWhereItIsLookedAt) {
  constexpr const char* kWrite = "write IMAGE_BLOCK_0 STRIP_WIDTH_MIN = 0x00000001";
  const std::string text = "SetStripWidthMin error";
  EXPECT_EQ(JudgeUnmapped("SetStripWidthMin", kWrite, "-1", {text}).verdict, Verdict::kText);
  ExpectDefect(JudgeUnmapped("SetStripWidthMin", kWrite, "-1", {}), text);
  ExpectDefect(JudgeUnmapped("SetStripWidthMin", kWrite, "0", {text}), "returned 0 instead of -1");
}

TEST(Judge, ALostWriteThatNobodyLooksAtChangesNoResult) {
  constexpr const char* kWrite = "write IMAGE_BLOCK_1 TRI_SPACING = 0x00000001";
  EXPECT_EQ(JudgeUnmapped("SetTriSpacing", kWrite, "0", {}).verdict, Verdict::kUnchecked);
  ExpectDefect(JudgeUnmapped("SetTriSpacing", kWrite, "-1", {}), "returned -1 instead of 0");
}

TEST(Judge, AReadThatIsLostGivesTheFieldsOnes) {
  constexpr const char* kRead = "read IMAGE_BLOCK_1 MASTER_CTRL = 0x00000003";
  EXPECT_EQ(JudgeUnmapped("GetMasterConctrolID", kRead, "15", {}, "3").verdict, Verdict::kResult);
  ExpectDefect(JudgeUnmapped("GetMasterConctrolID", kRead, "3", {}, "3"), "instead of 15");
}

TEST(Judge, ARuleMayBeForTheFirstCallsOnly) {
  const Call first{"video0", "VIDIOC_TRY_FMT", 0, 0, "RegisterHardwareInit"};
  const Call second{"video0", "VIDIOC_TRY_FMT", 0, 1, "RegisterHardwareInit"};
  EXPECT_NE(RuleFor(kK36, first, EIO), RuleFor(kK36, second, EIO));
}

// A failed access to a sensor. Its function prints something and returns `now` instead of `before`.
Judgement JudgeSensor(const Call& call, const std::string& before, const std::string& now,
                      const std::string& told) {
  Outcome reference = Undisturbed();
  reference.results.back() = call.during + " = " + before;
  Outcome outcome = reference;
  outcome.results.back() = call.during + " = " + now;
  outcome.events = {call.device + ' ' + call.operation + " failed: EIO"};
  const bool is_write = call.operation == "write";
  outcome.printed = {is_write ? "SpiDev::DoWrite error" : "SpiDev::DoMsg error", told};
  return Judge("K4010", call, EIO, reference, outcome);
}

TEST(Judge, ASensorsTextNamesItsRegister) {
  const Call write{"spi0.0", "write", 1, 0, "SetROI1", "write 42 00 3e 00 01"};
  const std::string written = "E2vFlash4k::SetROIImpl Write 0x";
  EXPECT_EQ(JudgeSensor(write, "0", "-1", written + "003e failed!").verdict, Verdict::kText);
  ExpectDefect(JudgeSensor(write, "0", "-1", written + "003f failed!"), "Write 0x003e failed!");

  const Call read{"spi0.0", "SPI_IOC_MESSAGE", 1, 0, "SetCmosGain", "tx 02 01 5f 00 00 00"};
  const std::string asked = "E2vFlash4k::BatchReadRegister Read ";
  EXPECT_EQ(JudgeSensor(read, "1", "0", asked + "351 failed!").verdict, Verdict::kText);
  ExpectDefect(JudgeSensor(read, "1", "0", asked + "350 failed!"), "Read 351 failed!");
}

TEST(Judge, AnInterruptEndsTheProgramWithoutItsRegisters) {
  const Call open{"fpga", "open", 0, 0, "SIGINT"};
  Outcome reference;
  reference.results = {"SIGINT = 0"};
  Outcome outcome = reference;
  outcome.events = {"fpga open failed: EIO", "video0 VIDIOC_STREAMOFF"};
  outcome.printed = {"open(/dev/mem) failed."};
  const auto judge = [&] { return Judge(kK36, open, EIO, reference, outcome); };
  EXPECT_EQ(judge().verdict, Verdict::kText);
  outcome.printed.front() += outcome.printed.front();
  ExpectDefect(judge(), "comes again");
  outcome.printed = {"open(/dev/mem) failed."};
  outcome.events.emplace_back("fpga write IMAGE_BLOCK_1 TRIGGER_CTRL = 0x00000000");
  ExpectDefect(judge(), "went on");
  outcome.ending = Ending::kHung;
  ExpectDefect(judge(), "hangs");
}

TEST(Judge, ARetryThatChangesAResultIsADefect) {
  const Call transfer = InOpenLaser("i2c-0", "I2C_RDWR");
  Outcome outcome = Undisturbed();
  outcome.events = {"i2c-0 I2C_RDWR failed: EIO"};
  EXPECT_EQ(JudgeEio(transfer, outcome).verdict, Verdict::kRetried);
  outcome.results.back() = "OpenLaser = -1";
  ExpectDefect(JudgeEio(transfer, outcome), "another result");
}

TEST(Judge, AnInterruptedCallIsMadeAgainInSilence) {
  Call line = InOpenLaser("gpio", "write");
  line.access = "write export 907";
  Outcome outcome = Undisturbed();
  outcome.events = {"gpio write failed: EINTR", "gpio write export 907"};
  const auto judge = [&] { return Judge(kK36, line, EINTR, Undisturbed(), outcome); };
  EXPECT_EQ(judge().verdict, Verdict::kRetried);
  outcome.printed = {"Interrupted system call"};
  ExpectDefect(judge(), "says \"Interrupted");
  outcome.printed.clear();
  outcome.results.back() = "OpenLaser = -1";
  ExpectDefect(judge(), "another result");
  outcome.results = Undisturbed().results;
  outcome.events.back() = "gpio write gpio907/direction out";
  ExpectDefect(judge(), "\"write export 907\" did not follow");
  outcome.events.pop_back();
  ExpectDefect(judge(), "did not follow");
}

TEST(Judge, AnInterruptedRegisterAccessIsMadeAgain) {
  Call open = kRegister;
  open.access = "read IMAGE_BLOCK_1 TRI_MODE = 0x00000003";
  Outcome outcome = Undisturbed();
  outcome.events = {"fpga open failed: EINTR", "fpga read IMAGE_BLOCK_1 TRI_MODE = 0x00000000"};
  EXPECT_EQ(Judge(kK36, open, EINTR, Undisturbed(), outcome).verdict, Verdict::kRetried);
  ExpectDefect(Judge(kK36, open, EINTR, Undisturbed(), RegisterLocked()), "hangs");
}

TEST(Judge, AnotherAccessOfALongerSelfTestIsNotTheCall) {
  Call open = kRegister;
  open.access = "write IMAGE_BLOCK_0 CMOS_TIMING_CTRL = 0x00000004";
  Outcome outcome = Undisturbed();
  outcome.events = {"fpga open failed: EINTR",
                    "fpga write IMAGE_BLOCK_1 TRIGGER_CTRL = 0x00000003"};
  ExpectDefect(Judge(kK36, open, EINTR, Undisturbed(), outcome), "did not follow");
  outcome.printed.emplace_back("PowerOnSelfTest252 POSTreset252 successful");
  EXPECT_EQ(Judge(kK36, open, EINTR, Undisturbed(), outcome).verdict, Verdict::kNotReached);
}

TEST(Judge, AnInterruptedTemperatureIsReadAgain) {
  const Call read{"iio", "read", 1, 0, "GetCpuTemp"};
  Outcome outcome = Undisturbed();
  outcome.events = {"iio read failed: EINTR"};
  EXPECT_EQ(Judge(kK36, read, EINTR, Undisturbed(), outcome).verdict, Verdict::kRetried);
  EXPECT_NE(RuleFor(kK36, read, EINTR), RuleFor(kK36, read, EIO));
}

TEST(Judge, ACrashIsADefect) {
  Outcome outcome = LineFailed();
  outcome.ending = Ending::kCrashed;
  outcome.status = 11;
  ExpectDefect(JudgeEio(kLine, outcome), "signal 11");
}

TEST(Judge, AnExitStatusIsADefect) {
  Outcome outcome = LineFailed();
  outcome.status = 1;
  ExpectDefect(JudgeEio(kLine, outcome), "exit status 1");
}

TEST(Judge, AHangIsADefect) {
  Outcome outcome = LineFailed();
  outcome.ending = Ending::kHung;
  outcome.results.pop_back();
  ExpectDefect(JudgeEio(kLine, outcome), "hangs after RegisterHardwareInit");
}

TEST(Judge, TheRegisterLockHangs) {
  EXPECT_EQ(JudgeEio(kRegister, RegisterLocked()).verdict, Verdict::kHung);
}

TEST(Judge, TheRegisterLockMustHang) {
  Outcome outcome = RegisterLocked();
  outcome.ending = Ending::kReturned;
  outcome.results = Undisturbed().results;
  EXPECT_EQ(JudgeEio(kRegister, outcome).verdict, Verdict::kText) << "no register after it";
  outcome.events.emplace_back("fpga write IMAGE_BLOCK_1 TRI_MODE = 0x00000000");
  ExpectDefect(JudgeEio(kRegister, outcome), "went on");
}

TEST(Judge, TheRegisterLockHoldsEverybodyOff) {
  Outcome outcome = RegisterLocked();
  outcome.events.emplace_back("fpga write IMAGE_BLOCK_1 TRI_MODE = 0x00000000");
  ExpectDefect(JudgeEio(kRegister, outcome), "register was touched");
}

TEST(Judge, TheRegisterLockIsTold) {
  Outcome outcome = RegisterLocked();
  outcome.printed.clear();
  ExpectDefect(JudgeEio(kRegister, outcome), "open(/dev/mem) failed.");
}

TEST(Judge, ACallThatDoesNotComeIsADefectUnlessItIsAFrames) {
  ExpectDefect(JudgeEio(kLine, Undisturbed()), "did not come");
  EXPECT_EQ(JudgeEio(InOpenLaser("video1", "VIDIOC_DQBUF"), Undisturbed()).verdict,
            Verdict::kNotReached);
}

TEST(Judge, ACallWithoutARuleIsADefect) {
  Outcome outcome = Undisturbed();
  outcome.events = {"watchdog open failed: EIO"};
  ExpectDefect(JudgeEio(InOpenLaser("watchdog", "open"), outcome), "no rule covers");
}

TEST(Calls, AreCountedWithinTheirStep) {
  const auto calls = CallsOf({"gpio open called", "gpio write called", "gpio write export 907",
                              "gpio open called", "in GetLibVersion = 1", "gpio open called",
                              "in OpenLaser = 0", "video0 VIDIOC_DQBUF called"});
  ASSERT_EQ(calls.size(), 4U);
  EXPECT_EQ(calls[2].nth, 1U);
  EXPECT_EQ(calls[2].during, "GetLibVersion");
  EXPECT_EQ(calls[3].step, 1U);
  EXPECT_EQ(calls[3].nth, 0U);
  EXPECT_EQ(calls[3].during, "OpenLaser");
}

TEST(Calls, SayWhatAnOpenIsFor) {
  const auto calls = CallsOf({"fpga open called", "fpga mmap called",
                              "fpga write IMAGE_BLOCK_1 TRI_MODE = 0x00000003", "fpga open called",
                              "fpga open called", "in SetTriMode = 0"});
  ASSERT_EQ(calls.size(), 4U);
  EXPECT_EQ(calls[0].access, "write IMAGE_BLOCK_1 TRI_MODE = 0x00000003");
  EXPECT_EQ(calls[1].access, calls[0].access);
  EXPECT_EQ(calls[2].access, "");
}

TEST(Calls, SayWhatAMappingOrATransferIsFor) {
  const auto calls = CallsOf({"fpga open called", "fpga mmap called", "video1 VIDIOC_DQBUF called",
                              "fpga write IMAGE_BLOCK_1 TRI_MODE = 0x00000003", "fpga open called",
                              "fpga mmap called", "spi0.0 write called", "spi0.0 write 60 0b",
                              "in SetTriMode = 0"});
  ASSERT_EQ(calls.size(), 6U);
  EXPECT_EQ(calls[1].access, "write IMAGE_BLOCK_1 TRI_MODE = 0x00000003");
  EXPECT_EQ(calls[4].access, "") << "no register behind it";
  EXPECT_EQ(calls[5].access, "write 60 0b");
}

TEST(Failures, HaveEveryErrorOfTheOperationInEveryFunction) {
  const std::vector<Call> calls(2, InOpenLaser("uio0", "read"));
  const auto failures = FailuresOf(calls, false);
  ASSERT_EQ(failures.size(), 5U);
  EXPECT_EQ(failures[0].error, EIO);
  EXPECT_EQ(failures[1].error, ENODEV);
  EXPECT_EQ(failures[4].error, TESSALINE_BOARD_SHORT);
  EXPECT_EQ(FailuresOf(calls, true).size(), 10U);
}

}  // namespace
}  // namespace reliability
