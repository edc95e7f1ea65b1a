// The whole catalogue: what each function writes and reads for its lowest, highest and
// out-of-range arguments, what it returns and prints. The rows are in forwards/.
#include <cxxabi.h>
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
#include "api/forwards/ImageProcessingFunctions.h"
#include "api/forwards/OutputsFunctions.h"
#include "api/forwards/SensorFunctions.h"
#include "api/forwards/Series24Functions.h"
#include "api/forwards/StripFunctions.h"
#include "api/forwards/TestedElsewhere.h"
#include "api/forwards/TriggerFunctions.h"
#include "support/Calling.h"

namespace tessaline_test {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> traces;

// Keeps the names that exported functions write to the log.
void KeepTrace(log_Event* event) {
  if (event->level != TESSALINE_LOG_TRACE ||
      std::string(event->file).find("VeltranoApi") == std::string::npos)
    return;
  char text[128];
  vsnprintf(text, sizeof text, event->fmt, event->ap);
  traces.emplace_back(text);
}

class TracedBoard : public StartedBoard {
 protected:
  using StartedBoard::StartedBoard;

  void SetUp() override {
    log_add_callback(KeepTrace, nullptr, TESSALINE_LOG_TRACE);
    StartedBoard::SetUp();
    traces.clear();
  }
};

class Forwarded : public CallingOn<TracedBoard> {
 protected:
  using CallingOn::CallingOn;

  void Check(const Calling& call) override {
    traces.clear();
    CallingOn::Check(call);
    EXPECT_EQ(traces.size(), 1u);
    called_ |= traces == std::vector{GetParam().name};
  }

  void TearDown() override {
    EXPECT_TRUE(called_) << "no row calls the function";
    StartedBoard::TearDown();
  }

 private:
  bool called_ = false;
};

TEST_P(Forwarded, DoesWhatItsRowsSay) { CheckAll(); }

std::vector<CalledFunction> Catalogue() {
  std::vector<CalledFunction> all;
  for (const auto* part : {&kTriggerFunctions, &kOutputsFunctions, &kStripFunctions,
                           &kImageProcessingFunctions, &kSensorFunctions}) {
    all.insert(all.end(), part->begin(), part->end());
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Api, Forwarded, ::testing::ValuesIn(Catalogue()), Forwarded::Name);

class ForwardedOn24 : public Forwarded {
 protected:
  ForwardedOn24() : Forwarded("K3920") {}
};

TEST_P(ForwardedOn24, DoesWhatItsRowsSay) { CheckAll(); }

INSTANTIATE_TEST_SUITE_P(Api, ForwardedOn24, ::testing::ValuesIn(kSeries24Functions),
                         Forwarded::Name);

class E2vBoard : public StartedBoard {
 protected:
  E2vBoard() : StartedBoard("K4010") {}
};

// Its steps are 0.017 microseconds times the factor, which is initially 10, and start at 0.714
// microseconds.
TEST_F(E2vBoard, TheHdrFactorStretchesTheSensorsExposureSteps) {
  ASSERT_EQ(SetSensingMode(1), 0);
  EXPECT_EQ(SetExposureTime(3, 1000), 0);
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x97), 5877);
  EXPECT_EQ(Get(fpga::kReg.EXP_TIME_3), 15u) << "1 microsecond only starts it";
  EXPECT_EQ(SetHDRParam(0, 20), 0);
  EXPECT_EQ(SetExposureTime(3, 1000), 0);
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x97), 2938);
}

// The counters run, so the test takes the value of each read from the transcript.
TEST_F(TracedBoard, CountersAreReadLowWordFirst) {
  for (const bool timer : {true, false}) {
    tessaline_board_transcript_clear();
    const std::uint64_t counter = timer ? GetTimerCounter() : GetEncoderCounter();
    EXPECT_THAT(Steps(), ElementsAre(Read(timer ? kReg.TIMER_COUNTER_L : kReg.ENCODER_COUNTER_L,
                                          static_cast<std::uint32_t>(counter)),
                                     Read(timer ? kReg.TIMER_COUNTER_H : kReg.ENCODER_COUNTER_H,
                                          static_cast<std::uint32_t>(counter >> 32))));
  }
  EXPECT_THAT(traces, ElementsAre("GetTimerCounter", "GetEncoderCounter"));
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

// All exported names except that of the interface version.
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
  for (const CalledFunction& function : Catalogue()) tested.insert(function.name);
  for (const TestFile& file : kTestedElsewhere) {
    tested.insert(file.symbols.begin(), file.symbols.end());
  }
  // The lists must be equal: no name is missing, duplicated or no longer exported.
  EXPECT_THAT(tested, ::testing::ElementsAreArray(ExportedNames()));
}

TEST(Completeness, TheTestsNamedElsewhereUseWhatTheyAreNamedFor) {
  for (const TestFile& file : kTestedElsewhere) {
    const std::string source = Contents(Tests() / file.path);
    for (const std::string& symbol : file.symbols) {
      const std::string name = symbol.substr(symbol.rfind(':') + 1);
      // Objects are only read, and destructors run implicitly. All other symbols are called.
      const bool called = name[0] != '~' && name != "fpga_contol" && name != "SignalHandler";
      EXPECT_THAT(source, ::testing::HasSubstr(called ? name + '(' : name.substr(name[0] == '~')))
          << file.path;
    }
  }
}

}  // namespace
}  // namespace tessaline_test
