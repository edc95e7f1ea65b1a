// Settings in a file: written, shown, compared, made, and refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::StartsWith;

// Every setting there is, none with its default.
const std::string kAll =
    " --roi 128 256 1000 700 --exposure 100,800 --gain 6 --power 12.5 --laser on --trigger encoder"
    " --spacing 7 --delay 5 --input-filter 3 --door on --led green ";

class Recipe : public ::testing::Test {
 protected:
  ToolResult Run(const std::string& arguments) const {
    return ToolRun(arguments).In(folder_.path()).Run();
  }
  nlohmann::json File(const std::string& name) const {
    return nlohmann::json::parse(FileText(folder_ / name), nullptr, false);
  }
  // The calls that a sub-command would make.
  std::vector<std::string> Calls(const std::string& arguments) const {
    const ToolResult result = Run(arguments + " --dry-run --json");
    EXPECT_EQ(result.status, kOk) << result.err;
    return result.Json().value("calls", std::vector<std::string>());
  }
  std::vector<std::string> CallsOfStrips(const std::string& options) const {
    return Calls("capture strips -n 1 -o scan.csv --virtual K3610 " + options);
  }

  const Directory folder_;
};

TEST_F(Recipe, KeepsEverySetting) {
  const ToolResult saved = Run("recipe save all.json --model K3610" + kAll);
  ASSERT_EQ(saved.status, kOk) << saved.err;
  EXPECT_EQ(saved.out, "wrote the recipe for K3610 to all.json\n");
  const nlohmann::json expected{
      {"recipe", 1},
      {"model", "K3610"},
      {"region", {{"x", 128}, {"y", 256}, {"width", 1000}, {"height", 700}}},
      {"exposure_us", {100, 800}},
      {"gain", 6},
      {"power_percent", 12.5},
      {"laser", "on"},
      {"trigger", "encoder"},
      {"spacing", 7},
      {"delay_us", 5},
      {"input_filter_us", 3},
      {"door", "on"},
      {"led", "green"}};
  EXPECT_EQ(File("all.json"), expected);

  const auto shown = Run("recipe show all.json --json").Json();
  EXPECT_TRUE(shown["defaults"].empty());
  for (const auto& [key, value] : shown["settings"].items()) EXPECT_EQ(value, expected[key]) << key;
  EXPECT_EQ(shown["settings"].size(), expected.size() - 2);
}

TEST_F(Recipe, MakesTheCallsOfItsOptions) {
  ASSERT_EQ(Run("recipe save all.json --model K3610" + kAll).status, kOk);
  const auto calls = CallsOfStrips("--recipe all.json");
  EXPECT_EQ(calls, CallsOfStrips(kAll));
  EXPECT_THAT(calls, IsSupersetOf({"SetROI1(128, 256, 1000, 700)", "SetExposureNum(2)",
                                   "SetExposureTime(1, 100)", "SetExposureTime(2, 800)",
                                   "SetCmosGain(6)", "SetLaserPower(12.5)", "SetTriMode(1)",
                                   "SetTriSpacing(7)", "SetTriDelay(5)", "SetExternSignalFilter(3)",
                                   "SetDoorControlEn(1)", "LedControl(2)", "OpenLaser()"}));
  EXPECT_EQ(Calls("watch --virtual K3610 --recipe all.json"), calls);
}

TEST_F(Recipe, ReachesTheRegisters) {
  ASSERT_EQ(Run("recipe save all.json --roi 128 256 1000 700 --spacing 1000 --delay 5 --led green"
                " --model K3610")
                .status,
            kOk);
  for (const char* arguments :
       {"capture strips -n 2 -o scan.csv --recipe all.json", "recipe apply all.json"}) {
    const ToolResult result = ToolRun(std::string(arguments) + " --virtual K3610")
                                  .In(folder_.path())
                                  .With("TESSALINE_BOARD_TRANSCRIPT", folder_ / "transcript")
                                  .Run();
    ASSERT_EQ(result.status, kOk) << result.err;
    EXPECT_THAT(FileText(folder_ / "transcript"),
                AllOf(HasSubstr("STRIP_IMAGE_WIDTH = 0x000003e8"),
                      HasSubstr("TRI_DELAY = 0x000000fa"), HasSubstr("TRI_SPACING = 0x0000c350")))
        << arguments;
  }
}

