// What a capture says of its losses: neither too little nor too much.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <thread>

#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::HasSubstr;

ToolRun Capture(const std::string& arguments, const char* model = "K3610") {
  return ToolRun("capture " + arguments + " --json --strict --virtual " + model);
}

// A pipe that nobody reads for a while.
class LateReader {
 public:
  LateReader(const std::string& path, std::chrono::milliseconds delay)
      : made_(mkfifo(path.c_str(), 0600) == 0), reader_([this, path, delay] {
          const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
          std::this_thread::sleep_for(delay);
          char chunk[65536];
          for (ssize_t got = 0; (got = read(fd, chunk, sizeof chunk)) > 0;) {
            text_.append(chunk, static_cast<std::size_t>(got));
          }
          close(fd);
        }) {}
  ~LateReader() { Wait(); }
  const std::string& Text() {
    Wait();
    return text_;
  }

 private:
  void Wait() {
    if (reader_.joinable()) reader_.join();
  }

  const bool made_;
  std::string text_;
  std::thread reader_;
};

// A writer that is slower than the sensor still writes all that came in its time.
TEST(TimedCapture, WritesWhatWaits) {
  const Directory directory;
  LateReader reader(directory / "pipe", std::chrono::milliseconds(1500));
  const ToolResult result = Capture("strips -t 1 --format csv --force -o " + (directory / "pipe"))
                                .With("TESSALINE_BOARD_PACE", "real")
                                .Run();
  const std::string& text = reader.Text();
  ASSERT_GT(text.size(), 100u);
  const std::size_t last_line = text.rfind('\n', text.size() - 2) + 1;
  const unsigned long last_id = std::stoul(text.substr(last_line));
  EXPECT_GT(last_id, 100u);  // 250 at 4 ms, on an idle machine
  const auto json = result.Json();
  EXPECT_EQ(json["frames"].get<unsigned long>() + json["missing_ids"].get<unsigned long>(),
            last_id);
  EXPECT_EQ(json["dropped"], 0);
}

struct Planted {
  const char* name;
  const char* arguments;
  const char* fault;
  bool complete;
};

std::ostream& operator<<(std::ostream& out, const Planted& one) { return out << one.name; }

class Loss : public ::testing::TestWithParam<Planted> {};

// There are ten strips in a buffer.
TEST_P(Loss, CountsBetweenTheFirstAndTheLastFrame) {
  const Directory directory;
  const ToolResult result = Capture(GetParam().arguments + (" -o " + (directory / "scan.csv")))
                                .With("TESSALINE_BOARD_FAULTS", GetParam().fault)
                                .Run();
  EXPECT_EQ(result.status, GetParam().complete ? kOk : kNegative) << result.out;
  EXPECT_EQ(result.Json()["complete"], GetParam().complete);
}

constexpr Planted kPlanted[]{
    {"None", "strips -n 60", "", true},
    {"BeforeTheFirst", "strips -n 10", "frame strips lost 0 1", true},
    {"Between", "strips -n 60", "frame strips lost 2 1", false},
    {"AfterTheLast", "strips -n 10", "frame strips lost 1 1", true},
    {"InAGivenTime", "strips -t 0.3", "frame strips lost 2 1", false},
};

INSTANTIATE_TEST_SUITE_P(Losses, Loss, ::testing::ValuesIn(kPlanted),
                         [](const auto& info) { return std::string(info.param.name); });

class Defaults : public ::testing::TestWithParam<const char*> {};

// Tried more than once: a busy machine is a board that is late.
ToolResult UntilComplete(const std::string& arguments, const char* model) {
  ToolResult result;
  for (int i = 0; i < 5 && result.status != kOk; ++i) {
    const Directory directory;
    result = Capture(arguments + (directory / "file.png"), model)
                 .With("TESSALINE_BOARD_PACE", "real")
                 .Run();
  }
  return result;
}

TEST_P(Defaults, LoseNoImagesAsPictures) {
  EXPECT_EQ(UntilComplete("images -n 6 -o ", GetParam()).status, kOk);
}

TEST_P(Defaults, LoseNoProfiles) {
  EXPECT_EQ(UntilComplete("strips -n 40 -o ", GetParam()).status, kOk);
}

INSTANTIATE_TEST_SUITE_P(Products, Defaults,
                         ::testing::Values("K3610", "K3710", "K3820", "K3920", "K4010"));

// The queue between sensor and files holds 256 MiB. At the usual spacing, pictures are written
// faster than they come: 16 pixels a microsecond.
TEST_P(Defaults, GiveAPictureTimeToBeWritten) {
  const auto run =
      RunTool("capture images -n 1 -o x.png --dry-run --json --virtual " + std::string(GetParam()));
  const auto sensor = RunTool("models --json " + std::string(GetParam())).Json()[0];
  const std::string spacing =
      "SetTriSpacing(" +
      std::to_string(sensor["width"].get<unsigned>() * sensor["height"].get<unsigned>() / 16) + ")";
  EXPECT_THAT(run.out, HasSubstr(spacing));
}

// --- Two at a time -------------------------------------------------------------------------

class TwoCaptures : public ::testing::TestWithParam<const char*> {};

// The first one's file is not touched by the second, even with --force.
TEST_P(TwoCaptures, IntoOneFileAreRefused) {
  const Directory directory;
  const std::string file = directory / GetParam();
  const std::string what = file.ends_with(".pgm") ? "images" : "strips";
  const std::string arguments = "capture " + what + " --force --virtual K3610 -o " + file;
  ToolResult second;
  const auto began = [&](const ToolResult&) {
    return std::filesystem::exists(file) || std::filesystem::exists(file + ".part");
  };
  const ToolResult first = ToolRun(arguments + " -t 20")
                               .When(began,
                                     [&](pid_t child) {
                                       second = RunTool(arguments + " -n 5");
                                       kill(child, SIGINT);
                                     })
                               .Run();
  EXPECT_EQ(first.status, kInterrupted) << first.err;
  EXPECT_EQ(second.status, kExists) << second.err;
  EXPECT_THAT(second.err, HasSubstr("is being written by another command"));
  EXPECT_TRUE(std::filesystem::exists(file) ||
              std::filesystem::exists(directory / "scan_0001.pgm"));
  EXPECT_FALSE(std::filesystem::exists(file + ".part"));
}

INSTANTIATE_TEST_SUITE_P(Formats, TwoCaptures,
                         ::testing::Values("scan.csv", "scan.png", "scan.pgm"),
                         [](const auto& info) { return std::string(info.param).substr(5); });

}  // namespace
}  // namespace tessaline_test
