// Recordings played into applications: what they get is what was recorded.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Recorded.h"
#include "Recording.h"

namespace tessaline_test {
namespace {

using ::testing::AllOf;
using ::testing::Combine;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Values;

const std::string kSmall = "record --memory 32 -o ";
// Holds all images that come faster than a disk takes them.
const std::string kLarge = "record --memory 160 -o ";

// The board is the replay's own.
ToolRun Tool(const std::string& arguments) { return ToolRun(arguments); }

class Replay : public ::testing::Test {
 protected:
  // Plays run.db3 into the tests' application and records what it gets.
  ToolResult Play(const std::string& options, const std::string& what) const {
    return Tool(kSmall + again_ + " -- " + TESSALINE_TOOL + " replay " + run_ + " " + options +
                Application(what))
        .Run();
  }
  // 0.3 s of a K3610.
  void Take(const std::string& what) const {
    const ToolResult result = Tool(kSmall + run_ + " -t 0.3 --virtual K3610 " + what)
                                  .With("TESSALINE_BOARD_PACE", "real")
                                  .Run();
    ASSERT_EQ(result.status, kOk) << result.err;
  }

  // Strips of a K3610, one a buffer, with a trigger at the tenth and the twentieth.
  void WriteStrips(unsigned strips, unsigned ms_each) const {
    using namespace tool;         // NOLINT(google-build-using-namespace)
    using namespace record_test;  // NOLINT(google-build-using-namespace)
    BagWriter writer(run_);
    const auto put = [&writer](const auto& message) {
      writer.Write(message.kTopic, message.stamp_ns, Encode(message));
    };
    put(DeviceMessage{kStart, R"({"model": "K3610"})"});
    for (unsigned i = 0; i < strips; ++i) {
      const std::int64_t stamp = kStart + i * ms_each * kMs;
      std::vector<std::byte> bytes;
      AppendStrip(bytes, i + 1, 100);
      put(StripsMessage{stamp, 1, 8, bytes});
      if (i == 10 || i == 20) put(EventMessage{stamp, kTriggerEvent, i == 10});
    }
    writer.Close();
  }

  const Directory directory_;
  const std::string run_ = directory_ / "run.db3";
  const std::string again_ = directory_ / "again.db3";
};

using Case = std::tuple<const char*, const char*>;
class ReplaySeries : public Replay, public ::testing::WithParamInterface<Case> {};

// A recording of a replay has the frames of the first, byte for byte. (A command of its own takes
// the frames: a "record" within a "record" is its application.)
TEST_P(ReplaySeries, GivesTheSameFrames) {
  const auto& [model, kind] = GetParam();
  // Some images only: they are large.
  const std::string some = kind == std::string("images")
                               ? " -t 0.5 --images --trigger timer --spacing 50000"
                               : " -t 0.2 --strips";
  const ToolResult first =
      Tool(kLarge + run_ + some + " --virtual " + model).With("TESSALINE_BOARD_PACE", "real").Run();
  ASSERT_EQ(first.status, kOk) << first.err;
  const std::string option = std::string(" --") + kind;
  const ToolResult second =
      Tool(kLarge + again_ + option + " -- " + TESSALINE_TOOL + " replay " + run_ +
           " --fast --stop -- " + TESSALINE_TOOL + " record -o x" + option + " --model " + model)
          // A stop of the acquisition waits for images that are under way; without that wait,
          // the buffers may be cleared below the last of them.
          .With("TESSALINE_BOARD_SLEEP", kind == std::string("images") ? "0.3" : "0.1")
          .Run();
  ASSERT_EQ(second.status, kOk) << second.err;
  const Recorded a(run_);
  const Recorded b(again_);
  EXPECT_GE(a.strips + a.images, 2u);
  EXPECT_EQ(a.strips, b.strips);
  EXPECT_EQ(a.images, b.images) << second.err;
  EXPECT_TRUE(a.frames == b.frames) << a.frames.size() << " and " << b.frames.size() << " bytes";
}
INSTANTIATE_TEST_SUITE_P(All, ReplaySeries,
                         Combine(Values("K3610", "K3710", "K3710ch16", "K3710ch16arm_rebuild",
                                        "K3820", "K3810", "K3920", "K3920arm_rebuild", "K4020",
                                        "K4020arm_rebuild"),
                                 Values("strips", "images")),
                         [](const auto& info) {
                           return std::string(std::get<0>(info.param)) + "_" +
                                  std::get<1>(info.param);
                         });

TEST_F(Replay, LoopsGiveTheFramesAgain) {
  Take("--strips");
  EXPECT_EQ(Play("--fast --loop 2 --stop", "wait").status, kOk);
  const Recorded once(run_);
  EXPECT_TRUE(Recorded(again_).frames == once.frames + once.frames);
}

TEST_F(Replay, PartsOfIt) {
  WriteStrips(30, 100);
  EXPECT_EQ(Play("--fast --stop --from 1 --to 1.95", "wait").status, kOk);
  const Recorded part(again_);
  EXPECT_EQ(part.strips, 10u);
}

TEST_F(Replay, KeepsThePace) {
  WriteStrips(30, 100);  // 2.9 s from the first to the last
  const auto seconds = [this](const std::string& options) {
    std::filesystem::remove(again_);
    const ToolResult result = Play(options + " --stop", "wait");
    EXPECT_EQ(result.status, kOk) << result.err;
    const Recorded run(again_);
    EXPECT_EQ(run.strips, 30u);
    return static_cast<double>(run.last_frame_ns - run.first_frame_ns) / 1e9;
  };
  // On a busy machine the last frame may be late.
  EXPECT_THAT(seconds("--speed 2"), AllOf(::testing::Gt(1.35), ::testing::Lt(2.4)));
  EXPECT_THAT(seconds("--speed 10"), AllOf(::testing::Gt(0.25), ::testing::Lt(1.3)));
}

TEST_F(Replay, AnApplicationThatEndsEarly) {
  WriteStrips(100, 1);
  const ToolResult result = Tool("replay " + run_ + " --json" + Application("exit 9")).Run();
  EXPECT_EQ(result.status, 9) << result.err;
  EXPECT_THAT(result.out, HasSubstr("\"application_status\": 9"));
}

TEST_F(Replay, SignalsArePassedOn) {
  WriteStrips(100, 1);
  const ToolResult result = Tool("replay " + run_ + " --speed 0.01" + Application("wait"))
                                .When(
                                    [](const ToolResult& so_far) {
                                      return so_far.out.find("started") != std::string::npos;
                                    },
                                    [](pid_t tool) { kill(tool, SIGTERM); })
                                .Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, AllOf(HasSubstr("ended by 15"), HasSubstr("did not take the rest")));
}

// The second part begins where the first has ended.
TEST_F(Replay, AStreamThatIsOpenedTwice) {
  WriteStrips(3000, 2);  // more than it takes the first time, however late it stops
  const Recorded whole(run_);
  const ToolResult result = Play("", "twice 20");
  EXPECT_EQ(result.status, 20) << result.err;
  const Recorded part(again_);
  EXPECT_GE(part.strips, 40u);
  EXPECT_TRUE(whole.frames.starts_with(part.frames));
}

TEST_F(Replay, TriggersReachTheApplication) {
  WriteStrips(30, 100);
  const ToolResult result = Tool("replay " + run_ + " --stop" + Application("wait")).Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("trigger 1\ntrigger 0\n"));
}