TEST_F(Recipe, GivesWayToOptions) {
  ASSERT_EQ(Run("recipe save some.json --exposure 200 --trigger encoder --spacing 7").status, kOk);
  // Options, file, defaults.
  EXPECT_THAT(CallsOfStrips("--recipe some.json --exposure 90"),
              IsSupersetOf({"SetExposureTime(1, 90)", "SetTriSpacing(7)", "SetLaserPower(50)"}));
  // Pulses do not become microseconds.
  EXPECT_THAT(CallsOfStrips("--recipe some.json --trigger timer"),
              IsSupersetOf({"SetExposureTime(1, 200)", "SetTriMode(0)", "SetTriSpacing(4000)"}));
  EXPECT_THAT(CallsOfStrips("--recipe some.json --spacing 9"),
              IsSupersetOf({"SetTriMode(1)", "SetTriSpacing(9)"}));
  // A recipe made of another one.
  ASSERT_EQ(Run("recipe save more.json --recipe some.json --exposure 90 --gain 2").status, kOk);
  EXPECT_EQ(File("more.json"), (nlohmann::json{{"recipe", 1},
                                               {"exposure_us", 90},
                                               {"gain", 2},
                                               {"trigger", "encoder"},
                                               {"spacing", 7}}));
}

TEST_F(Recipe, IsShownWithUnitsAndDefaults) {
  ASSERT_EQ(Run("recipe save some.json --exposure 200 --trigger encoder --model K3710").status,
            kOk);
  EXPECT_EQ(Run("recipe show some.json").out,
            "some.json, for K3710\n"
            "  region           2048 x 1536 pixels at column 8, row 4 (default)\n"
            "  exposure         200 us\n"
            "  gain             as after a start (default)\n"
            "  laser power      50 % (default)\n"
            "  laser            on (default)\n"
            "  trigger          encoder\n"
            "  trigger spacing  10 pulses (default)\n"
            "  trigger delay    as after a start (default)\n"
            "  input filter     as after a start (default)\n"
            "  door control     as after a start (default)\n"
            "  status light     as after a start (default)\n");
  WriteFile(folder_ / "any.json", R"({"recipe": 1})");
  EXPECT_THAT(Run("recipe show any.json").out,
              AllOf(HasSubstr("any.json, for any model\n"),
                    HasSubstr("region           that of the model (default)\n")));
  EXPECT_THAT(Run("recipe show any.json --model K3820").out,
              HasSubstr("trigger spacing  5000 us (default)\n"));
}

TEST_F(Recipe, IsComparedByWhatItDoes) {
  WriteFile(folder_ / "a.json", R"({"recipe": 1, "gain": 6, "power_percent": 50})");
  WriteFile(folder_ / "b.json", R"({"gain": 6, "recipe": 1})");
  WriteFile(folder_ / "c.json", R"({"recipe": 1, "model": "K36", "power_percent": 20})");
  const ToolResult same = Run("recipe diff a.json b.json");
  EXPECT_EQ(same.status, kOk) << same.err;
  EXPECT_EQ(same.out, "the same settings\n");
  const ToolResult differ = Run("recipe diff a.json c.json");
  EXPECT_EQ(differ.status, kNegative);
  EXPECT_EQ(differ.out,
            "                   a.json                   c.json\n"
            "  model            any model                K36..\n"
            "  gain             6                        as after a start\n"
            "  laser power      50 %                     20 %\n");
  const auto differences = Run("recipe diff a.json c.json --json").Json()["differences"];
  ASSERT_EQ(differences.size(), 3u);
  EXPECT_EQ(differences[1], nlohmann::json({{"key", "gain"}, {"one", 6}, {"other", nullptr}}));
  EXPECT_TRUE(Run("recipe diff a.json b.json --json").Json()["differences"].empty());
  EXPECT_EQ(Run("recipe diff a.json missing.json").status, kFile);
}

