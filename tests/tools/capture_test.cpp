// Captures into files of every format, read back; and what becomes of a file when the
// capture cannot be completed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>

#include <cmath>
#include <cstring>
#include <string>

#include "PngFile.h"
#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr unsigned kWidth = 1456;
constexpr unsigned kHeight = 1088;
constexpr double kScenePeriod = 120;  // mm; profiles are 0.2 mm apart
constexpr double kHighest = 10;       // mm, of the scene
constexpr double kResolution = 0.06;  // mm, of what is asked of a height

ToolRun Capture(const std::string& arguments, const char* model = "K3610") {
  return ToolRun("capture " + arguments + " --virtual " + model);
}

template <typename Number>
Number At(const std::string& bytes, std::size_t offset) {
  Number number{};
  if (offset + sizeof number <= bytes.size()) std::memcpy(&number, &bytes[offset], sizeof number);
  return number;
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

// The number behind "'shape': (" in the head of an array's file.
std::size_t NpyRecords(const std::string& bytes) {
  const std::string shape = "'shape': (";
  return std::stoul(bytes.substr(bytes.find(shape) + shape.size(), 20));
}

std::size_t NpyHead(const std::string& bytes) { return 10u + At<std::uint16_t>(bytes, 8); }

constexpr std::size_t kNpyRecord = 24 + kWidth * (5 + 4 * sizeof(float));
constexpr std::size_t kPlyPoint = 5 * sizeof(float) + 1;

// --- Formats -------------------------------------------------------------------------------

TEST(Csv, HasALineAPoint) {
  const Directory directory;
  const std::string file = directory / "scan.csv";
  const ToolResult result = Capture("strips -n 20 -o " + file + " --json").Run();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.Json()["frames"], 20);
  EXPECT_EQ(result.Json()["missing_ids"], 0);
  const auto lines = Split(FileText(file), '\n');
  ASSERT_GT(lines.size(), 20u * 1000);
  EXPECT_EQ(lines[0],
            "frame_id,time_stamp,encoder_stamp,column,row,peak,line_width,sensor,x_mm,z_mm,"
            "sigma_x_mm,sigma_z_mm");
  std::uint64_t last = 0;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const auto cells = Split(lines[i], ',');
    ASSERT_EQ(cells.size(), 11u) << lines[i];
    const std::uint64_t id = std::stoull(cells[0]);
    ASSERT_TRUE(id == last || id == last + 1) << "line " << i;
    last = id;
    ASSERT_NEAR(std::stod(cells[9]), kHighest / 2, kHighest / 2 + kResolution) << lines[i];
  }
  EXPECT_EQ(last, 20u);
}

TEST(Ply, IsThePointCloudOfTheScene) {
  const Directory directory;
  const std::string file = directory / "scan.ply";
  ASSERT_EQ(Capture("strips -n 620 -o " + file).Run().status, 0);
  const std::string bytes = FileText(file);
  const std::string vertex = "element vertex ";
  const std::size_t points = std::stoul(bytes.substr(bytes.find(vertex) + vertex.size(), 20));
  const std::string end = "end_header\n";
  const std::size_t head = bytes.find(end) + end.size();
  ASSERT_THAT(bytes.substr(0, head),
              AllOf(HasSubstr("format binary_little_endian 1.0"), HasSubstr("comment unit mm")));
  ASSERT_EQ(bytes.size(), head + points * kPlyPoint);
  ASSERT_GT(points, 500u * 1000);
  float highest = 0;
  float farthest = 0;
  for (std::size_t i = 0; i < points; ++i) {
    const std::size_t at = head + i * kPlyPoint;
    ASSERT_LE(std::abs(At<float>(bytes, at)), 36.5f);
    farthest = std::max(farthest, At<float>(bytes, at + 4));
    const float z = At<float>(bytes, at + 8);
    ASSERT_GE(z, -kResolution);
    highest = std::max(highest, z);
  }
  // The scene has been seen once in full: its highest object, and how far it moved.
  EXPECT_NEAR(highest, kHighest, kResolution);
  EXPECT_NEAR(farthest, 619 * 0.2, 0.5);
  EXPECT_GT(farthest, kScenePeriod);
}

