// A file of several sensors on the command line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Csv.h"
#include "Recorded.h"
#include "ToolRun.h"
#include "record/BagFixture.h"
#include "record/FleetFile.h"

namespace tessaline_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

// Profiles of two sensors, 1000 a second: of line3.left a K3610's 1 to 40 without 11 to 13, which a
// gap message names; of line3.right a K3710's 1 to 20 without 15, which none does.
class Sensors : public ::testing::Test {
 protected:
  void SetUp() override {
    using ring::Kind;
    tool::FleetFile file(directory_ / "all.db3");
    const auto device = [&](const std::string& sensor, const std::string& json) {
      file.Write(sensor,
                 {Kind::kDevice, record_test::kStart, 0, 0, std::as_bytes(std::span(json))});
    };
    device("line3.left", R"({"model": "K3610"})");
    device("line3.right", R"({"model": "K3710"})");
    for (std::uint64_t id = 1; id <= 40; ++id) {
      if (id < 11 || id > 13) WriteStrip(file, "line3.left", id, 100);
      if (id <= 20 && id != 15) WriteStrip(file, "line3.right", id, 200);
      if (id != 13) continue;
      tool::GapMessage gap;
      gap.stamp_ns = record_test::kStart + 13 * record_test::kMs;
      gap.reason = "store";
      gap.run = "6f1c000000000001";
      gap.strips_first = 11;
      gap.strips_last = 13;
      gap.strips_count = 3;
      file.Write("line3.left", gap);
    }
    file.Close();
  }
  static void WriteStrip(tool::FleetFile& file, const std::string& sensor, std::uint64_t id,
                         unsigned points) {
    std::vector<std::byte> bytes;
    record_test::AppendStrip(bytes, id, points);
    file.Write(sensor, {ring::Kind::kStrips,
                        record_test::kStart + static_cast<std::int64_t>(id) * record_test::kMs, 1,
                        8, bytes});
  }
  ToolResult Run(const std::string& arguments) const {
    return ToolRun(arguments).In(directory_.path()).Run();
  }

  const Directory directory_;
};

TEST_F(Sensors, AreListed) {
  const ToolResult text = Run("bag info all.db3");
  EXPECT_EQ(text.status, kOk) << text.err;
  EXPECT_THAT(text.out, AllOf(HasSubstr("all.db3: version 2, 2 sensors, closed properly"),
                              HasSubstr("sensor     line3.left K3610, 0.040 s long\n"
                                        "profiles   37, ids 1 to 40, 1000.0/s; 3 ids missing: "
                                        "11-13, named by gap messages\n"),
                              HasSubstr("gap        store, 3 profiles 11-13, in run 6f1c0000"),
                              HasSubstr("profiles   19, ids 1 to 20, 1000.0/s; 1 id missing: "
                                        "15\n")));
  const auto json = Run("bag info all.db3 --json").Json();
  EXPECT_EQ(json["version"], 2);
  ASSERT_EQ(json["sensors"].size(), 2u);
  EXPECT_EQ(json["sensors"][0]["sensor"], "line3.left");
  EXPECT_EQ(json["sensors"][0]["profiles"]["missing_ids"], 3);
  EXPECT_EQ(json["sensors"][0]["profiles"]["unexplained_ids"], 0);
  EXPECT_EQ(json["sensors"][0]["gap_messages"], 1);
  EXPECT_EQ(json["sensors"][0]["first_gap_messages"][0]["profiles"]["last"], 13);
  EXPECT_EQ(json["sensors"][1]["model"], "K3710");
  EXPECT_EQ(json["sensors"][1]["profiles"]["first_unexplained"][0][0], 15);
}

TEST_F(Sensors, AreToldOfOneByOne) {
  const ToolResult text = Run("bag info all.db3 --sensor line3.right");
  EXPECT_EQ(text.status, kOk) << text.err;
  EXPECT_THAT(text.out, AllOf(HasSubstr("all.db3 (line3.right): version 2, closed properly"),
                              HasSubstr("model      K3710"), HasSubstr("profiles   19, ids 1")));
  const auto json = Run("bag info all.db3 --sensor line3.left --json").Json();
  EXPECT_EQ(json["sensor"], "line3.left");
  EXPECT_EQ(json["topics"]["/tessaline/strips"]["messages"], 37);
  EXPECT_EQ(json["topics"]["/tessaline/gaps"]["messages"], 1);
  EXPECT_EQ(json["device"]["model"], "K3610");
}

TEST_F(Sensors, AreIncompleteIfNobodyCanExplainWhatIsMissing) {
  {
    tool::FleetFile file(directory_ / "all.db3");
    tool::GapMessage gap;
    gap.stamp_ns = record_test::kStart + 15 * record_test::kMs;
    gap.reason = tool::GapMessage::kUnknown;
    gap.run = "6f1c000000000002";
    gap.strips_first = gap.strips_last = 15;
    gap.strips_count = 1;
    file.Write("line3.right", gap);
    file.Close();
  }
  const ToolResult right = Run("bag check all.db3 --sensor line3.right --json");
  EXPECT_EQ(right.status, kNegative) << right.out;
  EXPECT_EQ(right.Json()["gap_messages"], 1);
  EXPECT_EQ(right.Json()["unexplained_ids"], 1);
}