TEST_F(Recipe, IsApplied) {
  WriteFile(folder_ / "some.json", R"({"recipe": 1, "gain": 6, "laser": "off"})");
  const auto rehearsed = Run("recipe apply some.json --dry-run --json --model K3610").Json();
  EXPECT_EQ(rehearsed["dry_run"], true);
  std::vector<std::string> calls;
  for (const auto& step : rehearsed["steps"]) calls.push_back(step["call"]);
  EXPECT_THAT(calls, ElementsAre("SetExposureNum(1)", "SetExposureTime(1, 320)", "SetCmosGain(6)",
                                 "SetTriMode(0)", "SetTriSpacing(4000)"));
  const ToolResult applied = Run("recipe apply some.json --virtual K3610");
  EXPECT_EQ(applied.status, kOk) << applied.err;
  EXPECT_THAT(applied.out,
              AllOf(HasSubstr("  SetCmosGain(6)                     analogue gain 6\n"),
                    HasSubstr("the setting with it"), Not(HasSubstr("OpenLaser"))));
  EXPECT_EQ(Run("recipe apply some.json").status, kUsage);  // no model
}

// Where settings do not last, the way to keep them is told.
TEST_F(Recipe, IsPointedTo) {
  for (const char* arguments :
       {"exposure 100", "roi --full", "trigger --mode timer", "power 5", "led red", "laser off"}) {
    EXPECT_THAT(Run(std::string(arguments) + " --virtual K3610").out,
                EndsWith("or keep it with \"tessaline recipe save\".\n"))
        << arguments;
  }
}

TEST_F(Recipe, IsWrittenOnceAndWhole) {
  ASSERT_EQ(Run("recipe save a.json --gain 6").status, kOk);
  const std::string before = FileText(folder_ / "a.json");
  const ToolResult second = Run("recipe save a.json --gain 7");
  EXPECT_EQ(second.status, kExists);
  EXPECT_THAT(second.err, HasSubstr("a.json already exists; --force overwrites it"));
  EXPECT_EQ(FileText(folder_ / "a.json"), before);
  ASSERT_EQ(Run("recipe save a.json --gain 7 --force").status, kOk);
  EXPECT_EQ(File("a.json")["gain"], 7);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "a.json.part"));
  EXPECT_EQ(Run("recipe save nowhere/a.json").status, kFile);

  const ToolResult printed = Run("recipe save - --gain 7");
  EXPECT_EQ(printed.out, FileText(folder_ / "a.json"));
  EXPECT_THAT(printed.err, HasSubstr("wrote the recipe"));
}

TEST_F(Recipe, IsForAModelOrAFamily) {
  ASSERT_EQ(Run("recipe save one.json --gain 3 --model K3820").status, kOk);
  ASSERT_EQ(Run("recipe save all.json --gain 3 --model K3820 --family").status, kOk);
  EXPECT_EQ(File("one.json")["model"], "K3820");
  EXPECT_EQ(File("all.json")["model"], "K38");
  const std::string use = "capture images -n 1 -o image.png --dry-run --recipe ";
  EXPECT_EQ(Run(use + "one.json --model K3820").status, kOk);
  EXPECT_EQ(Run(use + "all.json --model K3810").status, kOk);
  struct Case {
    std::string arguments;
    const char* reason;
  };
  const Case cases[]{
      {use + "one.json --model K3610", "one.json: made for a K3820, not for a K3610; give --model"},
      {use + "one.json --model K3810", "one.json: made for a K3820, not for a K3810"},
      {use + "all.json --model K3610", "all.json: made for a K38.., not for a K3610"},
      {"recipe show one.json --model K3610", "one.json: made for a K3820, not for a K3610"},
      {"recipe apply all.json --virtual K3610", "all.json: made for a K38.., not for a K3610"},
      {"recipe save more.json --recipe one.json --model K3610", "not for a K3610"},
      {use + "all.json --gain 6 --model K3820",
       "capture: the GMAX2509 of a K3820 has no gain of 6"},
      // What a model or its family does not have is not saved either.
      {"recipe save x.json --gain 6 --model K3820", "no gain of 6; its gain is 1 to 5"},
      {"recipe save x.json --roi 0 0 100 100 --model K3820", "width from 560"},
      {"recipe save x.json --roi 0 0 560 2000 --family --model K3820",
       "the GMAX2509 of a K3810 has no region"},
      {"recipe save x.json --family", "--family needs a model"},
      {"recipe save x.json --gain 49", "no model has a gain of 49; --model CODE shows the limits"},
      {"recipe save x.json --exposure 0", "--exposure: Value 0 not in range 1 to 10000000"},
      {"recipe save x.json --exposure 1,2,3,4,5,6", "--exposure: takes at most 5"},
      {"recipe save x.json --power nan", "--power: nan is not in the range 0 - 100"},
  };
  for (const Case& one : cases) {
    const ToolResult result = Run(one.arguments);
    EXPECT_EQ(result.status, kUsage) << one.arguments;
    EXPECT_THAT(result.err, HasSubstr(one.reason));
    EXPECT_EQ(CountLines(result.err), 1) << result.err;
  }
  EXPECT_FALSE(std::filesystem::exists(folder_ / "x.json"));
}