TEST(Npy, HasARecordAProfile) {
  const Directory directory;
  const std::string file = directory / "scan.npy";
  ASSERT_EQ(Capture("strips -n 30 -o " + file).Run().status, 0);
  const std::string bytes = FileText(file);
  ASSERT_EQ(bytes.substr(0, 6), "\x93NUMPY");
  EXPECT_EQ(NpyRecords(bytes), 30u);
  const std::size_t head = NpyHead(bytes);
  EXPECT_EQ(head % 64, 0u);
  ASSERT_EQ(bytes.size(), head + 30 * kNpyRecord);
  for (std::size_t i = 0; i < 30; ++i) {
    EXPECT_EQ(At<std::uint64_t>(bytes, head + i * kNpyRecord), i + 1);
    const float row = At<float>(bytes, head + i * kNpyRecord + 24 + 4 * (kWidth / 2));
    EXPECT_GT(row, kHeight / 4.0f);
    EXPECT_LT(row, kHeight * 0.76f);
  }
}

// With the library that the format is for.
TEST(Npy, IsReadByNumPy) {
  const std::string python = "/usr/bin/python3";  // the one that Debian's package is for
  if (std::system((python + " -c 'import numpy' 2>/dev/null").c_str()) != 0) {
    GTEST_SKIP() << "python3-numpy is not installed; scripts/setup installs it";
  }
  const Directory directory;
  ASSERT_EQ(Capture("strips -n 5 -o " + (directory / "s.npy")).Run().status, 0);
  ASSERT_EQ(Capture("images -n 2 -o " + (directory / "i.npy")).Run().status, 0);
  WriteFile(directory / "look.py",
            "import sys, numpy as n\n"
            "s = n.load(sys.argv[1] + '/s.npy'); i = n.load(sys.argv[1] + '/i.npy')\n"
            "assert s.shape == (5,) and s['row'].shape == (5, 1456), s.shape\n"
            "assert list(s['frame_id']) == [1, 2, 3, 4, 5]\n"
            "assert n.nanmax(s['row']) < 1088 and s['peak'].max() > 100\n"
            "assert i['pixels'].shape == (2, 1088, 1456) and i['pixels'].max() > 100\n");
  EXPECT_EQ(std::system((python + " " + (directory / "look.py") + " " + directory.path()).c_str()),
            0);
}

TEST(HeightMap, ShowsTheSceneInColours) {
  const Directory directory;
  const std::string file = directory / "map.png";
  ASSERT_EQ(Capture("strips -n 620 -o " + file).Run().status, 0);
  const Picture picture = ReadPng(file, PNG_FORMAT_RGB);
  EXPECT_EQ(picture.width, kWidth / 2);
  // 124 mm, 0.1 mm a pixel.
  EXPECT_NEAR(MapHeight(picture), 619 * 0.2 / 0.1, 10);
  // The belt is blue, and something on it is red.
  std::size_t blue = 0;
  std::size_t red = 0;
  for (std::size_t i = 0; i < picture.pixels.size(); i += 3) {
    const std::uint8_t* rgb = &picture.pixels[i];
    if (rgb[2] > rgb[0] && rgb[2] > rgb[1]) ++blue;
    if (rgb[0] > rgb[2] && rgb[0] > rgb[1]) ++red;
  }
  EXPECT_GT(blue, picture.pixels.size() / 3 / 4);
  EXPECT_GT(red, 1000u);
}

TEST(Images, AreNumberedPictures) {
  const Directory directory;
  const ToolResult result = Capture("images -n 3 --json -o " + (directory / "image.png")).Run();
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.Json()["files"].size(), 3u);
  const Picture picture = ReadPng(directory / "image_0003.png", PNG_FORMAT_GRAY);
  EXPECT_EQ(picture.width, kWidth);
  EXPECT_EQ(picture.height, kHeight);
  EXPECT_GT(*std::max_element(picture.pixels.begin(), picture.pixels.end()), 100);
}