TEST_F(Sensors, AreIncompleteIfNothingNamesWhatIsMissing) {
  const ToolResult all = Run("bag check all.db3");
  EXPECT_EQ(all.status, kNegative);
  EXPECT_THAT(all.out, AllOf(HasSubstr("all.db3 (line3.left): whole; closed properly"),
                             HasSubstr("1 gap message, naming 3 missing ids"),
                             HasSubstr("all.db3 (line3.right): INCOMPLETE; closed properly"),
                             HasSubstr("MISSING  1 profile, and no gap message names it: 15\n")));
  const auto json = Run("bag check all.db3 --json").Json();
  EXPECT_EQ(json["damaged"], false);
  EXPECT_EQ(json["unexplained_ids"], 1);
  EXPECT_EQ(json["sensors"][1]["unexplained_ids"], 1);
  const ToolResult left = Run("bag check all.db3 --sensor line3.left --json");
  EXPECT_EQ(left.status, kOk) << left.err;
  EXPECT_EQ(left.Json()["gap_messages"], 1);
  EXPECT_EQ(Run("bag check all.db3 --sensor line3.right").status, kNegative);
}

TEST_F(Sensors, AreDamagedTogether) {
  std::filesystem::resize_file(directory_ / "all.db3",
                               std::filesystem::file_size(directory_ / "all.db3") * 3 / 4);
  const ToolResult result = Run("bag check all.db3");
  EXPECT_EQ(result.status, kNegative);
  EXPECT_THAT(result.out, HasSubstr("all.db3 (line3.left): DAMAGED"));
  EXPECT_EQ(Run("bag check all.db3 --json").Json()["damaged"], true);
}

TEST_F(Sensors, AreCutToRecordingsOfOne) {
  const ToolResult cut = Run("bag cut all.db3 --sensor line3.left -o part.db3 --first-id 5");
  EXPECT_EQ(cut.status, kOk) << cut.err;
  const auto part = Run("bag info part.db3 --json").Json();
  EXPECT_EQ(part["version"], 1);
  EXPECT_EQ(part["sensor"], nullptr);
  EXPECT_EQ(part["profiles"]["frames"], 33);
  EXPECT_EQ(part["device"]["model"], "K3610");
  EXPECT_EQ(part["gap_messages"], 1);
}

TEST_F(Sensors, AreExported) {
  EXPECT_EQ(Run("bag export all.db3 --sensor line3.right -o right.csv").status, kOk);
  const Csv csv(directory_ / "right.csv");
  EXPECT_EQ(csv.Texts("row").size(), 19u * 200);
  EXPECT_EQ(csv.Texts("frame_id").back(), "20");
  EXPECT_EQ(Run("bag export all.db3 --sensor line3.left --format bag -o left").status, kOk);
  const auto bag = Run("bag info left/left_0.db3 --json").Json();
  EXPECT_EQ(bag["profiles"]["frames"], 37);
  EXPECT_EQ(bag["topics"]["/tessaline/points"]["messages"], 37);
}

TEST_F(Sensors, AreReplayed) {
  const std::string again = directory_ / "again.db3";
  const ToolResult result =
      Run("record --memory 32 -o " + again + " -- " + TESSALINE_TOOL +
          " replay all.db3 --sensor line3.left --from 0.02 --fast --stop" + Application("wait"));
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.err + result.out, HasSubstr("all.db3 (line3.left) played"));
  EXPECT_EQ(Recorded(again).strips, 21u);
}

struct Refusal {
  const char* arguments;
  const char* what;
};
class SensorsRefused : public Sensors, public ::testing::WithParamInterface<Refusal> {};

TEST_P(SensorsRefused, WithAReason) {
  tool::BagWriter((directory_ / "plain.db3")).Close();
  const ToolResult result = Run(GetParam().arguments);
  EXPECT_EQ(result.status, kUsage);
  EXPECT_THAT(result.err, HasSubstr(GetParam().what));
}

constexpr const char* kSayWhich =
    "all.db3 is of several sensors: line3.left, line3.right; say which: --sensor NAME";
INSTANTIATE_TEST_SUITE_P(
    All, SensorsRefused,
    ::testing::Values(Refusal{"bag cut all.db3 -o new.db3 --from 0", kSayWhich},
                      Refusal{"bag export all.db3 -o new.csv", kSayWhich},
                      Refusal{"replay all.db3 -- true", kSayWhich},
                      Refusal{"bag info all.db3 --sensor line3",
                              "all.db3 has no sensor \"line3\"; it has line3.left, line3.right"},
                      Refusal{"bag info plain.db3 --sensor line3",
                              "it is of one sensor without a name"}));

}  // namespace
}  // namespace tessaline_test