// --- Files that are none -------------------------------------------------------------------

struct BadFile {
  const char* name;
  std::string text;
  int status;
  const char* reason;
};

void PrintTo(const BadFile& file, std::ostream* out) { *out << file.name; }

std::string Times(int count, const std::string& text) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

// The settings of a recipe of version 1.
std::string With(const std::string& settings) { return R"({"recipe": 1, )" + settings + "}"; }

class BadRecipe : public ::testing::TestWithParam<BadFile> {};

// Nothing on the board is touched for it, and it never crashes.
TEST_P(BadRecipe, IsRefusedInOneLine) {
  const Directory folder;
  WriteFile(folder / "bad.json", GetParam().text);
  for (const char* arguments :
       {"recipe show bad.json", "recipe apply bad.json --model K3610",
        "capture strips -n 1 -o scan.csv --model K3610 --recipe bad.json"}) {
    const ToolResult result = ToolRun(arguments).In(folder.path()).Run();
    EXPECT_EQ(result.status, GetParam().status) << arguments;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(CountLines(result.err), 1) << result.err;
    EXPECT_THAT(result.err, AllOf(StartsWith("tessaline "), HasSubstr("bad.json: "),
                                  HasSubstr(GetParam().reason)));
    EXPECT_LT(result.err.size(), 400u) << result.err;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Files, BadRecipe,
    ::testing::Values(
        BadFile{"Empty", "", kUsage, "is empty"},
        BadFile{"NoObject", "[1]", kUsage, "is not a JSON object"},
        BadFile{"NoJson", "{\n\"recipe\": 1,\n}", kUsage, "is not valid JSON in line 3"},
        BadFile{"MoreBehind", "{\"recipe\": 1} 2", kUsage, "is not valid JSON in line 1"},
        BadFile{"Noise", "\x01\xff\x00\x7f", kUsage, "is not valid JSON in line 1"},
        BadFile{"InvalidUtf8", With("\"led\": \"\xff\xfe\""), kUsage, "is not valid JSON"},
        BadFile{"NoVersion", R"({"gain": 1})", kUsage, "is not a recipe"},
        BadFile{"NewerVersion", R"({"recipe": 2, "sun": 1})", kUsage,
                "recipe is 2, a newer format; this command reads version 1"},
        BadFile{"ZerothVersion", R"({"recipe": 0})", kUsage, "recipe is 0; it takes 1"},
        BadFile{"VersionText", R"({"recipe": "1"})", kUsage, "recipe is \"1\"; it takes 1"},
        BadFile{"UnknownKey", With(R"("gaim": 1)"), kUsage, "\"gaim\" is no setting; a recipe may"},
        BadFile{"KeyWithLineEnd", With(R"("a\n\u001b[2J": 1)"), kUsage, "\"a\\n\\u001b[2J\" is no"},
        BadFile{"LongKey", With('"' + Times(50000, "k") + "\": 1"), kUsage, "... is no setting"},
        BadFile{"KeyTwice", With(R"("gain": 1, "gain": 2)"), kUsage, "\"gain\" stands there twice"},
        BadFile{"InnerKeyTwice",
                With(R"("region": {"x": 0, "x": 1, "y": 0, "width": 1, "height": 1})"), kUsage,
                "\"x\" stands there twice"},
        BadFile{"TextForNumber", With(R"("gain": "6")"), kUsage,
                "gain is \"6\"; it takes a whole number from 0 to 4294967295"},
        BadFile{"NullForNumber", With(R"("gain": null)"), kUsage, "gain is null; it takes"},
        BadFile{"FractionForNumber", With(R"("spacing": 1.5)"), kUsage, "spacing is 1.5; it takes"},
        BadFile{"BelowZero", With(R"("gain": -1)"), kUsage, "gain is -1; it takes"},
        BadFile{"GainOfNoModel", With(R"("gain": 60)"), kUsage, "gain of 60"},
        BadFile{"BeyondALong", With(R"("gain": 99999999999999999999)"), kUsage, "gain is 1e+20"},
        BadFile{"BeyondADouble", With(R"("gain": 1e999)"), kUsage, "a number that is too large"},
        BadFile{"NoNumber", With(R"("power_percent": NaN)"), kUsage, "is not valid JSON"},
        BadFile{"NoNumberText", With(R"("power_percent": "nan")"), kUsage,
                "power_percent is \"nan\"; it takes a number from 0 to 100"},
        BadFile{"PowerTooHigh", With(R"("power_percent": 100.1)"), kUsage,
                "power_percent is 100.1; it takes a number from 0 to 100"},
        BadFile{"ExposureTooShort", With(R"("exposure_us": [100, 0])"), kUsage,
                "exposure_us is 0; it takes a whole number from 1 to 10000000"},
        BadFile{"NoExposure", With(R"("exposure_us": [])"), kUsage,
                "exposure_us is []; it takes a number, or 1 to 5 of them"},
        BadFile{"ManyExposures", With(R"("exposure_us": [1, 2, 3, 4, 5, 6])"), kUsage,
                "it takes a number, or 1 to 5 of them"},
        BadFile{"SpacingTooLong", With(R"("spacing": 85899346)"), kUsage, "from 1 to 85899345"},
        BadFile{"UnknownWord", With(R"("trigger": "sun")"), kUsage,
                "trigger is \"sun\"; it takes timer, encoder, external, timer-start"},
        BadFile{"FlagForWord", With(R"("laser": true)"), kUsage, "laser is true; it takes off, on"},
        BadFile{"NumbersForRegion", With(R"("region": [0, 0, 10, 10])"), kUsage,
                "it takes x, y, width and height"},
        BadFile{"RegionWithoutHeight", With(R"("region": {"x": 0, "y": 0, "width": 1})"), kUsage,
                "it takes x, y, width and height"},
        BadFile{"RegionWithMore",
                With(R"("region": {"x": 0, "y": 0, "width": 1, "height": 1, "z": 1})"), kUsage,
                "it takes x, y, width and height"},
        BadFile{"RegionBelowZero", With(R"("region": {"x": -1, "y": 0, "width": 1, "height": 1})"),
                kUsage, "region.x is -1; it takes a whole number"},
        BadFile{"RegionOfNothing", With(R"("region": {"x": 0, "y": 0, "width": 0, "height": 0})"),
                kUsage, "region of 0 x 0"},
        BadFile{"UnknownModel", With(R"("model": "K3611")"), kUsage,
                "unknown model \"K3611\"; the nearest is K3610"},
        BadFile{"EmptyModel", With(R"("model": "")"), kUsage, "model is \"\"; it takes"},
        BadFile{"NotOfTheModel", With(R"("model": "K36", "gain": 49)"), kUsage,
                "the IMX273 of a K3610 has no gain of 49; its gain is 0 to 48 decibels"},
        BadFile{"DeepLists", Times(60000, "["), kUsage, "is nested too deeply"},
        BadFile{"DeepObjects", Times(5000, "{\"recipe\":"), kUsage, "is nested too deeply"},
        BadFile{"DeepSetting", With(R"("exposure_us": [[1]])"), kUsage, "is nested too deeply"}),
    [](const auto& one) { return std::string(one.param.name); });

TEST_F(Recipe, MustBeAFileOfAtMost64KiB) {
  const std::string head = R"({"recipe": 1)";
  WriteFile(folder_ / "most.json", head + std::string((1 << 16) - head.size() - 1, ' ') + "}");
  WriteFile(folder_ / "more.json", head + std::string((1 << 16) - head.size(), ' ') + "}");
  EXPECT_EQ(Run("recipe show most.json").status, kOk);
  for (const char* path : {"more.json", "/dev/zero", ".", "missing.json"}) {
    const ToolResult result = Run(std::string("recipe show ") + path);
    EXPECT_EQ(result.status, kFile) << path;
    EXPECT_EQ(CountLines(result.err), 1) << result.err;
    EXPECT_THAT(result.err, AllOf(HasSubstr(std::string("cannot read ") + path + ": "),
                                  HasSubstr("a recipe is a JSON file of at most 64 KiB")));
  }
}

}  // namespace
}  // namespace tessaline_test