TEST(Images, AreTheSameAsPgmAndRaw) {
  const Directory directory;
  ASSERT_EQ(Capture("images -n 1 -o " + (directory / "image.pgm")).Run().status, 0);
  ASSERT_EQ(Capture("images -n 2 -o " + (directory / "images.raw")).Run().status, 0);
  const std::string pgm = FileText(directory / "image.pgm");
  EXPECT_THAT(pgm, AllOf(HasSubstr("P5\n# frame "), HasSubstr("\n1456 1088\n255\n")));
  EXPECT_EQ(pgm.size() - (pgm.find("255\n") + 4), kWidth * kHeight);
  const std::string raw = FileText(directory / "images.raw");
  EXPECT_EQ(raw.size(), 2u * (kWidth * kHeight + 32));
  EXPECT_EQ(CountLines(FileText(directory / "images.raw.csv")), 3);
}

TEST(Raw, HasAnIndexThatLeadsToEveryProfile) {
  const Directory directory;
  ASSERT_EQ(Capture("strips -n 25 -o " + (directory / "scan.raw")).Run().status, 0);
  const std::string raw = FileText(directory / "scan.raw");
  const auto lines = Split(FileText(directory / "scan.raw.csv"), '\n');
  ASSERT_EQ(lines.size(), 26u);
  std::size_t end = 0;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const auto cells = Split(lines[i], ',');
    const std::size_t offset = std::stoul(cells[1]);
    EXPECT_EQ(offset, end);
    end = offset + std::stoul(cells[2]);
    EXPECT_EQ(At<std::uint64_t>(raw, offset), std::stoull(cells[0]));
    EXPECT_EQ(At<std::uint64_t>(raw, offset + 24), std::stoull(cells[7]));
  }
  EXPECT_EQ(end, raw.size());
}

class CaptureModel : public ::testing::TestWithParam<const char*> {};

TEST_P(CaptureModel, SeesTheLine) {
  const Directory directory;
  const ToolResult result =
      Capture("strips -n 15 --strict -o " + (directory / "scan.csv"), GetParam()).Run();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_GT(CountLines(FileText(directory / "scan.csv")), 15 * 1000);
}

INSTANTIATE_TEST_SUITE_P(Products, CaptureModel,
                         ::testing::Values("K3710ch16arm_rebuild", "K3810", "K3820", "K3920",
                                           "K3920arm_rebuild"));

// A K37.. whose self-test has seen no image goes on acquiring: what it takes before the
// laser is on must not come into the file.
TEST(Capture, BeginsWithoutTheAcquisitionOfAFailedSelfTest) {
  const Directory directory;
  const ToolResult result = Capture("strips -n 15 -o " + (directory / "scan.csv"), "K3710")
                                .With("TESSALINE_BOARD_FAULTS", "call video0 VIDIOC_DQBUF EIO")
                                .With("TESSALINE_BOARD_TRANSCRIPT", directory / "transcript")
                                .Run();
  EXPECT_EQ(result.status, 0) << result.err;
  const std::string transcript = FileText(directory / "transcript");
  const std::string write = "fpga write IMAGE_BLOCK_1 TRIGGER_CTRL = ";
  const std::size_t strips = transcript.rfind("fpga write REBUILD_BLOCK_4 COLLECT_MODE = ");
  const std::size_t last = transcript.rfind(write, strips);
  ASSERT_NE(strips, std::string::npos);
  ASSERT_NE(last, std::string::npos);
  constexpr unsigned long kAcquiring = 0x40;
  EXPECT_EQ(std::stoul(transcript.substr(last + write.size(), 10), nullptr, 16) & kAcquiring, 0u);
}

// --- What can go wrong ---------------------------------------------------------------------

TEST(Capture, EndsAfterATime) {
  const Directory directory;
  const ToolResult result =
      ToolRun("capture strips -t 0.5 --json -o " + (directory / "a.npy") + " --virtual K3610")
          .Run();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_GE(result.Json()["seconds"], 0.5);
  EXPECT_EQ(NpyRecords(FileText(directory / "a.npy")), result.Json()["frames"]);
}

