// Switching the two interrupt notifiers: results, texts, interrupts in the FPGA,
// calls of the handler.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "api/StartedBoard.h"

namespace {

using std::chrono::milliseconds;
using tessaline_test::Eventually;
using tessaline_test::ReallyWait;
using tessaline_test::StartedBoard;
using tessaline_test::Wrote;
using ::testing::ElementsAre;

namespace fpga = VeltranoSDK::fpga;

std::atomic<unsigned> calls = 0;
std::atomic<unsigned> level = 99;

void OnTrigger(unsigned int now) {
  level = now;
  ++calls;
}
void OnArrived() { ++calls; }

bool CalledTimes(unsigned expected) {
  return Eventually([=] { return calls >= expected; }) && calls == expected;
}

struct Kind {
  const char* name;
  int (*switch_state)(unsigned int);
  int event;
  tessaline_event_handler handler;
  void (*interrupt)();
  std::uint32_t enable;  // in IRQ_CTRL
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

const Kind kKinds[] = {
    {"SetExtTriggerState", SetExtTriggerState, TESSALINE_EVENT_EXTERNAL_TRIGGER,
     reinterpret_cast<tessaline_event_handler>(OnTrigger),
     [] {
       // Both edges interrupt.
       static int level = 0;
       level = 1 - level;
       tessaline_board_external_trigger(level);
     },
     4},
    {"SetDADelayState", SetDADelayState, TESSALINE_EVENT_DA_ARRIVED, OnArrived,
     [] { tessaline_board_da_arrived(); }, 1},
};

class Notifier : public StartedBoard, public ::testing::WithParamInterface<Kind> {
 protected:
  void SetUp() override {
    StartedBoard::SetUp();
    RegisterEventHandler(GetParam().event, GetParam().handler);
    calls = 0;
  }
  static int Switch(unsigned int state) { return GetParam().switch_state(state); }
  static std::string Text(const char* what) {
    return std::string(GetParam().name) + " This thread has been " + what + "!\n ";
  }
};

TEST_P(Notifier, SwitchesItsInterruptWithoutAWord) {
  Set(fpga::kReg.IRQ_CTRL, 0xFFFF0002);
  EXPECT_EQ(Switch(1), 0);
  EXPECT_EQ(Switch(0), 0);
  EXPECT_EQ(Printed(), "");
  EXPECT_THAT(Writes(), ElementsAre(Wrote(fpga::kReg.IRQ_CTRL, 2 | GetParam().enable),
                                    Wrote(fpga::kReg.IRQ_CTRL, 2)));
}

TEST_P(Notifier, OnWhileOnIsRefusedAndLeavesItOn) {
  EXPECT_EQ(Switch(1), 0);
  EXPECT_EQ(Switch(1), -2);
  EXPECT_EQ(Printed(), Text("opened"));
  EXPECT_EQ(Get(fpga::kReg.IRQ_CTRL), GetParam().enable);
  GetParam().interrupt();
  EXPECT_TRUE(CalledTimes(1));
}

TEST_P(Notifier, OffWhileOffIsToldAndFine) {
  EXPECT_EQ(Switch(0), 0);
  EXPECT_EQ(Printed(), Text("closed"));
  EXPECT_EQ(Switch(1), 0);
  EXPECT_EQ(Switch(0), 0);
  EXPECT_EQ(Printed(), "");
  EXPECT_EQ(Switch(0), 0);
  EXPECT_EQ(Printed(), Text("closed"));
}

TEST_P(Notifier, AnyOtherStateChangesNothing) {
  for (const unsigned int state : {2u, 5u, 0xFFFFFFFFu}) EXPECT_EQ(Switch(state), -1);
  EXPECT_EQ(Switch(1), 0);
  for (const unsigned int state : {2u, 5u, 0xFFFFFFFFu}) EXPECT_EQ(Switch(state), -1);
  EXPECT_EQ(Printed(), "");
  GetParam().interrupt();
  EXPECT_TRUE(CalledTimes(1));
}

TEST_P(Notifier, CallsTheHandlerOncePerInterrupt) {
  EXPECT_EQ(Switch(1), 0);
  for (unsigned n = 1; n <= 3; ++n) {
    GetParam().interrupt();
    EXPECT_TRUE(CalledTimes(n));
  }
}

TEST_P(Notifier, CallsNobodyOnceOffAndWorksAgainOnceOn) {
  EXPECT_EQ(Switch(1), 0);
  EXPECT_EQ(Switch(0), 0);
  GetParam().interrupt();
  ReallyWait(milliseconds(50));
  EXPECT_EQ(calls, 0u);

  EXPECT_EQ(Switch(1), 0);
  calls = 0;
  GetParam().interrupt();
  EXPECT_TRUE(CalledTimes(1));
}

INSTANTIATE_TEST_SUITE_P(Api, Notifier, ::testing::ValuesIn(kKinds),
                         [](const auto& row) { return std::string(row.param.name); });

// The handler gets the level that the input has at the time of the call.
TEST_F(StartedBoard, TheTriggerHandlerIsToldTheLevel) {
  RegisterEventHandler(TESSALINE_EVENT_EXTERNAL_TRIGGER,
                       reinterpret_cast<tessaline_event_handler>(OnTrigger));
  SetExtTriggerState(1);
  for (const unsigned now : {1u, 0u, 1u}) {
    tessaline_board_external_trigger(static_cast<int>(now));
    EXPECT_TRUE(Eventually([=] { return level == now; })) << now;
  }
}

}  // namespace
