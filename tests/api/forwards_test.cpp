// The whole catalogue: what each function writes and reads for its lowest, highest and
// out-of-range arguments, what it returns and prints. The rows are in forwards/.
#include <cxxabi.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "api/StartedBoard.h"
#include "api/forwards/Calling.h"
#include "api/forwards/ImageProcessingFunctions.h"
#include "api/forwards/OutputsFunctions.h"
#include "api/forwards/SensorFunctions.h"
#include "api/forwards/Series24Functions.h"
#include "api/forwards/StripFunctions.h"
#include "api/forwards/TestedElsewhere.h"
#include "api/forwards/TriggerFunctions.h"

namespace tessaline_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> traces;

// The names that exported functions leave in the log.
void KeepTrace(log_Event* event) {
  if (event->level != TESSALINE_LOG_TRACE ||
      std::string(event->file).find("VeltranoApi") == std::string::npos)
    return;
  char text[128];
  vsnprintf(text, sizeof text, event->fmt, event->ap);
  traces.emplace_back(text);
}

class Forwarded : public StartedBoard, public ::testing::WithParamInterface<ForwardedFunction> {
 protected:
  explicit Forwarded(const char* model = "K3610") : StartedBoard(model) {}

  void SetUp() override {
    log_add_callback(KeepTrace, nullptr, TESSALINE_LOG_TRACE);
    StartedBoard::SetUp();
  }

  void CheckAll() {
    bool called = false;
    for (const Calling& call : GetParam().calls) {
      const ::testing::ScopedTrace row(__FILE__, __LINE__, GetParam().name + call.arguments());
      Check(call);
      EXPECT_EQ(traces.size(), 1u);
      called |= traces == std::vector{GetParam().name};
    }
    EXPECT_TRUE(called) << "no row calls the function";
  }

 private:
  // What happened on the board beside register accesses and sleeps.
  static std::vector<std::string> OtherEvents() {
    auto events = Events();
    std::erase_if(events, [](const std::string& event) {
      return event.starts_with("fpga ") || event.starts_with("sleep ");
    });
    return events;
  }

  void Check(const Calling& call) {
    for (const Calling::Preset& preset : call.before()) Set(preset.reg, preset.value);
    if (!call.lost().none) {
      tessaline_board_fault("fpga", "mmap", call.lost().skip, call.lost().count, ENOMEM);
    }
    tessaline_board_transcript_clear();
    traces.clear();
    EXPECT_EQ(call.Make(), call.result());
    EXPECT_EQ(Steps(), call.steps());
    EXPECT_THAT(OtherEvents(), IsEmpty());
    EXPECT_EQ(Printed(), call.printed());
    tessaline_board_clear_faults();
  }
};

TEST_P(Forwarded, DoesWhatItsRowsSay) { CheckAll(); }

std::vector<ForwardedFunction> Catalogue() {
  std::vector<ForwardedFunction> all;
  for (const auto* part : {&kTriggerFunctions, &kOutputsFunctions, &kStripFunctions,
                           &kImageProcessingFunctions, &kSensorFunctions}) {
    all.insert(all.end(), part->begin(), part->end());
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Api, Forwarded, ::testing::ValuesIn(Catalogue()),
                         [](const auto& row) { return row.param.name; });

class ForwardedOn24 : public Forwarded {
 protected:
  ForwardedOn24() : Forwarded("K3920") {}
};

TEST_P(ForwardedOn24, DoesWhatItsRowsSay) { CheckAll(); }

INSTANTIATE_TEST_SUITE_P(Api, ForwardedOn24, ::testing::ValuesIn(kSeries24Functions),
                         [](const auto& row) { return row.param.name; });

class E2vBoard : public StartedBoard {
 protected:
  E2vBoard() : StartedBoard("K4010") {}
};

// Its steps are 0.017 microseconds times the factor, which is 10 at first, and count
// from 0.714 microseconds on.
TEST_F(E2vBoard, TheHdrFactorStretchesTheSensorsExposureSteps) {
  ASSERT_EQ(SetSensingMode(1), 0);
  EXPECT_EQ(SetExposureTime(3, 1000), 0);
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x97), 5877);
  EXPECT_EQ(Get(fpga::EXP_TIME_3), 15u) << "1 microsecond only starts it";
  EXPECT_EQ(SetHDRParam(0, 20), 0);
  EXPECT_EQ(SetExposureTime(3, 1000), 0);
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x97), 2938);
}

// The counters run: only their order of reading and their halves can be told.
TEST_F(StartedBoard, CountersAreReadLowWordFirst) {
  const std::uint64_t first = GetTimerCounter();
  const std::uint64_t second = GetTimerCounter();
  EXPECT_GE(second, first);
  const auto accesses = Accesses();
  ASSERT_EQ(accesses.size(), 4u);
  EXPECT_TRUE(accesses[0].starts_with("read IMAGE_BLOCK_1 TIMER_COUNTER_L = "));
  EXPECT_TRUE(accesses[1].starts_with("read IMAGE_BLOCK_1 TIMER_COUNTER_H = "));

  tessaline_board_transcript_clear();
  GetEncoderCounter();
  const auto encoder = Accesses();
  ASSERT_EQ(encoder.size(), 2u);
  EXPECT_TRUE(encoder[0].starts_with("read IMAGE_BLOCK_1 ENCODER_COUNTER_L = "));
  EXPECT_TRUE(encoder[1].starts_with("read IMAGE_BLOCK_1 ENCODER_COUNTER_H = "));
}

// --- Completeness ------------------------------------------------------------------------

std::filesystem::path Tests() {
  return std::filesystem::path(__FILE__).parent_path().parent_path();
}

std::string Contents(const std::filesystem::path& file) {
  std::ifstream in(file);
  EXPECT_TRUE(in.is_open()) << file;
  return {std::istreambuf_iterator<char>(in), {}};
}

// A C++ function by its name in the source, without arguments.
std::string SourceName(const std::string& symbol) {
  char* const text = abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, nullptr);
  if (text == nullptr) return symbol;
  std::string name(text);
  free(text);
  return name.substr(0, name.find('('));
}

// All but the name of the interface's version.
std::set<std::string> ExportedNames() {
  std::istringstream list(Contents(Tests() / "exports.txt"));
  std::set<std::string> names;
  for (std::string symbol; std::getline(list, symbol);) {
    if (!symbol.starts_with("TESSALINE_")) names.insert(SourceName(symbol));
  }
  return names;
}

TEST(Completeness, EveryExportHasRowsOrATestOfItsOwn) {
  std::multiset<std::string> tested;
  for (const ForwardedFunction& function : Catalogue()) tested.insert(function.name);
  for (const TestFile& file : kTestedElsewhere) {
    tested.insert(file.symbols.begin(), file.symbols.end());
  }
  // Both ways: nothing is missing, and nothing is there twice or no longer exported.
  EXPECT_THAT(tested, ::testing::ElementsAreArray(ExportedNames()));
}

TEST(Completeness, TheTestsNamedElsewhereUseWhatTheyAreNamedFor) {
  for (const TestFile& file : kTestedElsewhere) {
    const std::string source = Contents(Tests() / file.path);
    for (const std::string& symbol : file.symbols) {
      const std::string name = symbol.substr(symbol.rfind(':') + 1);
      // An object is read, a destructor runs unwritten; the rest is called.
      const bool called = name[0] != '~' && name != "fpga_contol" && name != "SignalHandler";
      EXPECT_THAT(source, ::testing::HasSubstr(called ? name + '(' : name.substr(name[0] == '~')))
          << file.path;
    }
  }
}

}  // namespace
}  // namespace tessaline_test