TEST(Capture, OverwritesNothing) {
  const Directory directory;
  for (const char* name : {"a.csv", "a.npy", "a.ply", "a.png", "a.raw"}) {
    WriteFile(directory / name, "mine");
    const std::string arguments = "strips -n 2 -o " + (directory / name);
    const ToolResult refused = Capture(arguments).Run();
    EXPECT_EQ(refused.status, kExists) << name;
    EXPECT_EQ(CountLines(refused.err), 1) << refused.err;
    EXPECT_EQ(FileText(directory / name), "mine");
    EXPECT_EQ(Capture(arguments + " --force").Run().status, 0) << name;
    EXPECT_NE(FileText(directory / name), "mine");
  }
}

// A picture of a series is in the way: told before the laser is on, not behind it.
TEST(Capture, OverwritesNoPictureOfASeries) {
  const Directory directory;
  WriteFile(directory / "image_0002.pgm", "mine");
  const ToolResult refused = Capture("images -n 3 -o " + (directory / "image.pgm")).Run();
  EXPECT_EQ(refused.status, kExists);
  EXPECT_FALSE(std::filesystem::exists(directory / "image_0001.pgm"));
  EXPECT_EQ(FileText(directory / "image_0002.pgm"), "mine");
}

// What a user at a terminal, who answers the question, gets.
ToolResult CaptureAtTerminal(const std::string& file, const char* answer, const char* faults) {
  ToolResult result;
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    Capture("strips -n 5 -o " + file).With("TESSALINE_BOARD_FAULTS", faults).Become();
  }
  bool answered = false;
  char chunk[4096];
  for (ssize_t got = 0; (got = read(terminal, chunk, sizeof chunk)) > 0;) {
    result.out.append(chunk, static_cast<std::size_t>(got));
    if (answered || result.out.find("[y/N]") == std::string::npos) continue;
    answered = write(terminal, answer, std::strlen(answer)) > 0;
  }
  int status = 0;
  waitpid(child, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  close(terminal);
  return result;
}

TEST(Capture, AsksAtATerminalBeforeItOverwrites) {
  const Directory directory;
  for (const char* name : {"scan.csv", "scan.png"}) {
    const std::string file = directory / name;
    WriteFile(file, "mine");
    const ToolResult no = CaptureAtTerminal(file, "n\n", "");
    EXPECT_EQ(no.status, kExists) << no.out;
    EXPECT_THAT(no.out, HasSubstr(name + std::string(" exists. Overwrite it? [y/N]")));
    EXPECT_EQ(FileText(file), "mine");
    EXPECT_EQ(CaptureAtTerminal(file, "y\n", "").status, 0) << name;
    EXPECT_NE(FileText(file), "mine");
  }
  // A picture is made at the end: without one, the file of before stays.
  WriteFile(directory / "scan.png", "mine");
  EXPECT_EQ(CaptureAtTerminal(directory / "scan.png", "y\n", "call video1 VIDIOC_DQBUF EIO").status,
            kUnreachable);
  EXPECT_EQ(FileText(directory / "scan.png"), "mine");
}

// More than fits, whatever was written before the limit came.
constexpr const char* kEndless = "strips -n 100000000 -o ";
constexpr std::uint64_t kDiskBytes = 3'000'000;

// The file has whole records, and its head tells how many.
TEST(FullDisk, LeavesAReadableFile) {
  const Directory directory;
  const std::string file = directory / "scan.npy";
  const ToolResult result = Capture(kEndless + file).LimitWhenThereIs(file, kDiskBytes).Run();
  EXPECT_EQ(result.status, kFile);
  EXPECT_EQ(CountLines(result.err), 1) << result.err;
  EXPECT_THAT(result.err, AllOf(HasSubstr("frames are kept"), HasSubstr("make room")));
  const std::string bytes = FileText(file);
  const std::size_t records = NpyRecords(bytes);
  EXPECT_GT(records, 50u);
  EXPECT_EQ(bytes.size(), NpyHead(bytes) + records * kNpyRecord);
}

TEST(FullDisk, LeavesWholeLines) {
  const Directory directory;
  const std::string file = directory / "scan.csv";
  EXPECT_EQ(Capture(kEndless + file).LimitWhenThereIs(file, kDiskBytes).Run().status, kFile);
  const std::string csv = FileText(file);
  ASSERT_FALSE(csv.empty());
  EXPECT_EQ(csv.back(), '\n');
}

