// Recordings on the command line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Csv.h"
#include "Recording.h"
#include "ToolRun.h"
#include "calibrate/CalibrationFile.h"
#include "support/Head.h"

namespace tessaline_test {
namespace {

using ::testing::HasSubstr;

class Bag : public ::testing::Test {
 protected:
  void SetUp() override { WriteRecording(run_); }

  // A sub-command of "bag" in the recording's folder.
  ToolResult Run(const std::string& arguments) const {
    return ToolRun("bag " + arguments).In(directory_.path()).Run();
  }
  bool Has(const std::string& name) const { return std::filesystem::exists(directory_ / name); }

  const Directory directory_;
  const std::string run_ = directory_ / "run.db3";
};

TEST_F(Bag, InfoTellsWhatIsInIt) {
  const ToolResult text = Run("info run.db3");
  EXPECT_EQ(text.status, kOk) << text.err;
  EXPECT_THAT(text.out, HasSubstr("version 1, closed properly"));
  EXPECT_THAT(text.out, HasSubstr("model      K3610"));
  EXPECT_THAT(text.out, HasSubstr("300, ids 1 to 303, 1000.0/s; 3 ids missing: 101-103"));
  const auto json = Run("info run.db3 --json").Json();
  EXPECT_EQ(json["profiles"]["frames"], 300);
  EXPECT_EQ(json["profiles"]["missing_ids"], 3);
  EXPECT_EQ(json["profiles"]["first_gaps"][0][0], 101);
  EXPECT_EQ(json["images"]["frames"], 4);
  EXPECT_EQ(json["topics"]["/tessaline/strips"]["messages"], 30);
  EXPECT_EQ(json["device"]["model"], "K3610");
  EXPECT_EQ(json["seconds"], 3.0);
  EXPECT_EQ(json["damaged"], false);
}

TEST_F(Bag, CheckEndsWithOneIfSomethingIsDamaged) {
  EXPECT_EQ(Run("check run.db3").status, kOk);
  std::filesystem::resize_file(run_, std::filesystem::file_size(run_) * 3 / 4);
  const ToolResult text = Run("check run.db3");
  EXPECT_EQ(text.status, kNegative);
  EXPECT_THAT(text.out, HasSubstr("run.db3: DAMAGED"));
  EXPECT_THAT(text.out, HasSubstr("to the end cannot be read"));
  const auto json = Run("check run.db3 --json").Json();
  EXPECT_EQ(json["damaged"], true);
  const unsigned whole = json["profiles"]["frames"];
  EXPECT_GT(whole, 50u);
  EXPECT_LT(whole, 250u);
  // What is whole can be saved.
  const ToolResult cut = Run("cut run.db3 -o saved.db3 --from 0 --json");
  EXPECT_EQ(cut.status, kNegative);
  EXPECT_EQ(cut.Json()["profiles"], whole);
  EXPECT_EQ(Run("check saved.db3").status, kOk);
}

TEST_F(Bag, CheckSaysThatOneWasNotClosed) {
  const std::string open = directory_ / "open.db3";
  {
    tool::BagWriter writer(open);
    const tool::EventMessage event{record_test::kStart, "event", 1};
    writer.Write(tool::Topic::kEvents, event.stamp_ns, tool::Encode(event));
    writer.Sync();
  }
  const ToolResult result = Run("check open.db3");
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("not closed: whole up to its last sync, at 0.000 s"));
}

TEST_F(Bag, CutTakesTimesAndIds) {
  EXPECT_EQ(Run("cut run.db3 -o a.db3 --from 1 --to 1.5").status, kOk);
  EXPECT_EQ(Run("info a.db3 --json").Json()["profiles"]["frames"], 60);
  EXPECT_EQ(Run("cut run.db3 -o b.db3 --first-id 99 --last-id 106").status, kOk);
  const auto part = Run("info b.db3 --json").Json();
  EXPECT_EQ(part["profiles"]["frames"], 5);
  EXPECT_EQ(part["topics"]["/tessaline/registers"]["messages"], 1);
  EXPECT_EQ(part["device"]["model"], "K3610");
  EXPECT_EQ(Run("cut run.db3 -o c.db3 --from 2023-11-14T22:13:21Z --to @1700000001").status, kOk);
  EXPECT_EQ(Run("info c.db3 --json").Json()["profiles"]["frames"], 10);
}

TEST_F(Bag, ExportsWhatCaptureWrites) {
  for (const char* file : {"x.csv", "x.npy", "x.ply", "x.png", "x.raw"}) {
    const ToolResult result = Run(std::string("export run.db3 --json -o ") + file);
    EXPECT_EQ(result.status, kOk) << file << result.err;
    EXPECT_EQ(result.Json()["frames"], 300) << file;
    EXPECT_TRUE(Has(file));
  }
  const Csv csv(directory_ / "x.csv");
  ASSERT_EQ(csv.Texts("row").size(), 30'000u);
  EXPECT_EQ(csv.Texts("frame_id").back(), "303");
  EXPECT_EQ(csv.Texts("sensor").front(), "1456x1088");
  EXPECT_EQ(csv.Numbers("row").back(), 429);
  EXPECT_THAT(FileText(directory_ / "x.npy"), HasSubstr("'shape': (300,)"));
  EXPECT_THAT(FileText(directory_ / "x.ply"), HasSubstr("element vertex 30000\n"));
  EXPECT_EQ(std::filesystem::file_size(directory_ / "x.raw"), 300u * (32 + 100 * 8));
  EXPECT_EQ(Csv(directory_ / "x.raw.csv").Texts("frame_id").size(), 300u);
}

TEST_F(Bag, ExportsImages) {
  const auto json = Run("export run.db3 images -o i.pgm --json").Json();
  EXPECT_EQ(json["files"].size(), 4u);
  EXPECT_THAT(FileText(directory_ / "i_0004.pgm"), HasSubstr("frame 4 "));
  EXPECT_EQ(Run("export run.db3 images -o i.npy").status, kOk);
  EXPECT_THAT(FileText(directory_ / "i.npy"), HasSubstr("('pixels', '|u1', (8, 16))"));
}

TEST_F(Bag, ExportsToStandardOutput) {
  const ToolResult result = Run("export run.db3 --format csv -o -");
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_EQ(CountLines(result.out), 30'001);
}

TEST_F(Bag, NamesTheFileAfterTheRecording) {
  EXPECT_EQ(Run("export run.db3 --format csv").status, kOk);
  EXPECT_TRUE(Has("run.csv"));
  EXPECT_EQ(Run("export run.db3 --format bag").status, kOk);
  EXPECT_TRUE(Has("run/run_0.db3"));
  EXPECT_TRUE(Has("run/metadata.yaml"));
}

TEST_F(Bag, MeasuresByTheCalibrationInTheRecording) {
  const auto head = tool::calibrate::ToJson({kHead, "K3610"});
  const nlohmann::ordered_json device{{"model", "K3610"}, {"calibration", head}};
  WriteRecording(directory_ / "mm.db3", device.dump());
  EXPECT_EQ(Run("export mm.db3 -o mm.csv --json").Json()["unit"], "mm");
  EXPECT_EQ(Csv(directory_ / "mm.csv").Texts("x_mm").size(), 30'000u);
  EXPECT_EQ(Run("export mm.db3 -o p.csv --calibration none --json").Json()["unit"], "pixels");
  const ToolResult ply = Run("export mm.db3 -o mm.ply");
  EXPECT_EQ(ply.status, kUsage);
  EXPECT_THAT(ply.err, HasSubstr("give --counts-per-mm"));
  EXPECT_FALSE(Has("mm.ply"));
  EXPECT_EQ(Run("export mm.db3 -o mm.ply --counts-per-mm 100").status, kOk);
}

TEST_F(Bag, PlacesPointsByTheRecipeInTheRecording) {
  WriteRecording(directory_ / "roi.db3",
                 R"({"model": "K3610", "recipe": {"recipe": 1, "model": "K3610",
                     "region": {"x": 128, "y": 256, "width": 1000, "height": 700}}})");
  EXPECT_EQ(Run("export roi.db3 -o roi.csv").status, kOk);
  const Csv csv(directory_ / "roi.csv");
  EXPECT_EQ(csv.Numbers("column").front(), 128);
  EXPECT_EQ(csv.Numbers("row").front(), 400 + 256);
}

struct Refusal {
  const char* arguments;
  int status;
  const char* what;
};
class Refused : public Bag, public ::testing::WithParamInterface<Refusal> {};

TEST_P(Refused, WithAReasonAndNoFile) {
  WriteFile(directory_ / "text", "no database, but a text that is long enough to look like one");
  WriteFile(directory_ / "mine.csv", "mine");
  WriteRecording(directory_ / "nameless.db3", "{}");
  WriteRecording(directory_ / "hostile.db3", R"({"model": "K3610", "calibration": {"plane": []}})");
  tool::BagWriter((directory_ / "empty.db3")).Close();
  const ToolResult result = Run(GetParam().arguments);
  EXPECT_EQ(result.status, GetParam().status) << result.err;
  EXPECT_THAT(result.err, HasSubstr(GetParam().what));
  EXPECT_EQ(FileText(directory_ / "mine.csv"), "mine");
  for (const char* file : {"new.db3", "new.csv", "new.mcap", "new.xyz"}) EXPECT_FALSE(Has(file));
}

INSTANTIATE_TEST_SUITE_P(
    All, Refused,
    ::testing::Values(
        Refusal{"info text", kFile, "this is no recording"},
        Refusal{"check missing.db3", kFile, "No such file"}, Refusal{"check .", kFile, "."},
        Refusal{"cut run.db3 -o new.db3", kUsage, "no part is given"},
        Refusal{"cut run.db3 -o new.db3 --from soon", kUsage, "\"soon\" is no time"},
        Refusal{"cut run.db3 -o new.db3 --from 99", kNegative, "nothing of it is in this range"},
        Refusal{"cut empty.db3 -o new.db3 --from 0", kNegative, "nothing of it is in this range"},
        Refusal{"cut run.db3 -o run.db3 --from 0", kExists, "already exists"},
        Refusal{"cut run.db3 -o none/new.db3 --from 0", kFile, "cannot create none/new.db3"},
        Refusal{"export run.db3", kUsage, "no format is given"},
        Refusal{"export run.db3 -o new.mcap --format mcap", kUsage, "writes no mcap"},
        Refusal{"export run.db3 -o new.xyz", kUsage, "cannot be written as \"xyz\""},
        Refusal{"export run.db3 -o mine.csv", kExists, "--force overwrites it"},
        Refusal{"export empty.db3 -o new.csv", kNegative, "has no frames"},
        Refusal{"export nameless.db3 -o new.csv", kUsage, "give --model CODE"},
        Refusal{"export hostile.db3 -o new.csv", kUsage, "the recording's calibration"},
        Refusal{"export run.db3 -o new.csv --roi 0 0 5000 100", kUsage, "5000"}));

TEST_F(Bag, EmptyIsToldOf) {
  tool::BagWriter((directory_ / "empty.db3")).Close();
  const ToolResult result = Run("info empty.db3");
  EXPECT_EQ(result.status, kOk);
  EXPECT_THAT(result.out, HasSubstr("no messages"));
  EXPECT_EQ(Run("check empty.db3").status, kOk);
}

}  // namespace
}  // namespace tessaline_test