TEST_F(Replay, ImagesOfAnotherSizeAreLeftOut) {
  {
    using namespace tool;         // NOLINT(google-build-using-namespace)
    using namespace record_test;  // NOLINT(google-build-using-namespace)
    BagWriter writer(run_);
    const DeviceMessage device{kStart, R"({"model": "K3610"})"};
    writer.Write(device.kTopic, device.stamp_ns, Encode(device));
    const auto bytes = ImageBytes(1, 16, 8);
    const ImageMessage image{kStart, 16, 8, bytes};
    writer.Write(image.kTopic, image.stamp_ns, Encode(image));
    writer.Close();
  }
  const ToolResult result =
      Tool("replay " + run_ + " --fast --stop" + Application("imagewait")).Run();
  EXPECT_THAT(result.err, HasSubstr("the recording has images of 16 x 8, the application reads"));
}

TEST_F(Replay, WhatCannotBePlayed) {
  const std::string application = " -- touch " + again_;
  const auto play = [&](const std::string& path) {
    return Tool("replay " + path + application).Run();
  };
  EXPECT_EQ(play(directory_ / "none.db3").status, kFile);
  WriteFile(run_, "not a recording");
  EXPECT_EQ(play(run_).status, kFile);
  std::filesystem::remove(run_);
  WriteRecording(run_, R"({"model": "X1"})");
  EXPECT_THAT(play(run_).err, HasSubstr("does not say which product it is of"));
  std::filesystem::remove(run_);
  { tool::BagWriter(run_).Close(); }
  EXPECT_THAT(play(run_).err, HasSubstr("has no frames there"));
  EXPECT_EQ(Tool("replay " + run_ + " --model K3610" + application).Run().status, kUsage);
  EXPECT_FALSE(std::filesystem::exists(again_)) << "the application was started";
}

TEST_F(Replay, AnApplicationThatCannotBeStarted) {
  WriteRecording(run_);
  const ToolResult result = Tool("replay " + run_ + " -- /nothing/here").Run();
  EXPECT_EQ(result.status, kFile);
  EXPECT_THAT(result.err, HasSubstr("cannot start /nothing/here"));
}

}  // namespace
}  // namespace tessaline_test