TEST(FullDisk, LeavesWholePoints) {
  const Directory directory;
  const std::string file = directory / "scan.ply";
  EXPECT_EQ(Capture(kEndless + file).LimitWhenThereIs(file, kDiskBytes).Run().status, kFile);
  const std::string ply = FileText(file);
  const std::size_t points = std::stoul(ply.substr(ply.find("vertex ") + 7, 20));
  EXPECT_GT(points, 1000u);
  EXPECT_EQ(ply.size(), ply.find("end_header\n") + 11 + points * kPlyPoint);
}

TEST(FullDisk, LeavesNoHalfPicture) {
  const Directory directory;
  const ToolResult result = Capture("images -n 10000 -o " + (directory / "image.pgm") + " --json")
                                .LimitWhenThereIs(directory / "image_0001.pgm", 100'000)
                                .Run();
  EXPECT_EQ(result.status, kFile) << result.err;
  const std::size_t whole = result.Json()["frames"];
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
    EXPECT_GT(entry.file_size(), kWidth * kHeight) << entry.path();
    ++files;
  }
  EXPECT_EQ(files, whole);
}

TEST(CtrlC, LeavesAReadableFile) {
  const Directory directory;
  const std::string file = directory / "scan.npy";
  const ToolResult result =
      Capture("strips -n 100000000 -o " + file).SignalWhenFileHas(SIGINT, file, 300'000).Run();
  EXPECT_EQ(result.status, kInterrupted) << result.err;
  const std::string bytes = FileText(file);
  const std::size_t records = NpyRecords(bytes);
  EXPECT_GT(records, 10u);
  EXPECT_EQ(bytes.size(), NpyHead(bytes) + records * kNpyRecord);
}

TEST(Capture, CountsWhatWasLost) {
  const Directory directory;
  const ToolResult result = Capture("strips -n 60 --json --strict -o " + (directory / "scan.csv"))
                                .With("TESSALINE_BOARD_FAULTS", "frame strips lost 2 1")
                                .Run();
  EXPECT_EQ(result.status, 1);
  EXPECT_GT(result.Json()["missing_ids"], 0);
}

TEST(Capture, CountsTriggersThatCameTooEarly) {
  const Directory directory;
  const ToolResult result =
      Capture("strips -n 20 --spacing 100 --json --strict -o " + (directory / "scan.csv"))
          .With("TESSALINE_BOARD_PACE", "real")
          .Run();
  EXPECT_EQ(result.status, 1);
  EXPECT_GT(result.Json()["triggers_lost"], 0);
}

TEST(Capture, WarnsOfAPictureThatShowsNothing) {
  struct Case {
    const char* arguments;
    const char* warning;  // empty: none
  };
  const Case cases[]{{"strips -n 5", ""},
                     {"images -n 1", ""},
                     {"strips -n 5 --laser off", "no laser line"},
                     {"images -n 1 --laser off", "no laser line"},
                     {"strips -n 5 --exposure 3000", "saturated"},
                     {"images -n 1 --exposure 3000", "saturated"}};
  for (const Case& one : cases) {
    const Directory directory;
    const std::string arguments = one.arguments + (" -o " + (directory / "PICTURE.PNG"));
    const ToolResult result = Capture(arguments).Run();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err.empty(), *one.warning == '\0') << result.err;
    EXPECT_THAT(result.err, HasSubstr(one.warning)) << one.arguments;
  }
}

TEST(Capture, CountsOneAsOne) {
  const Directory directory;
  EXPECT_THAT(Capture("images -n 1 -o " + (directory / "a.png")).Run().out,
              HasSubstr("\n1 image in "));
}

TEST(Capture, WithoutFramesLeavesNoFile) {
  const Directory directory;
  const ToolResult result = Capture("strips -n 5 -o " + (directory / "scan.csv"))
                                .With("TESSALINE_BOARD_FAULTS", "call video1 VIDIOC_DQBUF EIO")
                                .Run();
  EXPECT_EQ(result.status, kUnreachable);
  EXPECT_THAT(result.err, HasSubstr("no frames came"));
  EXPECT_FALSE(std::filesystem::exists(directory / "scan.csv"));
}

}  // namespace
}  // namespace tessaline_test
