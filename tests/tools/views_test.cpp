// The csv files that "calibrate" takes: whose they are, and what spreadsheets make of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Failure.h"
#include "ToolRun.h"
#include "calibrate/View.h"

namespace tessaline_test {
namespace {

using ::testing::HasSubstr;
using tool::calibrate::ReadView;
using tool::calibrate::View;

const std::string kHead =
    "frame_id,time_stamp,encoder_stamp,column,row,peak,line_width,sensor,x_mm,z_mm\n";

class ViewFile : public ::testing::Test {
 protected:
  View Read(const std::string& text) const {
    WriteFile(file_, text);
    return ReadView(file_, 100, 80);
  }
  std::string Refusal(const std::string& text) const {
    try {
      return "read " + std::to_string(Read(text).samples.size());
    } catch (const tool::Failure& failure) {
      EXPECT_EQ(failure.code(), tool::ExitCode::kUsage);
      return std::string(failure.what()) + "; " + failure.next();
    }
  }

  const Directory directory_;
  const std::string file_ = directory_ / "view.csv";
};

// Two columns in three profiles.
const std::vector<std::string> kLines{
    "1,0,0,4,10.0,9,9,100x80,1,2\n", "1,0,0,5,20.0,9,9,100x80,1,2\n",
    "2,1,0,4,10.5,9,9,100x80,1,2\n", "2,1,0,5,20.5,9,9,100x80,1,2\n",
    "3,2,0,4,11.0,9,9,100x80,1,2\n", "3,2,0,5,21.0,9,9,100x80,1,2\n"};

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line;
  return text;
}

void ExpectWhole(const View& view) {
  EXPECT_EQ(view.profiles, 3);
  EXPECT_NEAR(view.scatter, 0.5, 1e-9);
  ASSERT_EQ(view.samples.size(), 2u);
  EXPECT_NEAR(view.samples[0].row, 10.5, 1e-9);
  EXPECT_NEAR(view.samples[1].row, 20.5, 1e-9);
}

TEST_F(ViewFile, IsReadInAnyOrder) {
  ExpectWhole(Read(kHead + Joined(kLines)));
  // By column, as a spreadsheet sorts it.
  std::vector<std::string> sorted = kLines;
  std::ranges::stable_sort(sorted, {}, [](const std::string& line) { return line[6]; });
  ASSERT_NE(sorted, kLines);
  ExpectWhole(Read(kHead + Joined(sorted)));
}

TEST_F(ViewFile, MayComeFromASpreadsheet) {
  ExpectWhole(Read("\xEF\xBB\xBF" + kHead + Joined(kLines) + "\n"));
  std::string dos = kHead + Joined(kLines) + "\n\n";
  for (std::size_t at = 0; (at = dos.find('\n', at)) != std::string::npos; at += 2) {
    dos.insert(at, "\r");
  }
  ExpectWhole(Read(dos));
  EXPECT_THAT(Refusal(kHead + "\n" + kLines[0]), HasSubstr("line 2 is not a point"));
}

TEST_F(ViewFile, IsThatOfTheSensor) {
  EXPECT_THAT(
      Refusal(kHead + kLines[0] + "1,0,0,5,20.0,9,9,200x160,1,2\n"),
      HasSubstr("line 3 is of a sensor of 200x160, not of 100x80; give views of this head"));
  EXPECT_THAT(Refusal(kHead + "1,0,0,5,20.0,9,9,,1,2\n"), HasSubstr("does not tell its sensor"));
  EXPECT_THAT(Refusal(kHead + "1,0,0,5,20.0,9,9,\033[2J,1,2\n"),
              HasSubstr("does not tell its sensor"));
  EXPECT_THAT(Refusal(kHead + "1,0,0,5,20.0\n"), HasSubstr("does not tell its sensor"));
  // One's own program may leave it out.
  ExpectWhole(
      Read("frame_id,time_stamp,encoder_stamp,column,row\n1,0,0,4,10\n1,0,0,5,20\n"
           "2,1,0,4,10.5\n2,1,0,5,20.5\n3,2,0,4,11\n3,2,0,5,21\n"));
}

// All of its places would be on the larger sensor, too.
TEST_F(ViewFile, OfAnotherModelIsRefused) {
  std::string views;
  for (const char* name : {"a.csv", "b.csv", "c.csv"}) {
    const std::string view = directory_ / name;
    ASSERT_EQ(RunTool("capture strips -n 1 -o " + view + " --virtual K3610").status, kOk);
    views += " --at 0 " + view;
  }
  const ToolResult result = RunTool("calibrate --target plane" + views + " -o " +
                                    (directory_ / "a.cal") + " --model K4010");
  EXPECT_EQ(result.status, kUsage);
  EXPECT_THAT(result.err, HasSubstr("is of a sensor of 1456x1088, not of 4096x1080"));
}

TEST_F(ViewFile, ThatIsADirectoryCannotBeRead) {
  EXPECT_THROW(ReadView(directory_.path(), 100, 80), tool::Failure);
  try {
    ReadView(directory_.path(), 100, 80);
  } catch (const tool::Failure& failure) {
    EXPECT_EQ(failure.code(), tool::ExitCode::kFile);
    EXPECT_THAT(failure.what(), HasSubstr("Is a directory"));
  }
}

}  // namespace
}  // namespace tessaline_test
